// Installed software: the edges the simulated hosts' listings lack.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "collectors/collectors.h"
#include "collectors/system/software.h"
#include "host/host_access.h"
#include "test_support.h"
#include "zxml/zXML.h"

namespace {

using test_support::tree_text;

// Runs fn with the process time zone set to tz, then restores the zone.
template <typename Fn>
auto in_zone(const char* tz, Fn fn) {
  const bool had_old = std::getenv("TZ") != nullptr;
  const std::string old = had_old ? std::getenv("TZ") : "";
  setenv("TZ", tz, 1);
  tzset();
  auto result = fn();
  had_old ? setenv("TZ", old.c_str(), 1) : unsetenv("TZ");
  tzset();
  return result;
}

const char kVibHeader[] = "Name  Version  Vendor  Acceptance Level  Install Date\n----  -------\n";

}  // namespace

TEST(SysSoftware, DateTexts) {
  // A VIB date without a "-" restarts the search at the start of the text.
  EXPECT_EQ(vib_install_date("2003"), "200320032003000000.000000+000");
  // Install times: local time, the offset in minutes without padding.
  const std::pair<const char*, const char*> zones[] = {{"TST+5", "20140121053000.000000-300"},
                                                       {"UTC0", "20140121103000.000000+0"},
                                                       {"IST-5:30", "20140121160000.000000+330"}};
  for (const auto& zone : zones) {
    std::unique_ptr<char[]> text(
        in_zone(zone.first, [] { return format_cim_datetime(1390300200); }));  // 10:30 UTC
    EXPECT_EQ(std::string(text.get()), zone.second) << zone.first;
  }
}

TEST(SysSoftware, VibListColumnsDuplicatesAndOrder) {
  zXML doc(true, "Snapshot");
  record_vib_list(
      doc.top(),
      std::string(kVibHeader) +
          "net55  8.045a  Realtek  CS  2019-12-27\nata-92  3.00  VMW  VC  2019-12-27\n"
          // Same name and version again: one child, rewritten. Too few
          // columns: empty texts, still a child. No line end: not read.
          "net55  8.045a  Other  CS  2020-01-02\nLonely\nesx-base  6.7  VMW  VC  2019-12-27");
  // Three or more packages are sorted by bytes: upper case first.
  sort_software(doc.top());
  EXPECT_EQ(tree_text(doc.top()->find_child("Software")),
            "+Software=\n"
            "*Soft:Lonely =Lonely\nversion=\npublisher=\ninst-date=000000.000000+000\n"
            "*Soft:ata-92 3.00=ata-92\nversion=3.00\npublisher=VMW\n"
            "inst-date=20191227000000.000000+000\n"
            "*Soft:net55 8.045a=net55\nversion=8.045a\npublisher=Other\n"
            "inst-date=20200102000000.000000+000\n"
            "-\n");
  // Two packages keep the order of the list.
  zXML two(true, "Snapshot");
  record_vib_list(two.top(), std::string(kVibHeader) + "zeta 1 V A 2019-12-27\nalpha 1 V A 2\n");
  sort_software(two.top());
  EXPECT_EQ(two.top()->find_child("Software")->child_at(0)->value()->as_text(), "zeta");
}

TEST(SysSoftware, IpkgNamesQuotedEmptyNamesKept) {
  // The list ends at "Successfully"; an empty line, or one starting with a
  // blank, names the empty package, asked for without a word and sorted
  // with the others. The lenient reading leaves those out.
  const std::string list = "evil;touch${IFS}x - 1 - y\n\n b\na - 2\nSuccessfully terminated.\nz\n";
  for (const bool skip_empty : {false, true}) {
    std::vector<std::string> asked;
    zXML doc(true, "Snapshot");
    in_zone("TST-3", [&] {
      record_ipkg(
          live_host(), doc.top(), list,
          [&](const std::string& cmdline) {
            asked.push_back(cmdline);
            return std::string();
          },
          skip_empty);
      sort_software(doc.top());
      return 0;
    });
    // No version, architecture or time: empty texts and the epoch.
    const std::string date = "version=\narchitecture=\ninst-date=19700101030000.000000+180\n";
    if (skip_empty) {
      EXPECT_EQ(asked,
                (std::vector<std::string>{"ipkg info 'evil;touch${IFS}x'", "ipkg info 'a'"}));
      continue;
    }
    EXPECT_EQ(asked, (std::vector<std::string>{"ipkg info 'evil;touch${IFS}x'", "ipkg info ",
                                               "ipkg info ", "ipkg info 'a'"}));
    EXPECT_EQ(tree_text(doc.top()->find_child("Software")),
              "+Software=\n*Soft: =\n" + date + "*Soft:a =a\n" + date +
                  "*Soft:evil;touch${IFS}x =evil;touch${IFS}x\n" + date + "-\n");
  }
}
