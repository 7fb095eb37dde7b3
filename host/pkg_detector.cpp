// Tool locator. The directory list and the name-matching rule follow the
// traditional binary search of the BSD tool finder; the standard
// constructor reads each directory once for all names instead of once per
// name, with the same results.
#include "host/pkg_detector.h"

#include <array>
#include <cstring>
#include <functional>

#include "host/command.h"
#include "host/host_access.h"

namespace {

// Calls visit(directory) for every concrete directory that `dir` stands
// for, in search order. A plain directory stands for itself. A pattern with
// "*" is expanded only when the whole pattern is at most 3 characters long,
// and then only with entries whose name length plus the pattern length is
// at most 4; longer patterns (all the standard ones, e.g. "/opt/*/bin") are
// never searched, so no tool below /opt is ever found.
void visit_search_dirs(HostAccess& host, const std::string& dir,
                       const std::function<void(const std::string&)>& visit) {
  const size_t star = dir.find('*');
  if (star == std::string::npos) {
    visit(dir);
    return;
  }
  // Compat: patterns longer than 3 characters are never expanded, so no
  // tool below /opt is found (HostPkgDetector.SearchOrderAndWildcards).
  if (dir.size() > 3) return;
  const std::string base = dir.substr(0, star);
  const std::string rest = dir.substr(star + 1);
  std::vector<HostRecord::DirEntry> entries;
  if (!host.list_dir(base, &entries)) return;
  for (const HostRecord::DirEntry& ent : entries) {
    const char* name = ent.name.c_str();
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
    if (std::strlen(name) + dir.size() > 4) continue;
    // An entry whose own name holds "*" would re-create the pattern and
    // expand forever; such entries are skipped.
    if (std::strchr(name, '*') != nullptr) continue;
    const std::string candidate = base + name;
    if (!host.path_info(candidate).is_dir) continue;
    visit_search_dirs(host, candidate + rest, visit);
  }
}

bool ends_with(const char* text, size_t length, const char* suffix) {
  const size_t n = std::strlen(suffix);
  return length >= n && std::memcmp(text + length - n, suffix, n) == 0;
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

PKGDetector::PKGDetector() : PKGDetector(live_host()) {}

PKGDetector::PKGDetector(HostAccess& host) : host_(&host), dirs_(standard_dirs()) {
  register_single_pass(standard_names());
  run_dhcp_check();
}

PKGDetector::PKGDetector(const std::vector<std::string>& dirs,
                         const std::vector<std::string>& names, bool dhcp_check, Search search)
    : PKGDetector(dirs, names, dhcp_check, search, live_host()) {}

PKGDetector::PKGDetector(const std::vector<std::string>& dirs,
                         const std::vector<std::string>& names, bool dhcp_check, Search search,
                         HostAccess& host)
    : host_(&host), dirs_(dirs) {
  if (search == Search::kSinglePass) {
    register_single_pass(names);
  } else {
    for (const std::string& name : names) add_tool(name);
  }
  if (dhcp_check) run_dhcp_check();
}

PKGDetector::~PKGDetector() = default;

bool PKGDetector::name_matches(const char* tool, const char* entry) {
  const char* cp = tool;
  const char* dp = entry;
  // Source-control style names ("s.ps") stand for the name after "s.".
  if (dp[0] == 's' && dp[1] == '.' && name_matches(cp, dp + 2)) return true;
  const size_t length = std::strlen(dp);
  // n counts the characters left before a compression suffix.
  long long n = static_cast<long long>(length);
  if (ends_with(dp, length, ".Z")) {
    n -= 2;
  } else if (ends_with(dp, length, ".gz")) {
    n -= 3;
  } else if (ends_with(dp, length, ".bz2")) {
    n -= 4;
  }
  while (*cp != '\0' && *dp != '\0' && *cp == *dp) {
    ++cp;
    ++dp;
    --n;
  }
  if (*cp == '\0' && *dp == '\0') return true;
  while (is_digit(*dp)) ++dp;
  if (*cp == '\0' && *dp == '.') {
    ++dp;
    --n;
    // Any further text counts as a suffix ("ps.old", "ps2.1"), unless it
    // holds another dot, which is accepted only as a final ".C".
    while (n > 0 && *dp != '\0') {
      --n;
      if (*dp++ == '.') return dp[0] == 'C' && dp[1] == '\0';
    }
    return true;
  }
  return false;
}

bool PKGDetector::add_tool(const std::string& name) {
  // Collect every match of every directory, in search order, then keep the
  // first: earliest directory, and within it the earliest entry read.
  std::vector<std::string> found;
  for (const std::string& dir : dirs_) {
    visit_search_dirs(*host_, dir, [&](const std::string& concrete) {
      host_->visit_dir(concrete, [&](const char* entry) {
        if (name_matches(name.c_str(), entry)) found.push_back(concrete + "/" + entry);
      });
    });
  }
  if (found.empty()) return false;
  tools_.push_back(Tool{name, found.front()});
  return true;
}

void PKGDetector::register_single_pass(const std::vector<std::string>& names) {
  const size_t count = names.size();
  std::vector<std::string> paths(count);
  std::vector<bool> found(count, false);
  size_t remaining = count;

  // A non-empty name can only match an entry that starts with the name's
  // first character, or whose text after one or more leading "s." does.
  // Bucketing the names by first character keeps the work per entry small;
  // name_matches still decides every candidate.
  std::array<std::vector<size_t>, 256> by_first;
  std::vector<size_t> empty_names;
  for (size_t i = 0; i < count; ++i) {
    if (names[i].empty()) {
      empty_names.push_back(i);
    } else {
      by_first[static_cast<unsigned char>(names[i][0])].push_back(i);
    }
  }

  auto try_names = [&](const std::vector<size_t>& candidates, const std::string& dir,
                       const char* entry) {
    for (size_t i : candidates) {
      if (found[i] || !name_matches(names[i].c_str(), entry)) continue;
      found[i] = true;
      paths[i] = dir + "/" + entry;
      --remaining;
    }
  };

  for (const std::string& dir : dirs_) {
    visit_search_dirs(*host_, dir, [&](const std::string& concrete) {
      if (remaining == 0) return;
      host_->visit_dir(concrete, [&](const char* entry) {
        try_names(empty_names, concrete, entry);
        // Candidates by the first character, then by the character after
        // each leading "s." ("s.s.ps" gives 's' and 'p'; a repeated key is
        // tried once).
        unsigned char last_key = 0;
        for (const char* p = entry;; p += 2) {
          const unsigned char key = static_cast<unsigned char>(p[0]);
          if (key != 0 && key != last_key) try_names(by_first[key], concrete, entry);
          last_key = key;
          if (p[0] != 's' || p[1] != '.') break;
        }
      });
    });
  }

  for (size_t i = 0; i < count; ++i) {
    if (found[i]) tools_.push_back(Tool{names[i], paths[i]});
  }
}

void PKGDetector::run_dhcp_check() {
  dhclient_running_ = false;
  if (!has_tool("ps")) return;
  // The path is the host's own directory entry name: quoted, so that no
  // character in it can change the command.
  const std::string output =
      run_command(*host_, shell_quote(tool_path("ps")) + " -A | grep dhclient");
  if (output.find("dhclient") != std::string::npos) dhclient_running_ = true;
}

bool PKGDetector::has_tool(const std::string& name) const {
  return tool_path(name) != nullptr;
}

// Null for a name that has no record: callers that do not test has_tool()
// first must handle it.
const char* PKGDetector::tool_path(const std::string& name) const {
  for (const Tool& tool : tools_) {
    if (tool.name == name) return tool.path.c_str();
  }
  return nullptr;
}

const std::vector<std::string>& PKGDetector::standard_dirs() {
  static const std::vector<std::string> dirs = {
      "/bin",
      "/usr/bin",
      "/sbin",
      "/usr/sbin",
      "/etc",
      "/usr/etc",
      "/lib",
      "/usr/lib",
      "/lib64",
      "/usr/lib64",
      "/usr/games",
      "/usr/games/bin",
      "/usr/games/lib",
      "/usr/emacs/etc",
      "/usr/lib/emacs/*/etc",
      "/usr/TeX/bin",
      "/usr/tex/bin",
      "/usr/interviews/bin/LINUX",
      "/usr/X11R6/bin",
      "/usr/X386/bin",
      "/usr/bin/X11",
      "/usr/X11/bin",
      "/usr/X11R5/bin",
      "/usr/local/bin",
      "/usr/local/sbin",
      "/usr/local/etc",
      "/usr/local/lib",
      "/usr/local/games",
      "/usr/local/games/bin",
      "/usr/local/emacs/etc",
      "/usr/local/TeX/bin",
      "/usr/local/tex/bin",
      "/usr/local/bin/X11",
      "/usr/contrib",
      "/usr/hosts",
      "/usr/include",
      "/usr/g++-include",
      "/usr/ucb",
      "/usr/old",
      "/usr/SAFE_NEW",
      "/usr/local",
      "/usr/libexec",
      "/usr/share",
      "/opt/*/bin",
  };
  return dirs;
}

const std::vector<std::string>& PKGDetector::standard_names() {
  static const std::vector<std::string> names = {
      "env",       "cd-info",       "hdparm",   "netstat", "dpkg-query", "rpm",
      "emerge",    "pkgtool",       "head",     "ls",      "smbiosDump", "df",
      "iptables",  "iptables-save", "ifconfig", "lsusb",   "lspci",      "uname",
      "ps",        "get-edid",      "route",    "swapon",  "pacman",     "pvscan",
      "pvdisplay", "fdisk",         "smartctl", "tazpkg",  "mdadm",
  };
  return names;
}
