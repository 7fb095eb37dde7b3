// OS collector: version parsing per major version, the "OS" node, the
// uptime text, and the collector over fake host tools.
#include "collectors/system/os.h"

#include <gtest/gtest.h>

#include "app/scanner.h"
#include "collectors/collectors.h"
#include "spine_test_support.h"
#include "zxml/zXML.h"

namespace {

using spine_test::fixture;
using spine_test::text_of;

TEST(OsVersion, NumbersFromVmwareV) {
  const std::tuple<std::string, int, int> cases[] = {
      {fixture("vmware_-v.esxi55.txt"), 5, 5},
      {fixture("vmware_-v.esxi40.from-fullName.txt"), 4, 0},
      {fixture("vmware_-vl.esxi70u3.txt"), 7, 0},
      {"VMware ESX 4.1.0 build-260247\n", 4, 1},
      {"VMware ESXi   6.7.0 build-8169922\n", 6, 7},  // runs of blanks
      {"VMware ESXi 6\n", 6, 0},                      // no minor part
      {"VMware ESXi x.y.z build-1\n", 0, 0},          // not numbers
      {"VMware ESXi 99999999999.1 build-1\n", 2147483647, 1},
      {"", -1, -1},
      {"VMware ESXi   ", -1, -1},  // no version after the product
      {"VMware Workstation 12.0.0\n", -1, -1},
  };
  for (const auto& c : cases) {
    int major = 0;
    int minor = 0;
    parse_vmware_version(std::get<0>(c), &major, &minor);
    EXPECT_EQ(std::make_pair(major, minor), std::make_pair(std::get<1>(c), std::get<2>(c)))
        << std::get<0>(c);
  }
}

// name | descr | service pack, for brevity.
std::string parsed(const std::string& vmware_v, const std::string& esxcli) {
  OsInfo info;
  parse_os(vmware_v, esxcli, info);
  return info.name + "|" + info.descr + "|" + info.service_pack;
}

TEST(OsParse, PerMajorVersion) {
  const std::string esxcli67 = fixture("esxcli_system_version_get.esxi67.txt");
  EXPECT_EQ(
      parsed(fixture("vmware_-v.esxi55.txt"), fixture("esxcli_system_version_get.esxi55.txt")),
      "VMware ESXi 5.5.0|Releasebuild-3248547|3");
  EXPECT_EQ(parsed("VMware ESXi 6.7.0 build-8169922\n", esxcli67),
            "VMware ESXi 6.7.0|Releasebuild-8169922|0");
  // Without a "Version: " line, the line from offset 8 of the output is
  // appended; without "Product: " nothing is.
  EXPECT_EQ(parsed("VMware ESXi 6.0.0 build-1\n", "   Product: VMware ESXi\n   Build: B1\n"),
            "VMware ESXi ct: VMware ESXi|B1|");
  EXPECT_EQ(parsed("VMware ESXi 5.1.0 build-1\n", "Version: 5.1.0\nUpdate: 2"), "||2");
  // ESX 4: name and build from "vmware -v" itself.
  EXPECT_EQ(parsed("VMware ESX 4.1.0 build-260247\n", "Product: ignored\n"),
            "VMware ESX 4.1.0|build-260247\n|");
  EXPECT_EQ(parsed("VMware ESX 4.0.0", ""), "VMware ESX 4.0.0||");
  // Other majors leave every text empty.
  EXPECT_EQ(parsed(fixture("vmware_-vl.esxi70u3.txt"), esxcli67), "||");
  EXPECT_EQ(parsed("", esxcli67), "||");
}

TEST(OsUptime, CimIntervalWithRoundedMinutes) {
  const std::pair<long long, const char*> cases[] = {
      {0, "00000000000000"},
      {45, "00000000000045"},
      {60, "00000000000100"},  // 30 is added only past 60
      {61, "00000000000131"},
      {3570, "00000000010000"},
      {86400 * 3 + 3600 * 5 + 60 * 7 + 2, "00000003050732"},
      {86400LL * 123456789, "123456789000030"},
      {-5, "00000000000000"},
      {9223372036854775807LL, "106751991167300153007"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(format_uptime_seconds(c.first, true), std::string(c.second) + ".000000:000");
  }
  EXPECT_EQ(format_uptime_seconds(123, false), "00000000000000.000000:000");  // no clock
}

// The collector over fake "vmware", "esxcli" and "uname" tools: attribute
// order, no "service-pack" for update 0, the warning without uname.
TEST(OsCollector, NormalRawAndWithoutUname) {
  spine_test::TempDir tmp;
  mkdir((tmp / "bin").c_str(), 0755);
  mkdir((tmp / "tools").c_str(), 0755);
  spine_test::write_script(tmp / "bin/vmware", "[ \"$1\" = -v ] && echo 'VMware ESXi 6.7.0 b-1'\n");
  spine_test::write_script(tmp / "bin/esxcli",
                           "[ \"$*\" = 'system version get' ] && cat '" + std::string(QS_FIXTURES) +
                               "/esxi-samples/esxcli_system_version_get.esxi67.txt'\n");
  spine_test::write_script(tmp / "tools/uname", "[ \"$1\" = -m ] && echo i686\n");
  spine_test::ScopedPath path(tmp / "bin");
  const std::string os1 =
      "*os:1=VMware ESXi 6.7.0\n~kind=esx\nname=VMware ESXi 6.7.0\ndescr=Releasebuild-8169922\n";
  const std::string warning = "Warning:1=\n~type=package_not_found\n~pkg_name=uname\n~more=os\n";
  for (bool has_uname : {true, false}) {
    CScaner scanner(new PKGDetector({tmp / (has_uname ? "tools" : "none")}, {"uname"}, false),
                    new PortsDictionary());
    zXML doc(true, "Snapshot");
    int major = 0;
    int minor = 0;
    EXPECT_EQ(collect_os(&scanner, &doc, &major, &minor, false), "");
    EXPECT_EQ(std::make_pair(major, minor), std::make_pair(6, 7));
    const std::string head = "+Snapshot=\n+OS=\n" + (has_uname ? "" : warning) + os1 +
                             (has_uname ? "architecture=32-bit\n" : "") + "uptime=";
    EXPECT_EQ(text_of(doc.top()).substr(0, head.size()), head);
    // Raw mode writes nothing, also with no document at all.
    zXML raw_doc(true, "Snapshot");
    EXPECT_EQ(collect_os(&scanner, &raw_doc, &major, &minor, true), "OS Name: VMware ESXi 6.7.0\n");
    EXPECT_EQ(text_of(raw_doc.top()), "*Snapshot=\n");
    EXPECT_EQ(collect_os(&scanner, nullptr, &major, &minor, true), "OS Name: VMware ESXi 6.7.0\n");
  }
}

}  // namespace
