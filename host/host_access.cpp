// The live, recording and replaying host access.
#include "host/host_access.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "host/command.h"
#include "zxml/INVfile.h"

namespace {

// Size of the buffer the kernel fills with the interface list.
const size_t kInterfaceListBytes = 1024;

// Dotted-decimal text of the IPv4 address held in a request's address
// field. The field is copied out byte-wise because the ioctls rewrite it
// in whichever form they answer with.
std::string dotted_address(const struct ifreq& request) {
  struct sockaddr_in address;
  static_assert(sizeof address <= sizeof request.ifr_ifru, "address field too small");
  memcpy(&address, &request.ifr_ifru, sizeof address);
  char text[INET_ADDRSTRLEN] = {};
  if (inet_ntop(AF_INET, &address.sin_addr, text, sizeof text) == nullptr) return "";
  return text;
}

char entry_type(unsigned char d_type) {
  switch (d_type) {
    case DT_DIR:
      return 'd';
    case DT_REG:
      return 'f';
    case DT_LNK:
      return 'l';
    case DT_UNKNOWN:
      return '?';
    default:
      return 'o';
  }
}

}  // namespace

// ------------------------------------------------------------------ live

HostAccess::CommandResult LiveHost::run(const std::string& cmdline) {
  CommandResult result;
  FILE* pipe = popen(cmdline.c_str(), "r");
  if (pipe == nullptr) return result;
  result.started = true;
  char buffer[512];
  // The first piece is appended even when it is empty; later pieces only
  // when something was read. fread() is byte-exact, so NUL bytes survive.
  size_t got = fread(buffer, 1, sizeof buffer, pipe);
  result.output.append(buffer, got);
  while (!feof(pipe) && !ferror(pipe)) {
    got = fread(buffer, 1, sizeof buffer, pipe);
    if (got == 0) continue;
    result.output.append(buffer, got);
  }
  pclose(pipe);
  return result;
}

bool LiveHost::read(const std::string& path, size_t limit, std::string* out) {
  out->clear();
  FILE* file = open_for_reading(path.c_str());
  if (file == nullptr) return false;
  // Only a regular file has a meaningful end position: a directory reports
  // an arbitrary huge one. Anything else is read in pieces.
  struct stat st;
  const bool regular = fstat(fileno(file), &st) == 0 && S_ISREG(st.st_mode);
  off_t size = -1;
  if (regular && fseeko(file, 0, SEEK_END) == 0) size = ftello(file);
  if (size > 0 && fseeko(file, 0, SEEK_SET) == 0) {
    // A regular file: read it in one go. A file that shrank since its size
    // was taken gives what could be read, never bytes that were not read.
    const size_t want = static_cast<uint64_t>(size) < limit ? static_cast<size_t>(size) : limit;
    std::vector<char> buffer(want + 1);
    const size_t got = fread(buffer.data(), 1, want, file);
    out->assign(buffer.data(), got);
  } else {
    // Files that report size 0 (those under /proc) are read in pieces until
    // the end, as are FIFOs and devices.
    rewind(file);
    char buffer[1025];
    size_t got;
    while (out->size() < limit && (got = fread(buffer, 1, 1024, file)) > 0) {
      out->append(buffer, std::min<size_t>(got, limit - out->size()));
    }
  }
  fclose(file);
  return true;
}

HostRecord::PathInfo LiveHost::path_info(const std::string& path) {
  HostRecord::PathInfo info;
  struct stat st;
  FILE* f = open_for_reading(path.c_str());
  if (f == nullptr) {
    if (stat(path.c_str(), &st) == 0) {
      info.exists = true;
      info.is_dir = S_ISDIR(st.st_mode);
      info.is_regular = S_ISREG(st.st_mode);
    }
    return info;
  }
  info.openable = true;
  if (fstat(fileno(f), &st) == 0) {
    info.exists = true;
    info.is_dir = S_ISDIR(st.st_mode);
    info.is_regular = S_ISREG(st.st_mode);
    info.allocated = static_cast<uint64_t>(st.st_blocks) * 512u;
  }
  // A directory opens for reading too, but its "end" is not a byte count.
  if (!info.is_dir && fseeko(f, 0, SEEK_END) == 0) {
    const off_t end = ftello(f);
    if (end > 0) info.size = static_cast<uint64_t>(end);
  }
  fclose(f);
  return info;
}

bool LiveHost::list_dir(const std::string& path, std::vector<HostRecord::DirEntry>* out) {
  out->clear();
  DIR* dp = opendir(path.c_str());
  if (dp == nullptr) return false;
  while (const struct dirent* ent = readdir(dp)) {
    out->push_back(HostRecord::DirEntry{ent->d_name, entry_type(ent->d_type)});
  }
  closedir(dp);
  return true;
}

bool HostAccess::visit_dir(const std::string& path, const std::function<void(const char*)>& visit) {
  std::vector<HostRecord::DirEntry> entries;
  if (!list_dir(path, &entries)) return false;
  for (const HostRecord::DirEntry& entry : entries) visit(entry.name.c_str());
  return true;
}

