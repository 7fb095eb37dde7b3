// Reads a simulated host folder as a replay record (see sim_host.h and
// sim/README.md for the folder's layout).
#include "sim/replay/sim_host.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "host/command.h"

namespace {

// The agent's tool names: the simulated host removes every other file of
// these names, so here they must not fall through to the machine's.
const char* const kToolNames[] = {
    "env",       "cd-info",       "hdparm",   "netstat", "dpkg-query", "rpm",
    "emerge",    "pkgtool",       "head",     "ls",      "smbiosDump", "df",
    "iptables",  "iptables-save", "ifconfig", "lsusb",   "lspci",      "uname",
    "ps",        "get-edid",      "route",    "swapon",  "pacman",     "pvscan",
    "pvdisplay", "fdisk",         "smartctl", "tazpkg",  "mdadm"};
// Device nodes the simulated host takes from the machine.
const char* const kDevices[] = {"/dev/null",   "/dev/zero",    "/dev/full",
                                "/dev/random", "/dev/urandom", "/dev/tty"};

void check(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("sim host: " + what);
}

void sh(const std::string& command) {
  check(std::system(command.c_str()) == 0, "failed: " + command);
}

void write(const std::string& path, const std::string& text, mode_t mode = 0644) {
  sh("mkdir -p " + shell_quote(path.substr(0, path.rfind('/'))));
  std::ofstream(path, std::ios::binary) << text;
  check(chmod(path.c_str(), mode) == 0, "chmod " + path);
}

// The lines of a host file, without comments and blank lines.
std::vector<std::string> lines_of(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    line = line.substr(0, line.find('#'));
    const size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos) continue;
    lines.push_back(line.substr(start, line.find_last_not_of(" \t") - start + 1));
  }
  return lines;
}

std::vector<std::string> words(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> out;
  for (std::string w; in >> w;) out.push_back(w);
  return out;
}

std::vector<std::string> components(const std::string& path) {
  std::vector<std::string> out;
  std::istringstream in(path);
  for (std::string c; std::getline(in, c, '/');) {
    if (!c.empty() && c != ".") out.push_back(c);
  }
  return out;
}

// IPv4 netmask of a prefix length.
std::string netmask(int prefix) {
  const uint32_t mask = prefix <= 0 ? 0 : 0xffffffffu << (32 - prefix);
  return std::to_string(mask >> 24) + "." + std::to_string((mask >> 16) & 255) + "." +
         std::to_string((mask >> 8) & 255) + "." + std::to_string(mask & 255);
}

HostRecord::Interface interface_of(const std::vector<std::string>& w) {
  HostRecord::Interface iface;
  iface.name = w[0];
  const size_t slash = w[2].find('/');
  iface.ip = w[2].substr(0, slash);
  iface.netmask = netmask(std::stoi(w[2].substr(slash + 1)));
  if (w[1] != "-") {
    unsigned b[6];
    check(std::sscanf(w[1].c_str(), "%x:%x:%x:%x:%x:%x", &b[0], &b[1], &b[2], &b[3], &b[4],
                      &b[5]) == 6,
          "bad MAC " + w[1]);
    for (int i = 0; i < 6; ++i) iface.mac[i] = static_cast<unsigned char>(b[i]);
  }
  return iface;
}

}  // namespace

