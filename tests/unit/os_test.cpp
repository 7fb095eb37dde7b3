// OS collector: version numbers and texts per major version, and the
// uptime text. (The collector itself runs in the end-to-end scans.)
#include "collectors/system/os.h"

#include <gtest/gtest.h>

#include "test_support.h"

namespace {

using test_support::fixture;

TEST(OsParse, VersionAndTextsPerMajorVersion) {
  const std::string esxcli67 = fixture("esxcli_system_version_get.esxi67.txt");
  // vmware -v, esxcli system version get: major.minor|name|descr|update.
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {fixture("vmware_-v.esxi55.txt"), fixture("esxcli_system_version_get.esxi55.txt"),
       "5.5|VMware ESXi 5.5.0|Releasebuild-3248547|3"},
      {"VMware ESXi   6.7.0 build-8169922\n", esxcli67,  // runs of blanks
       "6.7|VMware ESXi 6.7.0|Releasebuild-8169922|0"},
      // Without a "Version: " line the line from offset 8 of the output is
      // appended; without "Product: " nothing is. No minor part reads as 0.
      {"VMware ESXi 6 build-1\n", "   Product: VMware ESXi\n   Build: B1\n",
       "6.0|VMware ESXi ct: VMware ESXi|B1|"},
      {"VMware ESXi 5.1.0 build-1\n", "Version: 5.1.0\nUpdate: 2", "5.1|||2"},
      // ESX 4: name and build from "vmware -v" itself, line end included.
      {"VMware ESX 4.1.0 build-260247\n", "Product: x\n", "4.1|VMware ESX 4.1.0|build-260247\n|"},
      {"VMware ESX 4.0.0", "", "4.0|VMware ESX 4.0.0||"},
      // Other majors and unreadable versions leave every text empty.
      {fixture("vmware_-vl.esxi70u3.txt"), esxcli67, "7.0|||"},
      {"VMware ESXi 99999999999.1 build-1\n", esxcli67, "2147483647.1|||"},  // clamped
      {"", esxcli67, "-1.-1|||"},
      {"VMware ESXi   ", esxcli67, "-1.-1|||"}};  // no version after the product
  for (const auto& [vmware_v, esxcli, expected] : cases) {
    OsInfo info;
    parse_os(vmware_v, esxcli, info);
    EXPECT_EQ(std::to_string(info.esx_major) + "." + std::to_string(info.esx_minor) + "|" +
                  info.name + "|" + info.descr + "|" + info.service_pack,
              expected);
  }
}

TEST(OsUptime, CimIntervalWithRoundedMinutes) {
  // 30 s are added only past the first minute (60 -> 1 min, 61 -> 1 min
  // 31 s), without overflow; a negative time or no clock reads as zero.
  const std::pair<long long, const char*> cases[] = {
      {0, "00000000000000"},      {45, "00000000000045"},
      {60, "00000000000100"},     {61, "00000000000131"},
      {3570, "00000000010000"},   {-5, "00000000000000"},
      {277622, "00000003050732"}, {9223372036854775807LL, "106751991167300153007"}};
  for (const auto& [seconds, text] : cases)
    EXPECT_EQ(format_uptime_seconds(seconds, true), std::string(text) + ".000000:000") << seconds;
  EXPECT_EQ(format_uptime_seconds(123, false), "00000000000000.000000:000");
}

}  // namespace
