// Installed software: VIB and ipkg parsing, dates, and the package order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "collectors/collectors.h"
#include "collectors/system/software.h"
#include "host/command.h"
#include "sys_tree_text.h"
#include "zxml/zXML.h"

namespace {

// Sets the process time zone for one test and restores it afterwards.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* tz) {
    const char* old = std::getenv("TZ");
    had_old_ = old != nullptr;
    if (had_old_) old_ = old;
    setenv("TZ", tz, 1);
    tzset();
  }
  ~ScopedTimeZone() {
    if (had_old_) {
      setenv("TZ", old_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  bool had_old_ = false;
  std::string old_;
};

std::string cim(long long seconds) {
  char* text = format_cim_datetime(seconds);
  std::string result = text;
  delete[] text;
  return result;
}

const char kVibHeader[] =
    "Name                           Version                               Vendor   Acceptance "
    "Level    Install Date\n"
    "-----------------------------  ------------------------------------  -------  "
    "------------------  ------------\n";

}  // namespace

TEST(SysSoftware, VibDateIgnoresTheHostTimeZone) {
  ScopedTimeZone tz("TST-3");
  EXPECT_EQ(vib_install_date("2014-01-21"), "20140121000000.000000+000");
  // A missing "-" restarts the search at the beginning of the text.
  EXPECT_EQ(vib_install_date("2003"), "200320032003000000.000000+000");
  EXPECT_EQ(vib_install_date("2014-01"), "2014012014-01000000.000000+000");
  EXPECT_EQ(vib_install_date(""), "000000.000000+000");
}

TEST(SysSoftware, CimDateTimeUsesLocalTimeAndUnpaddedOffset) {
  const long long t = 1390300200;  // 2014-01-21 10:30:00 UTC
  {
    ScopedTimeZone tz("TST-3");
    EXPECT_EQ(cim(t), "20140121133000.000000+180");
  }
  {
    ScopedTimeZone tz("TST+5");
    EXPECT_EQ(cim(t), "20140121053000.000000-300");
  }
  {
    ScopedTimeZone tz("UTC0");
    EXPECT_EQ(cim(t), "20140121103000.000000+0");
    EXPECT_EQ(cim(0), "19700101000000.000000+0");
  }
  {
    ScopedTimeZone tz("IST-5:30");
    EXPECT_EQ(cim(t), "20140121160000.000000+330");
  }
}

TEST(SysSoftware, VibListColumnsAndDuplicates) {
  zXML doc(true, "Snapshot");
  std::string text = std::string(kVibHeader) +
                     "net55-r8168                    8.045a-napi                           "
                     "Realtek  CommunitySupported  2019-12-27\n"
                     "ata-libata-92                  3.00.9.2-16vmw.670.0.0.8169922        VMW   "
                     "   VMwareCertified     2019-12-27\n"
                     // The same package and version again: one child, rewritten.
                     "net55-r8168                    8.045a-napi                           "
                     "Other    CommunitySupported  2020-01-02\n"
                     // Too few columns: empty texts, the child is still written.
                     "lonely\n"
                     // Without a line end the last line is not read.
                     "esx-base                       6.7.0-3.73.14320388                   VMW   "
                     "   VMwareCertified     2019-12-27";
  record_vib_list(doc.top(), text);
  EXPECT_EQ(tree_text(doc.top()->find_child("Software")),
            "+Software=\n"
            "*Soft:net55-r8168 8.045a-napi=net55-r8168\n"
            "version=8.045a-napi\n"
            "publisher=Other\n"
            "inst-date=20200102000000.000000+000\n"
            "*Soft:ata-libata-92 3.00.9.2-16vmw.670.0.0.8169922=ata-libata-92\n"
            "version=3.00.9.2-16vmw.670.0.0.8169922\n"
            "publisher=VMW\n"
            "inst-date=20191227000000.000000+000\n"
            "*Soft:lonely =lonely\n"
            "version=\n"
            "publisher=\n"
            "inst-date=000000.000000+000\n"
            "-\n");
}

TEST(SysSoftware, VibListWithoutTableWritesNothing) {
  for (const std::string& text :
       {std::string(), std::string("Name Version\nnet55 1.0 VMW x 2019-12-27\n"),
        std::string("Name\n-----")}) {
    zXML doc(true, "Snapshot");
    record_vib_list(doc.top(), text);
    EXPECT_EQ(doc.top()->find_child("Software"), nullptr) << text;
  }
}

TEST(SysSoftware, OneOrTwoPackagesKeepTheirOrderThreeAreSorted) {
  auto names_after_sort = [](const std::vector<std::string>& packages) {
    zXML doc(true, "Snapshot");
    std::string text = kVibHeader;
    for (const std::string& p : packages) text += p + "  1.0  VMW  VMwareCertified  2019-12-27\n";
    record_vib_list(doc.top(), text);
    sort_software(doc.top());
    std::vector<std::string> names;
    for (const auto& child : doc.top()->find_child("Software")->children()) {
      names.push_back(child->value()->as_text());
    }
    return names;
  };
  EXPECT_EQ(names_after_sort({"zeta", "alpha"}), (std::vector<std::string>{"zeta", "alpha"}));
  EXPECT_EQ(names_after_sort({"zeta", "alpha", "mu"}),
            (std::vector<std::string>{"alpha", "mu", "zeta"}));
  // Byte order: upper case before lower case.
  EXPECT_EQ(names_after_sort({"b", "a", "B", "a-x"}),
            (std::vector<std::string>{"B", "a", "a-x", "b"}));

  zXML empty(true, "Snapshot");
  sort_software(empty.top());  // no "Software" node: nothing to do
  EXPECT_EQ(empty.top()->find_child("Software"), nullptr);
}

TEST(SysSoftware, IpkgPackagesFromListAndInfo) {
  ScopedTimeZone tz("TST-3");
  const std::string list =
      "vmware-hostd - 4.1.0-260247 - VMware host daemon\n"
      "busybox - 1.9.1-2 - Swiss army knife\n"
      "\n"
      "Successfully terminated.\n"
      "after-the-end - 1 - never asked\n";
  std::map<std::string, std::string> outputs = {
      {"ipkg info " + shell_quote("vmware-hostd"),
       "Package: vmware-hostd\nVersion: 4.1.0-260247\nArchitecture: i386\n"
       "Status: install ok installed\nInstalled-Time: 1390300200\n"},
      {"ipkg info " + shell_quote("busybox"),
       // No architecture and no time: empty text and the epoch.
       "Package: busybox\nVersion: 1.9.1-2\n"},
  };
  std::vector<std::string> asked;
  zXML doc(true, "Snapshot");
  record_ipkg(doc.top(), list, [&](const std::string& cmdline) {
    asked.push_back(cmdline);
    auto it = outputs.find(cmdline);
    return it == outputs.end() ? std::string() : it->second;
  });
  EXPECT_EQ(asked, (std::vector<std::string>{"ipkg info " + shell_quote("vmware-hostd"),
                                             "ipkg info " + shell_quote("busybox")}));
  EXPECT_EQ(tree_text(doc.top()->find_child("Software")),
            "+Software=\n"
            "*Soft:vmware-hostd 4.1.0-260247=vmware-hostd\n"
            "version=4.1.0-260247\n"
            "architecture=i386\n"
            "inst-date=20140121133000.000000+180\n"
            "*Soft:busybox 1.9.1-2=busybox\n"
            "version=1.9.1-2\n"
            "architecture=\n"
            "inst-date=19700101030000.000000+180\n"
            "-\n");
}

TEST(SysSoftware, IpkgNamesAreQuotedForTheShell) {
  std::vector<std::string> asked;
  zXML doc(true, "Snapshot");
  record_ipkg(doc.top(), "evil;touch${IFS}x - 1 - y\n", [&](const std::string& cmdline) {
    asked.push_back(cmdline);
    return std::string();
  });
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(asked[0], "ipkg info " + shell_quote("evil;touch${IFS}x"));
  EXPECT_NE(asked[0], "ipkg info evil;touch${IFS}x");
}