SimHost::SimHost(const std::string& name) {
  host_dir_ = name.find('/') != std::string::npos
                  ? name
                  : std::string(QS_SOURCE_DIR) + "/sim/hosts/" + name;
  struct stat st;
  check(stat(host_dir_.c_str(), &st) == 0 && S_ISDIR(st.st_mode), "no host " + host_dir_);
  char pattern[] = "/tmp/qs-simhost-XXXXXX";
  check(mkdtemp(pattern) != nullptr, "mkdtemp");
  tmp_ = pattern;
  root_ = tmp_ + "/root";
  const std::string shadow = tmp_ + "/shadow";

  // The machine's merged /usr, as the simulated host's root has it.
  sh("mkdir -p " + shell_quote(root_) + "/usr/bin " + shell_quote(root_) + "/usr/sbin " +
     shell_quote(root_) + "/usr/lib " + shell_quote(root_) + "/usr/lib64 " + shell_quote(shadow));
  for (const char* dir : {"bin", "sbin", "lib", "lib64"}) {
    check(symlink((std::string("usr/") + dir).c_str(), (root_ + "/" + dir).c_str()) == 0, dir);
  }

  // Tools: simulated ones answer through sim/simtool, real ones are the
  // machine's binary. PATH holds the host's tool directories first, then
  // stand-ins for what the simulated host has of the machine.
  std::string path = root_ + "/bin:" + root_ + "/sbin:" + root_ + "/usr/bin:" + root_ + "/usr/sbin";
  for (const std::string& line : lines_of(host_dir_ + "/tools")) {
    const std::vector<std::string> w = words(line);
    const std::string target = root_ + w[0];
    tool_paths_.push_back(w[0]);
    const std::string dir = w[0].substr(0, w[0].rfind('/'));
    path += ":" + root_ + dir;
    if (w.size() > 1) {  // "real"
      const std::string base = w[0].substr(w[0].rfind('/') + 1);
      sh("mkdir -p " + shell_quote(root_ + dir) + " && ln -sf \"$(command -v " + shell_quote(base) +
         ")\" " + shell_quote(target));
    } else {
      write(target,
            "#!/bin/sh\nexec /usr/bin/python3 -S " + shell_quote(QS_SOURCE_DIR "/sim/simtool") +
                " " + shell_quote(w[0].substr(w[0].rfind('/') + 1)) + " \"$@\"\n",
            0755);
    }
  }
  for (const char* tool : kToolNames) write(shadow + "/" + tool, "#!/bin/sh\nexit 127\n", 0755);
  // The agent runs as root, and reads the host name through cat.
  write(shadow + "/whoami", "#!/bin/sh\necho root\n", 0755);
  write(shadow + "/cat",
        "#!/bin/sh\nfor a; do shift; case $a in /*) set -- \"$@\" " + shell_quote(root_) +
            "\"$a\";; *) set -- \"$@\" \"$a\";; esac; done\nexec /bin/cat \"$@\"\n",
        0755);
  path += ":" + shadow + ":/usr/bin:/bin";
  env_ = "env -i PATH=" + shell_quote(path) +
         " HOME=/ SHELL=/bin/sh USER=root LOGNAME=root SIM_HOST_DIR=" + shell_quote(host_dir_) +
         " SIM_CALLS_LOG=" + shell_quote(tmp_ + "/calls.log") + " SIMROOT=" + shell_quote(root_);
  if (const char* tz = getenv("TZ")) env_ += " TZ=" + shell_quote(tz);

  sh("test ! -d " + shell_quote(host_dir_ + "/files") + " || cp -a " +
     shell_quote(host_dir_ + "/files") + "/. " + shell_quote(root_));
  const std::vector<std::string> names = lines_of(host_dir_ + "/hostname");
  write(root_ + "/proc/sys/kernel/hostname", (names.empty() ? "" : names[0]) + "\n");
  struct stat setup;
  if (stat((host_dir_ + "/setup.sh").c_str(), &setup) == 0) {
    sh("cd " + shell_quote(root_) + " && " + env_ + " SIMROOT=" + shell_quote(root_) + " SIMHOST=" +
       shell_quote(host_dir_) + " /bin/bash -e " + shell_quote(host_dir_ + "/setup.sh"));
  }

  // The kernel lists the loopback first, then the interfaces in file order.
  for (bool loopback : {true, false}) {
    for (const std::string& line : lines_of(host_dir_ + "/interfaces")) {
      const std::vector<std::string> w = words(line);
      check(w.size() == 3, "bad interface line " + line);
      if ((w[1] == "-") == loopback) record_.interfaces.push_back(interface_of(w));
    }
  }
  HostRecord::Clock clock;
  LiveHost live;
  clock.wall = live.wall_time();
  struct tm local;
  const time_t wall = static_cast<time_t>(clock.wall);
  if (live.local_time(wall, &local)) clock.utc_offset = static_cast<int32_t>(local.tm_gmtoff);
  struct timespec mono;
  if (live.monotonic(&mono)) clock.monotonic_sec = mono.tv_sec;
  record_.clocks.push_back(clock);
  record_.working_directory = "/";
}

