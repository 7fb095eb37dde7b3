// Tool locator: the name-matching rule, search order, wildcard entries, the
// single pass against the per-name search, and the DHCP-client check.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>

#include "host/pkg_detector.h"
#include "spine_test_support.h"

namespace {

using spine_test::TempDir;
using spine_test::write_file;
using Records = std::vector<std::pair<std::string, std::string>>;
using Search = PKGDetector::Search;

Records records_of(const PKGDetector& detector) {
  Records out;
  for (const PKGDetector::Tool& tool : detector.records()) out.emplace_back(tool.name, tool.path);
  return out;
}

// Changes into dir for the lifetime of the object.
class ScopedCwd {
 public:
  explicit ScopedCwd(const std::string& dir) {
    EXPECT_NE(getcwd(saved_, sizeof saved_), nullptr);
    EXPECT_EQ(chdir(dir.c_str()), 0);
  }
  ~ScopedCwd() { EXPECT_EQ(chdir(saved_), 0); }

 private:
  char saved_[4096];
};

TEST(HostNameMatches, ClassicRule) {
  const std::pair<const char*, const char*> matching[] = {
      {"ps", "ps"},    {"ps", "ps.gz"},     {"ps", "ps.Z"},   {"ps", "ps.bz2"}, {"ps", "ps.old"},
      {"ps", "ps2.1"}, {"ps", "s.ps"},      {"ps", "s.s.ps"}, {"env", "env.d"}, {"ps", "ps.a.C"},
      {"ps", "ps..C"}, {"ps", "ps.tar.gz"}, {"Z", "Z"},       {"gz", "gz"},     {"head", "head.gz"},
  };
  const std::pair<const char*, const char*> not_matching[] = {
      {"ps", "ps2"},    {"ps", "psx"},     {"ps", "pstree"}, {"ps", "xps"},
      {"ps", ""},       {"ps", "."},       {"ps", ".."},     {"ls", "lsusb"},
      {"ps", "ps.a.c"}, {"ps", "ps.a.Cx"}, {"ps", "ps.a.b"},
  };
  for (const auto& c : matching)
    EXPECT_TRUE(PKGDetector::name_matches(c.first, c.second)) << c.second;
  for (const auto& c : not_matching) {
    EXPECT_FALSE(PKGDetector::name_matches(c.first, c.second)) << c.first << " vs " << c.second;
  }
}

TEST(HostPkgDetector, SearchOrderFirstDirectoryThenReadOrder) {
  TempDir tmp;
  for (const char* dir : {"a", "b", "c", "c/env.d"}) mkdir((tmp / dir).c_str(), 0755);
  for (const char* file : {"a/lsusb", "b/ls", "c/ls", "b/ps.old", "b/ps"})
    write_file(tmp / file, "");
  // Whichever of ps and ps.old the directory read returns first is taken.
  std::string first_ps;
  DIR* dp = opendir((tmp / "b").c_str());
  while (struct dirent* ent = readdir(dp)) {
    if (first_ps.empty() && ent->d_name[0] == 'p') first_ps = ent->d_name;
  }
  closedir(dp);
  const Records expected = {{"ls", tmp / "b/ls"},
                            {"ps", tmp / ("b/" + first_ps)},
                            {"env", tmp / "c/env.d"},  // a directory counts too
                            {"ls", tmp / "b/ls"}};     // registered twice
  for (Search search : {Search::kSinglePass, Search::kPerName}) {
    PKGDetector detector({tmp / "missing", tmp / "a", tmp / "b", tmp / "c"},
                         {"ls", "ps", "env", "df", "ls"}, false, search);
    EXPECT_EQ(records_of(detector), expected);
    EXPECT_FALSE(detector.has_tool("df"));
    EXPECT_EQ(detector.tool_path("df"), nullptr);
  }
}

TEST(HostPkgDetector, WildcardEntries) {
  TempDir tmp;
  // Below a long pattern such as "/opt/*/bin" nothing is ever found. A
  // pattern of at most 3 characters is expanded, with directories whose
  // names keep name plus pattern within 4 characters.
  for (const char* dir : {"opt", "opt/pkg", "opt/pkg/bin", "w", "w/x", "w/yy", "w/*"}) {
    mkdir((tmp / dir).c_str(), 0755);
  }
  for (const char* file : {"opt/pkg/bin/ps", "w/x/ls", "w/yy/ps", "w/*/df", "w/z"}) {
    write_file(tmp / file, "");
  }
  EXPECT_FALSE(PKGDetector({tmp / "opt/*/bin"}, {"ps"}, false).has_tool("ps"));
  ScopedCwd cwd(tmp.path());
  for (Search search : {Search::kSinglePass, Search::kPerName}) {
    PKGDetector detector({"w/*"}, {"ls", "ps", "df"}, false, search);
    EXPECT_EQ(records_of(detector), (Records{{"ls", "w/x/ls"}}));
  }
}

// Every standard name in spellings that match or almost match, spread over
// directories of hundreds of entries: the single pass must give exactly the
// per-name search's records.
TEST(HostPkgDetector, SinglePassEqualsPerNameSearch) {
  TempDir tmp;
  std::mt19937 random(20240611);
  const char* const variants[] = {"",     ".gz", ".old", "2.1", "2",   "x",    ".a.C",
                                  ".a.b", ".Z",  ".d",   "-x",  "..C", ".1.gz"};
  std::vector<std::string> dirs;
  for (int d = 0; d < 8; ++d) {
    dirs.push_back(tmp / ("d" + std::to_string(d)));
    if (d == 3) continue;  // listed but absent
    mkdir(dirs.back().c_str(), 0755);
    for (int i = 0; i < 300; ++i) write_file(dirs.back() + "/f" + std::to_string(random()), "");
    for (const std::string& name : PKGDetector::standard_names()) {
      for (const char* variant : variants) {
        if (random() % 12 != 0) continue;
        write_file(dirs.back() + "/" + (random() % 5 == 0 ? "s." : "") + name + variant, "");
      }
    }
  }
  std::vector<std::string> names = PKGDetector::standard_names();
  names.push_back("ps");
  names.push_back("");
  PKGDetector single(dirs, names, false, Search::kSinglePass);
  EXPECT_EQ(records_of(single), records_of(PKGDetector(dirs, names, false, Search::kPerName)));
  EXPECT_GT(single.records().size(), 10u);
}

TEST(HostPkgDetector, DhcpCheckRunsPsThroughGrep) {
  TempDir tmp;
  // The fake ps answers only to -A. The directory name holds shell
  // metacharacters, which must reach the shell quoted.
  const std::string odd = tmp / "it's; touch pwned";
  mkdir(odd.c_str(), 0755);
  spine_test::write_script(odd + "/ps", "[ \"$1\" = -A ] && echo '  812 ?  00:00:00 dhclient'\n");
  mkdir((tmp / "quiet").c_str(), 0755);
  spine_test::write_script(tmp / "quiet/ps", "echo '    1 ?  00:00:01 init'\n");
  ScopedCwd cwd(tmp.path());
  EXPECT_TRUE(PKGDetector({odd}, {"ps"}, true).dhclient_running());
  EXPECT_FALSE(spine_test::exists(tmp / "pwned"));
  EXPECT_FALSE(PKGDetector({tmp / "quiet"}, {"ps"}, true).dhclient_running());
  EXPECT_FALSE(PKGDetector({odd}, {"ps"}, false).dhclient_running());
  EXPECT_FALSE(PKGDetector({tmp / "none"}, {"ps"}, true).dhclient_running());
}

}  // namespace