bool LiveHost::visit_dir(const std::string& path, const std::function<void(const char*)>& visit) {
  DIR* dp = opendir(path.c_str());
  if (dp == nullptr) return false;
  while (const struct dirent* ent = readdir(dp)) visit(ent->d_name);
  closedir(dp);
  return true;
}

std::vector<HostRecord::Interface> LiveHost::interfaces() {
  std::vector<HostRecord::Interface> result;
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  // Zero-filled, so that a failed listing (which leaves the length at the
  // whole buffer) walks empty records rather than stale memory.
  alignas(struct ifreq) char buffer[kInterfaceListBytes] = {};
  struct ifconf list;
  memset(&list, 0, sizeof list);
  list.ifc_len = static_cast<int>(sizeof buffer);
  list.ifc_buf = buffer;
  if (ioctl(sock, SIOCGIFCONF, &list) < 0) perror("ioctl(SIOCGIFCONF)");
  size_t used = list.ifc_len > 0 ? static_cast<size_t>(list.ifc_len) : 0;
  if (used > sizeof buffer) used = sizeof buffer;
  const size_t count = used / sizeof(struct ifreq);

  for (size_t i = 0; i < count; ++i) {
    struct ifreq request;
    memcpy(&request, buffer + i * sizeof request, sizeof request);
    HostRecord::Interface iface;
    char name[IFNAMSIZ + 1] = {};
    memcpy(name, request.ifr_name, IFNAMSIZ);
    iface.name = name;
    iface.ip = dotted_address(request);
    // Each ioctl rewrites the request's address field; a failed one leaves
    // it as it was, and its bytes are read all the same.
    if (ioctl(sock, SIOCGIFNETMASK, &request) < 0) perror("ioctl(SIOCGIFNETMASK)");
    iface.netmask = dotted_address(request);
    if (ioctl(sock, SIOCGIFHWADDR, &request) < 0) perror("ioctl(SIOCGIFHWADDR)");
    struct sockaddr hardware;
    memcpy(&hardware, &request.ifr_ifru, sizeof hardware);
    memcpy(iface.mac, hardware.sa_data, sizeof iface.mac);
    result.push_back(iface);
  }
  // The socket stays open, as it always has: one descriptor per scan, and
  // the agent runs one scan before it exits.
  return result;
}

time_t LiveHost::wall_time() {
  return time(nullptr);
}

bool LiveHost::local_time(time_t t, struct tm* out) {
  return localtime_r(&t, out) != nullptr;
}

time_t LiveHost::make_time(struct tm* tm) {
  return mktime(tm);
}

std::string LiveHost::zone_offset(const struct tm& local) {
  char zone[16];
  if (std::strftime(zone, sizeof zone, "%z", &local) == 0) return std::string();
  return zone;
}

bool LiveHost::monotonic(struct timespec* out) {
  return clock_gettime(CLOCK_MONOTONIC, out) == 0;
}

std::string LiveHost::working_directory() {
  std::vector<char> buffer(4096);
  while (getcwd(buffer.data(), buffer.size()) == nullptr) {
    // A directory that cannot be named (removed, or not reachable) leaves
    // "." so that the file still goes into the current directory.
    if (errno != ERANGE || buffer.size() > (1u << 20)) return ".";
    buffer.resize(buffer.size() * 2);
  }
  return std::string(buffer.data());
}

HostAccess& live_host() {
  static LiveHost host;
  return host;
}

std::string host_timestamp(HostAccess& host, time_t t) {
  struct tm local;
  memset(&local, 0, sizeof local);
  if (!host.local_time(t, &local)) return std::string();
  return format_timestamp_parts(local, host.zone_offset(local));
}

// ------------------------------------------------------------- recording

HostAccess::CommandResult RecordingHost::run(const std::string& cmdline) {
  CommandResult result = inner_.run(cmdline);
  // A command that could not be started is not recorded: replay then
  // treats it as missing, which prints nothing either.
  if (result.started) record_.commands[cmdline] = result.output;
  return result;
}

bool RecordingHost::read(const std::string& path, size_t limit, std::string* out) {
  const bool ok = inner_.read(path, limit, out);
  if (ok) {
    std::string& kept = record_.files[path];
    if (out->size() > kept.size()) kept = *out;  // keep the longest head read
  }
  return ok;
}

HostRecord::PathInfo RecordingHost::path_info(const std::string& path) {
  const HostRecord::PathInfo info = inner_.path_info(path);
  record_.paths[path] = info;
  return info;
}

bool RecordingHost::list_dir(const std::string& path, std::vector<HostRecord::DirEntry>* out) {
  const bool ok = inner_.list_dir(path, out);
  if (ok) record_.dirs[path] = *out;
  return ok;
}

std::vector<HostRecord::Interface> RecordingHost::interfaces() {
  record_.interfaces = inner_.interfaces();
  return record_.interfaces;
}

