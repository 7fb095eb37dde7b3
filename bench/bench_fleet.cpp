// The cost of exporting a fleet's scans, beside the cost of merely decoding
// them, and the time of a diff.
//
// Scans the simulated hosts esxi67, esx41, esxi55-dhcp, bare and gen-vms
// (1,024 machines) once, then makes 1,000 distinct files from those scans
// (each a copy whose snapshot timestamp is changed, re-compressed, so every
// file has its own scan id). Then, each in a child process, the least time
// of three runs and the largest peak RSS:
//   - decode alone: every file read, inflated and parsed into its tree;
//   - quillscan-inv export to SQLite, to NDJSON and to CSV;
//   - export of 10 files (for the peak RSS against 1,000);
//   - quillscan-inv diff of two scans of the 1,024-machine host.
// The hostile host is left out: its one 34 MB file would set the peak RSS of
// every run alike and make the copies take gigabytes.
//
//   bench_fleet            run from the source tree (as "make bench" does)
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "host/command.h"
#include "tools/fleet.h"
#include "tools/inv_reader.h"

namespace fs = std::filesystem;

namespace {

constexpr int kRepeats = 3;
constexpr int kFiles = 1000;

struct Run {
  double seconds = 1e30;
  double cpu = 1e30;  // user + system seconds of the child
  long peak_kb = 0;
  int status = 0;
};

// Runs argv in a child (output discarded); the best of kRepeats.
Run measure(const std::vector<std::string>& argv, int repeats = kRepeats) {
  Run best;
  for (int r = 0; r < repeats; ++r) {
    const auto start = std::chrono::steady_clock::now();
    std::fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
      std::vector<char*> args;
      for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
      args.push_back(nullptr);
      if (!std::freopen("/dev/null", "w", stdout)) _exit(127);
      execv(args[0], args.data());
      _exit(127);
    }
    int status = 0;
    rusage ru{};
    wait4(pid, &status, 0, &ru);
    const double s =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    best.seconds = std::min(best.seconds, s);
    best.cpu = std::min(best.cpu, ru.ru_utime.tv_sec + ru.ru_stime.tv_sec +
                                      (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6);
    best.peak_kb = std::max(best.peak_kb, ru.ru_maxrss);
    best.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return best;
}

// Child: decode every file (read, inflate, parse into trees), nothing more.
int decode_only(const std::vector<std::string>& args) {
  std::vector<std::string> files;
  std::string error;
  if (!invtab::expand_inputs(args, &files, &error)) return 2;
  size_t elements = 0;
  for (const std::string& f : files) {
    invread::InvReader reader;
    if (!reader.open(f, &error)) return 1;
    for (size_t i = 0; i < reader.header().records.size(); ++i) {
      if (!reader.header().records[i].is_document()) continue;
      std::string text;
      invread::Element top;
      if (!reader.content(i, &text, &error) || !invread::parse_document(text, &top, &error)) {
        return 1;
      }
      elements += top.children.size();
    }
  }
  std::printf("%zu\n", elements);
  return 0;
}

std::string deflate_doc(const std::string& text) {
  uLongf n = compressBound(text.size());
  std::string out(n, '\0');
  compress2(reinterpret_cast<Bytef*>(&out[0]), &n, reinterpret_cast<const Bytef*>(text.data()),
            text.size(), 9);
  out.resize(n);
  return out + std::string("\x00\x01ZXML", 6);
}

// A copy of a scan whose snapshot timestamp (document and header) is stamp.
bool variant(const fs::path& in, const std::string& stamp, const fs::path& out) {
  invread::InvReader reader;
  std::string error, bodies, header;
  if (!reader.open(in.string(), &error)) return false;
  const invread::Header& h = reader.header();
  header = "[H]\ncount=" + std::to_string(h.count) +
           "\nsnapshotcount=" + std::to_string(h.snapshotcount) + "\n";
  for (size_t i = 0; i < h.records.size(); ++i) {
    std::string body;
    if (h.records[i].type == "snapshot") {
      std::string text;
      if (!reader.content(i, &text, &error)) return false;
      const size_t at = text.find("\ntimestamp=");
      const size_t end = text.find('\n', at + 1);
      text.replace(at + 11, end - at - 11, stamp);
      body = deflate_doc(text);
    } else if (!reader.body(i, &body, &error)) {
      return false;
    }
    header += "[" + std::to_string(i) + "]\noffset=" + std::to_string(bodies.size()) +
              "\nlength=" + std::to_string(body.size()) + "\n";
    for (const auto& f : h.records[i].fields) {
      if (f.first == "offset" || f.first == "length") continue;
      header += f.first + "=" + (f.first == "timestamp" ? stamp : f.second) + "\n";
    }
    bodies += body;
  }
  std::string trailer(8, '\0');
  for (int i = 0; i < 8; ++i) trailer[i] = static_cast<char>(uint64_t{bodies.size()} >> (8 * i));
  trailer += "\x03\x01INV!";
  std::ofstream(out, std::ios::binary) << bodies << header << trailer;
  return true;
}

fs::path source_dir() {
  if (const char* env = std::getenv("QS_SOURCE_DIR")) return env;
  fs::path p = fs::canonical("/proc/self/exe").parent_path();
  for (; !p.empty() && p != p.root_path(); p = p.parent_path()) {
    if (fs::exists(p / "sim" / "run")) return p;
  }
  return {};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string(argv[1]) == "--decode") {
    return decode_only(std::vector<std::string>(argv + 2, argv + argc));
  }
  const fs::path src = source_dir(), self = fs::canonical("/proc/self/exe");
  const fs::path build = self.parent_path(), decoder = build / "quillscan-inv";
  if (src.empty() || !fs::exists(build / "quillscan") || !fs::exists(decoder)) {
    std::cerr << "bench_fleet: needs the source tree and quillscan, quillscan-inv beside it\n";
    return 1;
  }
  const fs::path tmp = fs::temp_directory_path() / ("qs-bench-fleet-" + std::to_string(getpid()));
  fs::create_directories(tmp / "scans");
  std::vector<fs::path> bases;
  for (const char* host : {"esxi67", "esx41", "esxi55-dhcp", "bare", "gen-vms"}) {
    const fs::path work = tmp / "scans" / host;
    fs::create_directories(work);
    const std::string cmd = shell_quote((src / "sim" / "run").string()) + " " + host +
                            " --workdir " + shell_quote(work.string()) + " --bind " +
                            shell_quote(build.string()) + " -- " +
                            shell_quote((build / "quillscan").string()) + " /silent >/dev/null";
    if (std::system(cmd.c_str()) != 0) {
      std::cerr << "bench_fleet: the scan of " << host << " failed\n";
      return 1;
    }
    for (const auto& e : fs::directory_iterator(work)) bases.push_back(e.path());
  }
  const fs::path all = tmp / "all", ten = tmp / "ten";
  fs::create_directories(all);
  fs::create_directories(ten);
  uint64_t bytes = 0;
  for (int i = 0; i < kFiles; ++i) {
    char stamp[32], name[32];
    std::snprintf(stamp, sizeof stamp, "2026110%d%02d%02d00.000000+0", 1 + i / 1440, i / 60 % 24,
                  i % 60);
    std::snprintf(name, sizeof name, "scan-%04d.inv", i);
    if (!variant(bases[i % bases.size()], stamp, all / name)) {
      std::cerr << "bench_fleet: cannot copy " << bases[i % bases.size()] << "\n";
      return 1;
    }
    bytes += fs::file_size(all / name);
    if (i < 10) fs::copy_file(all / name, ten / name);
  }
  std::printf("%d files, %.1f MB, from %zu scans (gen-vms: 1,024 machines)\n", kFiles,
              bytes / 1048576.0, bases.size());

  const std::string d = decoder.string();
  const Run decode = measure({self.string(), "--decode", all.string()});
  const Run sqlite = measure(
      {"/bin/sh", "-c",
       "rm -f " + shell_quote((tmp / "f.db").string()) + " && exec " + shell_quote(d) +
           " export -o " + shell_quote((tmp / "f.db").string()) + " " + shell_quote(all.string())});
  const Run ndjson =
      measure({d, "export", "--format", "ndjson", "-o", (tmp / "nd").string(), all.string()});
  const Run csv =
      measure({d, "export", "--format", "csv", "-o", (tmp / "csv").string(), all.string()});
  const Run sqlite10 = measure(
      {"/bin/sh", "-c",
       "rm -f " + shell_quote((tmp / "t.db").string()) + " && exec " + shell_quote(d) +
           " export -o " + shell_quote((tmp / "t.db").string()) + " " + shell_quote(ten.string())});
  const Run decode10 = measure({self.string(), "--decode", ten.string()});
  // Files 4 and 9 are two scans of gen-vms (every fifth file).
  const Run diff =
      measure({d, "diff", (all / "scan-0004.inv").string(), (all / "scan-0009.inv").string()});
  const Run runs[] = {decode, sqlite, ndjson, csv, sqlite10, decode10};
  for (const Run& r : runs) {
    if (r.status != 0) {
      std::cerr << "bench_fleet: a run failed with status " << r.status << "\n";
      return 1;
    }
  }
  std::printf("%-34s %10s %10s %12s\n", "run (least of 3)", "wall s", "CPU s", "peak RSS kB");
  // One line per run; digits after the point for the two times.
  const auto row = [](const char* label, const Run& r, int digits = 2) {
    std::printf("%-34s %10.*f %10.*f %12ld\n", label, digits, r.seconds, digits, r.cpu, r.peak_kb);
  };
  row("decode 1,000 files", decode);
  row("export 1,000 files to SQLite", sqlite);
  row("export 1,000 files to NDJSON", ndjson);
  row("export 1,000 files to CSV", csv);
  row("decode 10 files", decode10);
  row("export 10 files to SQLite", sqlite10);
  row("diff of two 1,024-machine scans", diff, 3);
  // The machine is shared: CPU time is what the program itself spent, wall
  // time also counts waiting for the processor.
  std::printf(
      "\nexport / decode, CPU time: SQLite x%.2f, NDJSON x%.2f, CSV x%.2f (goal: x1.50 or less)\n",
      sqlite.cpu / decode.cpu, ndjson.cpu / decode.cpu, csv.cpu / decode.cpu);
  std::printf("export / decode, wall time: SQLite x%.2f, NDJSON x%.2f, CSV x%.2f\n",
              sqlite.seconds / decode.seconds, ndjson.seconds / decode.seconds,
              csv.seconds / decode.seconds);
  std::printf("peak RSS of export: %ld kB for 10 files, %ld kB for 1,000 files\n", sqlite10.peak_kb,
              sqlite.peak_kb);
  std::printf("diff: %.3f s (goal: under 1 s)\n", diff.seconds);
  // QS_BENCH_KEEP=1 keeps the files for a closer look (a profiler).
  if (std::getenv("QS_BENCH_KEEP") == nullptr) {
    fs::remove_all(tmp);
  } else {
    std::printf("files kept in %s\n", tmp.c_str());
  }
  return 0;
}
