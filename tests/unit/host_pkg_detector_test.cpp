// Tool locator: the name-matching rule, search order, wildcard entries, the
// single pass against the per-name search, and the DHCP-client check.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "host/pkg_detector.h"
#include "spine_test_support.h"

namespace {

using spine_test::TempDir;
using spine_test::write_file;
using spine_test::write_script;

std::vector<std::pair<std::string, std::string>> records_of(const PKGDetector& detector) {
  std::vector<std::pair<std::string, std::string>> out;
  for (const PKGDetector::Tool& tool : detector.records()) out.emplace_back(tool.name, tool.path);
  return out;
}

// The first entry of dir, in directory-read order, among `names`.
std::string first_read_of(const std::string& dir, const std::vector<std::string>& names) {
  DIR* dp = opendir(dir.c_str());
  EXPECT_NE(dp, nullptr);
  std::string first;
  while (struct dirent* ent = readdir(dp)) {
    for (const std::string& name : names) {
      if (first.empty() && name == ent->d_name) first = name;
    }
  }
  closedir(dp);
  return first;
}

TEST(HostNameMatches, ClassicRuleAndItsConsequences) {
  struct Case {
    const char* tool;
    const char* entry;
    bool match;
  };
  const Case cases[] = {
      {"ps", "ps", true},
      {"ps", "ps.gz", true},  // compressed copies
      {"ps", "ps.Z", true},
      {"ps", "ps.bz2", true},
      {"ps", "ps.old", true},  // any single suffix
      {"ps", "ps2.1", true},   // digits, then a suffix
      {"ps", "s.ps", true},    // source-control name
      {"ps", "s.s.ps", true},
      {"ps", "ps2", false},  // digits alone are no suffix
      {"ps", "psx", false},
      {"ps", "pstree", false},
      {"ps", "xps", false},
      {"ps", "p", false},
      {"ps", "", false},
      {"ps", ".", false},
      {"ps", "..", false},
      {"ls", "lsusb", false},
      {"env", "env.d", true},
      {"ps", "ps.a.C", true},  // a second dot only as a final ".C"
      {"ps", "ps.a.c", false},
      {"ps", "ps.a.Cx", false},
      {"ps", "ps.a.b", false},
      {"ps", "ps.tar.gz", true},  // the compression suffix is not looked at
      {"ps", "ps.gz.gz", true},
      {"ps", "ps.tar.b", false},
      {"ps", "ps..C", true},
      {"lsusb", "ls", false},
      {"iptables", "iptables-save", false},
      {"iptables-save", "iptables-save", true},
      {"head", "head.gz", true},
      {"Z", "Z", true},  // short names never read before the entry
      {"gz", "gz", true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(PKGDetector::name_matches(c.tool, c.entry), c.match) << c.tool << " vs " << c.entry;
  }
}

TEST(HostPkgDetector, SearchOrderFirstDirectoryThenReadOrder) {
  TempDir tmp;
  const std::string a = tmp / "a";
  const std::string b = tmp / "b";
  const std::string c = tmp / "c";
  mkdir(a.c_str(), 0755);
  mkdir(b.c_str(), 0755);
  mkdir(c.c_str(), 0755);
  write_file(a + "/lsusb", "");  // not "ls"
  write_file(b + "/ls", "");
  write_file(c + "/ls", "");  // later directory: not taken
  write_file(b + "/ps.old", "");
  write_file(b + "/ps", "");
  mkdir((c + "/env.d").c_str(), 0755);  // a directory matches too
  const std::vector<std::string> dirs = {tmp / "missing", a, b, c};
  const std::vector<std::string> names = {"ls", "ps", "env", "df", "ls"};

  for (auto search : {PKGDetector::Search::kSinglePass, PKGDetector::Search::kPerName}) {
    PKGDetector detector(dirs, names, false, search);
    const std::string first_ps = b + "/" + first_read_of(b, {"ps", "ps.old"});
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"ls", b + "/ls"}, {"ps", first_ps}, {"env", c + "/env.d"}, {"ls", b + "/ls"}};
    EXPECT_EQ(records_of(detector), expected);
    EXPECT_TRUE(detector.has_tool("env"));
    EXPECT_FALSE(detector.has_tool("df"));
    EXPECT_EQ(detector.tool_path("df"), nullptr);
    EXPECT_STREQ(detector.tool_path("ls"), (b + "/ls").c_str());
    EXPECT_FALSE(detector.dhclient_running());
  }
}

