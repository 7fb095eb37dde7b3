// quillscan-build: writes the inventory file a scan would have written on a
// host, from a capture that the host's own shell made (quillscan-capture).
// The scan is the agent's own, run against a replay of the capture: same
// collectors, same documents, same file name and naming rules, times from
// the capture's clocks. Requests the capture cannot answer are listed on
// standard error; --strict makes them an error.
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "app/scanner.h"
#include "host/capture_reader.h"
#include "host/host_access.h"
#include "host/reading.h"

namespace {

const char kUsage[] =
    "usage: quillscan-build CAPTURE... [-o DIR] [--debug] [--strict] [/current]\n"
    "  Writes the inventory file the agent would have written on the host\n"
    "  that made each CAPTURE (with quillscan-capture), into DIR (default:\n"
    "  the current directory).\n"
    "  --debug   write the debug run's file instead of a normal scan's\n"
    "  --strict  fail (and keep no file) when the capture leaves a request\n"
    "            of the scan unanswered\n"
    "  /current  read the host as releases 7 and later print (as the agent's\n"
    "            option of the same name; also -current)\n";

// Captures larger than this are refused rather than read into memory.
constexpr std::streamoff kMaxCaptureBytes = std::streamoff(4) << 30;

struct Options {
  std::vector<std::string> captures;
  std::string out_dir = ".";
  bool debug = false;
  bool strict = false;
  ReadingSwitches reading;
};

std::string c_text(const std::string& text) {
  return text.substr(0, text.find('\0'));
}

// The replayed host, except that its working directory, which names the
// written file in the scan's messages, is the output directory.
class BuildHost : public HostAccess {
 public:
  BuildHost(ReplayHost& replay, const std::string& out_dir) : replay_(replay), out_dir_(out_dir) {}
  // The system calls take C strings: what the agent asks ends, for the
  // host, at the first NUL byte, and the capture holds it that way.
  CommandResult run(const std::string& cmdline) override { return replay_.run(c_text(cmdline)); }
  bool read(const std::string& path, size_t limit, std::string* out) override {
    return replay_.read(c_text(path), limit, out);
  }
  HostRecord::PathInfo path_info(const std::string& path) override {
    return replay_.path_info(c_text(path));
  }
  bool list_dir(const std::string& path, std::vector<HostRecord::DirEntry>* out) override {
    return replay_.list_dir(c_text(path), out);
  }
  std::vector<HostRecord::Interface> interfaces() override { return replay_.interfaces(); }
  time_t wall_time() override { return replay_.wall_time(); }
  bool local_time(time_t t, struct tm* out) override { return replay_.local_time(t, out); }
  time_t make_time(struct tm* tm) override { return replay_.make_time(tm); }
  std::string zone_offset(const struct tm& local) override { return replay_.zone_offset(local); }
  bool monotonic(struct timespec* out) override { return replay_.monotonic(out); }
  std::string working_directory() override { return out_dir_; }

 private:
  ReplayHost& replay_;
  std::string out_dir_;
};

bool parse_options(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (apply_reading_option(argv[i], &options->reading)) continue;
    if (arg == "-o") {
      if (i + 1 >= argc) return false;
      options->out_dir = argv[++i];
    } else if (arg == "--debug") {
      options->debug = true;
    } else if (arg == "--strict") {
      options->strict = true;
    } else if (arg == "-h" || arg == "--help" || (arg.size() > 1 && arg[0] == '-')) {
      return false;
    } else {
      options->captures.push_back(arg);
    }
  }
  return !options->captures.empty();
}

bool read_whole(const std::string& path, std::string* data, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = std::string("cannot open: ") + std::strerror(errno);
    return false;
  }
  in.seekg(0, std::ios::end);
  const std::streamoff size = in.tellg();
  if (size > kMaxCaptureBytes) {
    *error = "larger than 4 GiB, not read";
    return false;
  }
  in.seekg(0, std::ios::beg);
  std::ostringstream text;
  text << in.rdbuf();
  *data = text.str();
  return true;
}

// A request the capture answered by saying the path is missing or does
// not open is answered: the agent would have found the same.
bool known_missing(const HostRecord& record, const ReplayHost::Request& request) {
  if (request.kind != ReplayHost::Request::kFile && request.kind != ReplayHost::Request::kDir) {
    return false;
  }
  const auto it = record.paths.find(request.key);
  if (it == record.paths.end()) return false;
  const HostRecord::PathInfo& info = it->second;
  if (!info.exists || !info.openable) return true;
  return request.kind == ReplayHost::Request::kDir ? !info.is_dir : !info.is_regular;
}