SimHost::~SimHost() {
  if (std::system(("rm -rf " + shell_quote(tmp_)).c_str()) != 0) std::perror("rm");
}

std::string SimHost::run(const std::string& cmdline) const {
  // The agent names located tools by their quoted host path: those lead
  // into the temporary root.
  std::string rewritten = cmdline;
  for (const std::string& tool : tool_paths_) {
    // With /usr merged, /usr/bin/X is also /bin/X and the other way round.
    const std::string other = tool.compare(0, 5, "/usr/") == 0 ? tool.substr(4) : "/usr" + tool;
    for (const std::string& alias : {tool, other}) {
      const std::string quoted = shell_quote(alias);
      for (size_t at = rewritten.find(quoted); at != std::string::npos;
           at = rewritten.find(quoted, at + 1)) {
        rewritten.replace(at, quoted.size(), shell_quote(root_ + alias));
      }
    }
  }
  LiveHost live;
  return live.run(env_ + " /bin/sh -c " + shell_quote("exec 2>/dev/null; " + rewritten)).output;
}

std::string SimHost::machine_path(const std::string& host_path) const {
  if (host_path.empty()) return host_path;  // names nothing, here as there
  std::vector<std::string> todo = components(host_path);
  std::reverse(todo.begin(), todo.end());
  std::vector<std::string> done;
  for (int links = 0; !todo.empty();) {
    const std::string c = todo.back();
    todo.pop_back();
    if (c == "..") {
      if (!done.empty()) done.pop_back();
      continue;
    }
    std::string here = root_;
    for (const std::string& d : done) here += "/" + d;
    here += "/" + c;
    char target[4096];
    const ssize_t n = readlink(here.c_str(), target, sizeof target - 1);
    if (n < 0) {
      done.push_back(c);
      continue;
    }
    if (++links > 40) return root_ + "/.too-many-links";  // never exists
    const std::string link(target, static_cast<size_t>(n));
    if (link[0] == '/') done.clear();
    std::vector<std::string> more = components(link);
    todo.insert(todo.end(), more.rbegin(), more.rend());
  }
  std::string path;
  for (const std::string& d : done) path += "/" + d;
  for (const char* device : kDevices) {
    if (path == device) return path;
  }
  if (path.compare(0, 6, "/proc/") == 0 && path != "/proc/sys/kernel/hostname") return path;
  return root_ + path;
}

size_t SimHost::answer(const std::vector<ReplayHost::Request>& requests) {
  LiveHost live;
  size_t fresh = 0;
  for (const ReplayHost::Request& r : requests) {
    const std::string key =
        r.kind == ReplayHost::Request::kFile ? std::to_string(r.limit) + ":" + r.key : r.key;
    if (!asked_.insert({static_cast<int>(r.kind), key}).second) continue;
    ++fresh;
    switch (r.kind) {
      case ReplayHost::Request::kCommand:
        record_.commands[r.key] = run(r.key);
        break;
      case ReplayHost::Request::kFile: {
        std::string data;
        if (!live.read(machine_path(r.key), r.limit, &data)) break;
        std::string& kept = record_.files[r.key];
        if (data.size() >= kept.size()) kept = data;
        record_.paths[r.key] = live.path_info(machine_path(r.key));
        break;
      }
      case ReplayHost::Request::kPath:
        record_.paths[r.key] = live.path_info(machine_path(r.key));
        break;
      case ReplayHost::Request::kDir: {
        std::vector<HostRecord::DirEntry> entries;
        if (live.list_dir(machine_path(r.key), &entries)) record_.dirs[r.key] = entries;
        break;
      }
    }
  }
  return fresh;
}
