// Tool locator: the name-matching rule, search order, wildcard entries, and
// the single pass against the per-name search. (The DHCP-client check runs
// in the asset-summary tests.)
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>

#include "host/pkg_detector.h"
#include "test_support.h"

namespace {

using Search = PKGDetector::Search;

std::string records_of(const PKGDetector& detector) {
  std::string out;
  for (const PKGDetector::Tool& tool : detector.records()) out += tool.name + "=" + tool.path + " ";
  return out;
}

TEST(HostNameMatches, ClassicRule) {
  // Compression suffixes, any suffix after digits and a dot, "s." prefixes
  // and a final ".C" count; a longer name or a second suffix does not.
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"ps", "ps", true},      {"ps", "ps.gz", true},   {"ps", "ps.Z", true},
      {"ps", "ps.bz2", true},  {"ps", "ps.old", true},  {"ps", "ps2.1", true},
      {"ps", "s.ps", true},    {"ps", "s.s.ps", true},  {"env", "env.d", true},
      {"ps", "ps.a.C", true},  {"Z", "Z", true},        {"ps", "ps2", false},
      {"ps", "psx", false},    {"ps", "pstree", false}, {"ls", "lsusb", false},
      {"ps", "xps", false},    {"ps", "..", false},     {"ps", "ps.a.b", false},
      {"ps", "ps.a.c", false}, {"ps", "ps.a.Cx", false}};
  for (const auto& [tool, entry, match] : cases)
    EXPECT_EQ(PKGDetector::name_matches(tool, entry), match) << tool << " vs " << entry;
}

// The earliest directory wins; a directory entry counts too; a name asked
// twice is recorded twice. "w/*" is short enough to expand, but only into
// one-letter entries (not "yy", and never "*" again); "o/*/b" is too long
// to be searched at all.
TEST(HostPkgDetector, SearchOrderAndWildcards) {
  test_support::TempDir tmp;
  for (const char* d : {"a", "b", "c", "c/env.d", "o", "o/p", "o/p/b", "w", "w/x", "w/yy", "w/*"})
    mkdir((tmp / d).c_str(), 0755);
  for (const char* f : {"a/lsusb", "b/ls", "c/ls", "c/ps", "o/p/b/df", "w/x/head", "w/yy/uname"})
    test_support::write_file(tmp / f, "");
  char saved[4096];
  ASSERT_TRUE(getcwd(saved, sizeof saved) != nullptr && chdir(tmp.path().c_str()) == 0);
  for (Search search : {Search::kSinglePass, Search::kPerName}) {
    PKGDetector detector({"missing", "a", "b", "c", "o/*/b", "w/*"},
                         {"ls", "ps", "env", "df", "head", "uname", "ls"}, false, search);
    EXPECT_EQ(records_of(detector), "ls=b/ls ps=c/ps env=c/env.d head=w/x/head ls=b/ls ");
  }
  EXPECT_EQ(chdir(saved), 0);
}

// Every standard name in spellings that match or almost match, spread over
// directories of hundreds of entries (one listed but absent): the single
// pass must give exactly the per-name search's records.
TEST(HostPkgDetector, SinglePassEqualsPerNameSearch) {
  test_support::TempDir tmp;
  std::mt19937 random(20240611);
  std::vector<std::string> dirs;
  for (int d = 0; d < 8; ++d) {
    dirs.push_back(tmp / ("d" + std::to_string(d)));
    if (d == 3 || mkdir(dirs.back().c_str(), 0755) != 0) continue;
    for (int i = 0; i < 300; ++i)
      test_support::write_file(dirs.back() + "/" + std::to_string(random()), "");
    for (const std::string& name : PKGDetector::standard_names()) {
      for (const char* variant : {"", ".gz", ".old", "2.1", "2", "x", ".a.C", ".a.b", ".Z", "-x"}) {
        const std::string prefix = random() % 5 == 0 ? "/s." : "/";
        if (random() % 12 == 0) test_support::write_file(dirs.back() + prefix + name + variant, "");
      }
    }
  }
  std::vector<std::string> names = PKGDetector::standard_names();
  names.insert(names.end(), {"ps", ""});
  const PKGDetector single(dirs, names, false, Search::kSinglePass);
  EXPECT_EQ(records_of(single), records_of(PKGDetector(dirs, names, false, Search::kPerName)));
  EXPECT_GT(single.records().size(), 10u);
}

}  // namespace
