// OS collector: version parsing per major version, the "OS" node, the
// uptime text, and the collector over fake host tools.
#include "collectors/system/os.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "app/scanner.h"
#include "collectors/collectors.h"
#include "spine_test_support.h"
#include "zxml/zXML.h"

namespace {

using spine_test::fixture;
using spine_test::text_of;

TEST(OsVersion, NumbersFromVmwareV) {
  struct Case {
    std::string text;
    int major;
    int minor;
  };
  const Case cases[] = {
      {fixture("esxi-samples/vmware_-v.esxi55.txt"), 5, 5},
      {fixture("esxi-samples/vmware_-v.esxi65.from-comment.txt"), 6, 5},
      {fixture("esxi-samples/vmware_-v.esxi40.from-fullName.txt"), 4, 0},
      {fixture("esxi-samples/vmware_-vl.esxi70u3.txt"), 7, 0},
      {"VMware ESX 4.1.0 build-260247\n", 4, 1},
      {"VMware ESXi   6.7.0 build-8169922\n", 6, 7},  // runs of blanks
      {"VMware ESXi 6\n", 6, 0},                      // no minor part
      {"VMware ESXi x.y.z build-1\n", 0, 0},          // not numbers
      {"VMware ESXi 99999999999.1 build-1\n", 2147483647, 1},
      {"", -1, -1},
      {"sh: vmware: not found\n", -1, -1},
      {"VMware ESXi", -1, -1},  // no version after the product
      {"VMware ESXi   ", -1, -1},
      {"VMware Workstation 12.0.0\n", -1, -1},
  };
  for (const Case& c : cases) {
    int major = 0;
    int minor = 0;
    parse_vmware_version(c.text, &major, &minor);
    EXPECT_EQ(major, c.major) << c.text;
    EXPECT_EQ(minor, c.minor) << c.text;
  }
}

TEST(OsParse, EsxiFiveAndSixTakeTheEsxcliTexts) {
  OsInfo info;
  parse_os(fixture("esxi-samples/vmware_-v.esxi55.txt"),
           fixture("esxi-samples/esxcli_system_version_get.esxi55.txt"), info);
  EXPECT_EQ(info.name, "VMware ESXi 5.5.0");
  EXPECT_EQ(info.descr, "Releasebuild-3248547");
  EXPECT_EQ(info.service_pack, "3");
  EXPECT_EQ(info.codename, "");

  parse_os("VMware ESXi 6.7.0 build-8169922\n",
           fixture("esxi-samples/esxcli_system_version_get.esxi67.txt"), info);
  EXPECT_EQ(info.esx_major, 6);
  EXPECT_EQ(info.esx_minor, 7);
  EXPECT_EQ(info.name, "VMware ESXi 6.7.0");
  EXPECT_EQ(info.descr, "Releasebuild-8169922");
  EXPECT_EQ(info.service_pack, "0");

  // Without a "Version: " line the line from offset 8 of the output is
  // appended to the product.
  parse_os("VMware ESXi 6.0.0 build-1\n", "   Product: VMware ESXi\n   Build: Releasebuild-1\n",
           info);
  EXPECT_EQ(info.name, "VMware ESXi ct: VMware ESXi");
  EXPECT_EQ(info.descr, "Releasebuild-1");
  EXPECT_EQ(info.service_pack, "");

  // Without "Product: " nothing is appended; the other labels still count.
  parse_os("VMware ESXi 5.1.0 build-1\n", "Version: 5.1.0\nUpdate: 2", info);
  EXPECT_EQ(info.name, "");
  EXPECT_EQ(info.descr, "");
  EXPECT_EQ(info.service_pack, "2");

  parse_os("VMware ESXi 6.5.0 build-1\n", "", info);
  EXPECT_EQ(info.name, "");
}

TEST(OsParse, EsxFourAndOtherMajors) {
  OsInfo info;
  parse_os("VMware ESX 4.1.0 build-260247\n", "Product: ignored\n", info);
  EXPECT_EQ(info.esx_major, 4);
  EXPECT_EQ(info.name, "VMware ESX 4.1.0");
  EXPECT_EQ(info.descr, "build-260247\n");

  parse_os("VMware ESX 4.0.0", "", info);  // nothing after the version
  EXPECT_EQ(info.name, "VMware ESX 4.0.0");
  EXPECT_EQ(info.descr, "");

  // Majors other than 4, 5 and 6 leave every text empty.
  parse_os(fixture("esxi-samples/vmware_-vl.esxi70u3.txt"),
           fixture("esxi-samples/esxcli_system_version_get.esxi90.txt"), info);
  EXPECT_EQ(info.esx_major, 7);
  EXPECT_EQ(info.name + info.descr + info.service_pack, "");
  parse_os("", fixture("esxi-samples/esxcli_system_version_get.esxi67.txt"), info);
  EXPECT_EQ(info.esx_major, -1);
  EXPECT_EQ(info.name, "");
}

TEST(OsRecord, NodeAndAttributeOrder) {
  OsInfo info;
  info.name = "VMware ESXi 5.5.0";
  info.descr = "Releasebuild-3248547";
  info.service_pack = "3";
  ztag top("Snapshot");
  record_os(info, &top, "64-bit", "00000000000131.000000:000");
  EXPECT_EQ(text_of(&top),
            "+Snapshot=\n+OS=\n*os:1=VMware ESXi 5.5.0\n~kind=esx\nname=VMware ESXi 5.5.0\n"
            "service-pack=3\ndescr=Releasebuild-3248547\narchitecture=64-bit\n"
            "uptime=00000000000131.000000:000\n-\n-\n");

  // Update 0 is no service pack; an empty name is still written; no
  // architecture without uname.
  info.name = "";
  info.descr = "";
  info.service_pack = "0";
  ztag bare("Snapshot");
  record_os(info, &bare, nullptr, "00000000000045.000000:000");
  EXPECT_EQ(text_of(&bare),
            "+Snapshot=\n+OS=\n*os:1=\n~kind=esx\nname=\nuptime=00000000000045.000000:000\n-\n-\n");
}

TEST(OsUptime, CimIntervalWithRoundedMinutes) {
  struct Case {
    long long seconds;
    bool ok;
    const char* text;
  };
  const Case cases[] = {
      {0, true, "00000000000000.000000:000"},
      {45, true, "00000000000045.000000:000"},
      {60, true, "00000000000100.000000:000"},  // 30 added only past 60
      {61, true, "00000000000131.000000:000"},
      {3569, true, "00000000005959.000000:000"},
      {3570, true, "00000000010000.000000:000"},
      {86400 * 3 + 3600 * 5 + 60 * 7 + 2, true, "00000003050732.000000:000"},
      {86400LL * 123456789, true, "123456789000030.000000:000"},
      {123, false, "00000000000000.000000:000"},  // clock not readable
      {-5, true, "00000000000000.000000:000"},
      {9223372036854775807LL, true, "106751991167300153007.000000:000"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(format_uptime_seconds(c.seconds, c.ok), c.text) << c.seconds;
  }
  char* now = format_uptime();
  EXPECT_EQ(std::string(now).size(), 25u);
  delete[] now;
}

// The collector over fake "vmware", "esxcli" and "uname" tools.
class OsCollector : public testing::Test {
 protected:
  void SetUp() override {
    mkdir((tmp / "bin").c_str(), 0755);
    mkdir((tmp / "tools").c_str(), 0755);
    spine_test::write_script(tmp / "bin/vmware",
                             "[ \"$1\" = -v ] && echo 'VMware ESXi 6.7.0 build-8169922'\n");
    spine_test::write_script(tmp / "bin/esxcli",
                             "[ \"$*\" = 'system version get' ] && cat '" +
                                 std::string(QS_FIXTURES) +
                                 "/esxi-samples/esxcli_system_version_get.esxi67.txt'\n");
    spine_test::write_script(tmp / "tools/uname", "[ \"$1\" = -m ] && echo i686\n");
  }
  spine_test::TempDir tmp;
};

TEST_F(OsCollector, NormalAndRawModes) {
  spine_test::ScopedPath path(tmp / "bin");
  CScaner scanner(new PKGDetector({tmp / "tools"}, {"uname"}, false), new PortsDictionary());
  zXML doc(true, "Snapshot");
  int major = 0;
  int minor = 0;
  EXPECT_EQ(collect_os(&scanner, &doc, &major, &minor, false), "");
  EXPECT_EQ(major, 6);
  EXPECT_EQ(minor, 7);
  const std::string text = text_of(doc.top());
  const std::string head =
      "+Snapshot=\n+OS=\n*os:1=VMware ESXi 6.7.0\n~kind=esx\nname=VMware ESXi 6.7.0\n"
      "descr=Releasebuild-8169922\narchitecture=32-bit\nuptime=";
  EXPECT_EQ(text.substr(0, head.size()), head);

  zXML raw_doc(true, "Snapshot");
  major = minor = 0;
  EXPECT_EQ(collect_os(&scanner, &raw_doc, &major, &minor, true), "OS Name: VMware ESXi 6.7.0\n");
  EXPECT_EQ(major, 6);
  EXPECT_EQ(text_of(raw_doc.top()), "*Snapshot=\n");  // raw mode writes nothing
  EXPECT_EQ(collect_os(&scanner, nullptr, &major, &minor, true), "OS Name: VMware ESXi 6.7.0\n");
}

TEST_F(OsCollector, MissingUnameLeavesAWarningAndNoArchitecture) {
  spine_test::ScopedPath path(tmp / "bin");
  CScaner scanner(new PKGDetector({tmp / "none"}, {"uname"}, false), new PortsDictionary());
  zXML doc(true, "Snapshot");
  int major = 0;
  int minor = 0;
  collect_os(&scanner, &doc, &major, &minor, false);
  const std::string text = text_of(doc.top());
  const std::string head =
      "+Snapshot=\n+OS=\nWarning:1=\n~type=package_not_found\n~pkg_name=uname\n~more=os\n"
      "*os:1=VMware ESXi 6.7.0\n~kind=esx\nname=VMware ESXi 6.7.0\n"
      "descr=Releasebuild-8169922\nuptime=";
  EXPECT_EQ(text.substr(0, head.size()), head);
  // Raw mode without a document: no warning, no crash.
  EXPECT_EQ(collect_os(&scanner, nullptr, &major, &minor, true), "OS Name: VMware ESXi 6.7.0\n");
}

}  // namespace