const char* kind_name(ReplayHost::Request::Kind kind) {
  switch (kind) {
    case ReplayHost::Request::kCommand:
      return "command";
    case ReplayHost::Request::kFile:
      return "file";
    case ReplayHost::Request::kPath:
      return "path";
    case ReplayHost::Request::kDir:
      return "directory";
  }
  return "request";
}

// Text from the host shown on one line of the terminal: control bytes
// escaped.
std::string printable(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7f || c == '\\') {
      char hex[5];
      snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

// Runs the scan with standard output going to a scratch file (the scan's
// progress and trace lines are for the agent's console, not this one) and
// returns the name the scan reported for the file it wrote ("" if none).
std::string run_replayed_scan(HostAccess& host, bool debug, const ReadingSwitches& reading) {
  fflush(stdout);
  FILE* scratch = tmpfile();
  const int saved = dup(STDOUT_FILENO);
  if (scratch != nullptr && saved >= 0) dup2(fileno(scratch), STDOUT_FILENO);

  CScaner* scanner = new CScaner(host);
  scanner->context().reading = reading;
  // Silent: the result line is ">>>NAME", easy to pick out.
  run_scan(scanner, true, false, debug, nullptr, "", false);
  delete scanner;

  fflush(stdout);
  std::string written;
  if (scratch != nullptr && saved >= 0) {
    dup2(saved, STDOUT_FILENO);
    close(saved);
    rewind(scratch);
    char line[PATH_MAX + 16];
    while (fgets(line, sizeof line, scratch) != nullptr) {
      if (std::strncmp(line, ">>>", 3) != 0) continue;
      written = line + 3;
      if (!written.empty() && written.back() == '\n') written.pop_back();
    }
  }
  if (scratch != nullptr) fclose(scratch);
  return written;
}

// Builds one capture; returns false when it must count as a failure.
bool build_one(const std::string& capture_path, const std::string& out_dir,
               const Options& options) {
  std::string data;
  std::string error;
  Capture capture;
  if (!read_whole(capture_path, &data, &error) || !read_capture(data, &capture, &error)) {
    fprintf(stderr, "quillscan-build: %s: %s\n", capture_path.c_str(), error.c_str());
    return false;
  }
  std::string().swap(data);

  ReplayHost replay(capture.record);
  BuildHost host(replay, out_dir);
  // The scan writes into the current directory: the output directory for
  // its duration.
  const int here = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (here < 0 || chdir(out_dir.c_str()) != 0) {
    fprintf(stderr, "quillscan-build: %s: %s\n", out_dir.c_str(), std::strerror(errno));
    if (here >= 0) close(here);
    return false;
  }
  const std::string written = run_replayed_scan(host, options.debug, options.reading);
  const bool back = fchdir(here) == 0;
  close(here);
  if (!back) {
    fprintf(stderr, "quillscan-build: cannot return to the starting directory\n");
    exit(1);
  }

  std::set<std::pair<int, std::string>> seen;
  int unanswered = 0;
  for (const ReplayHost::Request& request : replay.unanswered()) {
    if (known_missing(capture.record, request)) continue;
    if (!seen.insert({request.kind, request.key}).second) continue;
    ++unanswered;
    fprintf(stderr, "quillscan-build: %s: unanswered %s: %s\n", capture_path.c_str(),
            kind_name(request.kind), printable(request.key).c_str());
  }
  if (written.empty()) {
    fprintf(stderr, "quillscan-build: %s: no inventory file was written\n", capture_path.c_str());
    return false;
  }
  const std::string path = out_dir + "/" + written;
  if (options.strict && unanswered > 0) {
    unlink(path.c_str());
    fprintf(stderr, "quillscan-build: %s: %d request(s) unanswered, no file kept (--strict)\n",
            capture_path.c_str(), unanswered);
    return false;
  }
  printf("%s -> %s\n", capture_path.c_str(), path.c_str());
  fflush(stdout);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!parse_options(argc, argv, &options)) {
    fputs(kUsage, stderr);
    return 2;
  }
  char resolved[PATH_MAX];
  if (realpath(options.out_dir.c_str(), resolved) == nullptr) {
    fprintf(stderr, "quillscan-build: %s: %s\n", options.out_dir.c_str(), std::strerror(errno));
    return 1;
  }
  const std::string out_dir = resolved;
  bool ok = true;
  for (const std::string& capture : options.captures) {
    if (!build_one(capture, out_dir, options)) ok = false;
  }
  return ok ? 0 : 1;
}