void RecordingHost::note_clock() {
  HostRecord::Clock clock;
  clock.wall = static_cast<int64_t>(inner_.wall_time());
  const time_t wall = static_cast<time_t>(clock.wall);
  struct tm local;
  if (inner_.local_time(wall, &local)) clock.utc_offset = static_cast<int32_t>(local.tm_gmtoff);
  struct timespec mono = {0, 0};
  if (inner_.monotonic(&mono)) {
    clock.monotonic_sec = mono.tv_sec;
    clock.monotonic_nsec = mono.tv_nsec;
  }
  record_.clocks.push_back(clock);
}

time_t RecordingHost::wall_time() {
  note_clock();
  return static_cast<time_t>(record_.clocks.back().wall);
}

bool RecordingHost::local_time(time_t t, struct tm* out) {
  return inner_.local_time(t, out);
}

time_t RecordingHost::make_time(struct tm* tm) {
  return inner_.make_time(tm);
}

std::string RecordingHost::zone_offset(const struct tm& local) {
  return inner_.zone_offset(local);
}

bool RecordingHost::monotonic(struct timespec* out) {
  note_clock();
  out->tv_sec = static_cast<time_t>(record_.clocks.back().monotonic_sec);
  out->tv_nsec = static_cast<long>(record_.clocks.back().monotonic_nsec);
  return true;
}

std::string RecordingHost::working_directory() {
  record_.working_directory = inner_.working_directory();
  return record_.working_directory;
}

// ---------------------------------------------------------------- replay

HostAccess::CommandResult ReplayHost::run(const std::string& cmdline) {
  CommandResult result;
  result.started = true;  // the shell starts; a missing tool prints nothing
  const auto it = find(record_.commands, Request{Request::kCommand, cmdline, 0});
  if (it != record_.commands.end()) result.output = it->second;
  return result;
}

bool ReplayHost::partial(const std::string& path, size_t held, size_t limit) const {
  // A record that holds less than was asked for, of a file it knows to be
  // longer, holds only a head read earlier.
  const auto info = record_.paths.find(path);
  return held < limit && info != record_.paths.end() && info->second.size > held;
}

bool ReplayHost::read(const std::string& path, size_t limit, std::string* out) {
  out->clear();
  const Request request{Request::kFile, path, limit};
  auto it = find(record_.files, request);
  if (it == record_.files.end()) return false;
  if (partial(path, it->second.size(), limit)) {
    if (fallback_) {
      fallback_(request);
      it = record_.files.find(path);
    }
    if (partial(path, it->second.size(), limit)) unanswered_.push_back(request);
  }
  out->assign(it->second, 0, std::min(limit, it->second.size()));
  return true;
}

HostRecord::PathInfo ReplayHost::path_info(const std::string& path) {
  const auto it = find(record_.paths, Request{Request::kPath, path, 0});
  return it == record_.paths.end() ? HostRecord::PathInfo() : it->second;
}

bool ReplayHost::list_dir(const std::string& path, std::vector<HostRecord::DirEntry>* out) {
  out->clear();
  const auto it = find(record_.dirs, Request{Request::kDir, path, 0});
  if (it == record_.dirs.end()) return false;
  *out = it->second;
  return true;
}

std::vector<HostRecord::Interface> ReplayHost::interfaces() {
  return record_.interfaces;
}

const HostRecord::Clock& ReplayHost::next_clock() {
  static const HostRecord::Clock kEpoch;
  if (record_.clocks.empty()) return kEpoch;
  const size_t i = std::min(next_clock_, record_.clocks.size() - 1);
  if (next_clock_ < record_.clocks.size()) ++next_clock_;
  last_clock_ = &record_.clocks[i];
  return *last_clock_;
}

int32_t ReplayHost::current_offset() const {
  if (last_clock_ != nullptr) return last_clock_->utc_offset;
  return record_.clocks.empty() ? 0 : record_.clocks.front().utc_offset;
}

time_t ReplayHost::wall_time() {
  return static_cast<time_t>(next_clock().wall);
}

bool ReplayHost::local_time(time_t t, struct tm* out) {
  const int32_t offset = current_offset();
  const time_t shifted = t + offset;
  if (gmtime_r(&shifted, out) == nullptr) return false;
  out->tm_isdst = 0;
  out->tm_gmtoff = offset;
  return true;
}

time_t ReplayHost::make_time(struct tm* tm) {
  tm->tm_isdst = 0;
  const time_t utc = timegm(tm);
  if (utc == static_cast<time_t>(-1)) return utc;
  tm->tm_gmtoff = current_offset();
  return utc - current_offset();
}

std::string ReplayHost::zone_offset(const struct tm& local) {
  const long offset = local.tm_gmtoff;
  const long magnitude = offset < 0 ? -offset : offset;
  char text[48];
  snprintf(text, sizeof text, "%c%02ld%02ld", offset < 0 ? '-' : '+', magnitude / 3600,
           magnitude % 3600 / 60);
  return text;
}

bool ReplayHost::monotonic(struct timespec* out) {
  const HostRecord::Clock& clock = next_clock();
  out->tv_sec = static_cast<time_t>(clock.monotonic_sec);
  out->tv_nsec = static_cast<long>(clock.monotonic_nsec);
  return true;
}

std::string ReplayHost::working_directory() {
  return record_.working_directory.empty() ? std::string(".") : record_.working_directory;
}