TEST(HostPkgDetector, WildcardEntries) {
  TempDir tmp;
  // A tool below a long wildcard pattern (like "/opt/*/bin") is never found.
  mkdir((tmp / "opt").c_str(), 0755);
  mkdir((tmp / "opt/pkg").c_str(), 0755);
  mkdir((tmp / "opt/pkg/bin").c_str(), 0755);
  write_file(tmp / "opt/pkg/bin/ps", "");
  {
    PKGDetector detector({tmp / "opt/*/bin"}, {"ps"}, false);
    EXPECT_FALSE(detector.has_tool("ps"));
  }
  // A pattern of at most 3 characters is expanded, but only with entries
  // short enough that name plus pattern stay within 4 characters, and only
  // with directories.
  mkdir((tmp / "w").c_str(), 0755);
  mkdir((tmp / "w/x").c_str(), 0755);
  mkdir((tmp / "w/yy").c_str(), 0755);
  mkdir((tmp / "w/*").c_str(), 0755);  // would re-create the pattern
  write_file(tmp / "w/x/ls", "");
  write_file(tmp / "w/yy/ps", "");
  write_file(tmp / "w/*/df", "");
  write_file(tmp / "w/z", "");
  char saved[4096];
  ASSERT_NE(getcwd(saved, sizeof saved), nullptr);
  ASSERT_EQ(chdir(tmp.path().c_str()), 0);
  for (auto search : {PKGDetector::Search::kSinglePass, PKGDetector::Search::kPerName}) {
    PKGDetector detector({"w/*"}, {"ls", "ps", "df"}, false, search);
    const std::vector<std::pair<std::string, std::string>> expected = {{"ls", "w/x/ls"}};
    EXPECT_EQ(records_of(detector), expected);
  }
  ASSERT_EQ(chdir(saved), 0);
}

// Every name of the standard list, in many spellings that match or almost
// match, spread over directories with thousands of entries: the single pass
// must give exactly the per-name search's records.
TEST(HostPkgDetector, SinglePassEqualsPerNameSearch) {
  TempDir tmp;
  std::mt19937 random(20240611);
  const std::vector<std::string>& names = PKGDetector::standard_names();
  const char* const variants[] = {"",     ".gz", ".old", "2.1", "2",   "x",    ".a.C",
                                  ".a.b", ".Z",  ".d",   "-x",  "..C", ".1.gz"};
  std::vector<std::string> dirs;
  for (int d = 0; d < 8; ++d) {
    const std::string dir = tmp / ("d" + std::to_string(d));
    dirs.push_back(dir);
    if (d == 3) continue;  // listed but absent
    mkdir(dir.c_str(), 0755);
    for (int filler = 0; filler < 300; ++filler) {
      write_file(dir + "/f" + std::to_string(random()), "");
    }
    for (const std::string& name : names) {
      if (random() % 3 != 0) continue;
      for (const char* variant : variants) {
        if (random() % 4 != 0) continue;
        const std::string prefix = random() % 5 == 0 ? "s." : "";
        write_file(dir + "/" + prefix + name + variant, "");
      }
    }
  }
  std::vector<std::string> asked = names;
  asked.push_back("ps");  // a name registered twice
  asked.push_back("");    // and one that only odd entries could match
  PKGDetector single(dirs, asked, false, PKGDetector::Search::kSinglePass);
  PKGDetector per_name(dirs, asked, false, PKGDetector::Search::kPerName);
  EXPECT_EQ(records_of(single), records_of(per_name));
  EXPECT_GT(single.records().size(), 10u);  // the tree really holds matches
}

TEST(HostPkgDetector, DhcpCheckRunsPsThroughGrep) {
  TempDir tmp;
  // The locator runs "<ps> -A | grep dhclient"; the fake ps answers only
  // to -A. Its directory name holds shell metacharacters, which must reach
  // the shell quoted.
  const std::string odd = tmp / "it's; touch pwned";
  mkdir(odd.c_str(), 0755);
  write_script(odd + "/ps",
               "[ \"$1\" = -A ] && printf '  PID TTY TIME CMD\\n  812 ?  00:00:00 dhclient\\n'\n");
  const std::string quiet = tmp / "quiet";
  mkdir(quiet.c_str(), 0755);
  write_script(quiet + "/ps", "printf '    1 ?  00:00:01 init\\n'\n");
  char saved[4096];
  ASSERT_NE(getcwd(saved, sizeof saved), nullptr);
  ASSERT_EQ(chdir(tmp.path().c_str()), 0);

  EXPECT_TRUE(PKGDetector({odd}, {"ps"}, true).dhclient_running());
  EXPECT_FALSE(spine_test::exists(tmp / "pwned"));
  EXPECT_FALSE(PKGDetector({quiet}, {"ps"}, true).dhclient_running());
  EXPECT_FALSE(PKGDetector({odd}, {"ps"}, false).dhclient_running());  // check not asked
  EXPECT_FALSE(PKGDetector({tmp / "none"}, {"ps"}, true).dhclient_running());
  ASSERT_EQ(chdir(saved), 0);
}

TEST(HostPkgDetector, StandardLists) {
  const std::vector<std::string>& dirs = PKGDetector::standard_dirs();
  ASSERT_EQ(dirs.size(), 44u);
  EXPECT_EQ(dirs.front(), "/bin");
  EXPECT_EQ(dirs[14], "/usr/lib/emacs/*/etc");
  EXPECT_EQ(dirs.back(), "/opt/*/bin");
  const std::vector<std::string>& names = PKGDetector::standard_names();
  ASSERT_EQ(names.size(), 29u);
  EXPECT_EQ(names.front(), "env");
  EXPECT_EQ(names[10], "smbiosDump");
  EXPECT_EQ(names.back(), "mdadm");
}

}  // namespace
