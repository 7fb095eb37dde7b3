// Asset summary: Samba configuration values and the identity, user and
// domain stages over fake host tools.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "app/scanner.h"
#include "spine_test_support.h"
#include "summary/asset_info.h"
#include "zxml/zXML.h"

namespace {

TEST(AssetSmbConf, FirstUncommentedLine) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "-"},
      {"[global]\n   netbios name = ESX01\n   workgroup = LAB\n", "ESX01"},
      {"netbios name =\t \tESX 01 ", "ESX 01 "},  // leading blanks only; no final newline
      {";netbios name = A\n  # netbios name = B\nnetbios name = C\n", "C"},
      {"\t; netbios name = OLD\n", "-"},
      {"netbios name = \n", ""},
      {"netbios name=ESX01\nNetBIOS name = X\n", "-"},  // the key is exact
      {"x netbios name = A # b\n", "A # b"},            // comments only at line start
  };
  for (const auto& c : cases) {
    bool found = false;
    const std::string value = smb_conf_value(c.first, "netbios name =", &found);
    EXPECT_EQ(found ? value : "-", c.second) << c.first;
  }
}

// What the later stages write for an empty snapshot on a host without
// smbiosDump and iptables: before "mac-address", and after it.
const char kClassification[] =
    "asset-type=natESX\nvirtual-type=nvtPhysical\nscan-type=nstSSH\nscan-subtype=sstService\n"
    "auto-icon-type=nitESXServer\nicon-type=nitESXServer\nfirst-scan=<time>\n"
    "last-scan=<time>\nsnapshot-list=<time>\nsnapshot-types=esx:1\n";
const char kEmptySnapshotStages[] =
    "uuid=\nserial-number=\nasset-tag=\nvm-kind=vmware\ndomain-role=\nreg-user=\nreg-org=\n"
    "os-name=\nos-sp=\nos-ver=\nos-manuf=VMware, Inc.\nos-arch=\ncpu-count=1\ncore-count=\n"
    "cpu-count-virtual=0\ncpu-speed=\ncpu-model=\ncpu-manuf=\nsystem-model=\nsystem-manuf=\n"
    "chassis-manuf=\nmb-manuf=\nphys-memory=\nvideo-ram=\nvideo-res=\nmonitor-count=\n"
    "monitor-diag=\nhdd-capacity=\nused%=0\nfree%=0\nfw-status=1\n";

class AssetBase : public testing::Test {
 protected:
  // Builds the summary on a host whose tools are `tools` (of uname, ps).
  std::string build(const std::vector<std::string>& tools, const std::string& smb_conf, bool log,
                    std::string* printed) {
    mkdir((tmp / "tools").c_str(), 0755);
    mkdir((tmp / "bin").c_str(), 0755);
    spine_test::write_script(tmp / "tools/uname", "[ \"$1\" = -n ] && echo esx-01.lab.local\n");
    spine_test::write_script(tmp / "tools/ps", "[ \"$1\" = -A ] && echo ' 9 ? 00:00 dhclient'\n");
    spine_test::write_script(tmp / "bin/whoami", "echo operator\necho second line\n");
    spine_test::ScopedPath path(tmp / "bin");
    CScaner scanner(new PKGDetector({tmp / "tools"}, tools, true), new PortsDictionary());
    scanner.log = log;
    zXML snapshot(true, "Snapshot");
    zXML doc(true, "AssetInfo");
    AssetBuild b;
    b.ctx = &scanner.context();
    b.snapshot = &snapshot;
    b.ip = "192.168.1.10";
    b.mac = "00-0C-29-AB-CD-EF";
    b.login = "admin:1";
    b.smb_conf = smb_conf;
    b.asset = doc.top();
    testing::internal::CaptureStdout();
    build_asset_info(b);
    *printed = testing::internal::GetCapturedStdout();
    // The scan time is the clock's: checked for its form, then replaced.
    static const std::regex stamp(
        "(first-scan|last-scan|snapshot-list)=\\d{14}\\.000000[+-]\\d+\n");
    return std::regex_replace(spine_test::text_of(doc.top()), stamp, "$1=<time>\n");
  }

  spine_test::TempDir tmp;
};

TEST_F(AssetBase, NamesFromSambaWithDhcp) {
  std::string printed;
  EXPECT_EQ(
      build({"uname", "ps"}, "# netbios name = OLD\n netbios name = FS\n workgroup = LABDOM\n",
            true, &printed),
      std::string("+AssetInfo=\nhostname=FS\nip-address=192.168.1.10\nstatic-ip=0\n"
                  "int-name=esx-01\nalias=esx-01\ndescription=\ncomment=\ninv-number=\n"
                  "login=admin:1\nuser-name=operator\n") +
          kClassification + "mac-address=00-0C-29-AB-CD-EF\n" + kEmptySnapshotStages +
          "*control=\ndomain=LABDOM\n-\n");
  // The stage markers; those of stage 10's parts have no final dot.
  EXPECT_EQ(printed,
            "1.\n2.\n3.\n4.\n5.\n6.\n7.\n8.\n9.\n9.1.\n9.2.\n9.3.\n10.\n10.1\n10.2\n10.3\n"
            "10.4\n10.5\n11.\n12.\n13.\n14.\n15.\n");
}

TEST_F(AssetBase, NamesFromUnameWithoutSamba) {
  std::string printed;
  // A DHCP client alone does not make the address dynamic.
  EXPECT_EQ(build({"uname", "ps"}, "", false, &printed),
            std::string("+AssetInfo=\nhostname=esx-01\nip-address=192.168.1.10\nstatic-ip=1\n"
                        "int-name=esx-01\nalias=esx-01\ndescription=\ncomment=\ninv-number=\n"
                        "login=admin:1\nuser-name=operator\n") +
                kClassification + "mac-address=00-0C-29-AB-CD-EF\n" + kEmptySnapshotStages +
                "*control=\ndomain=\n-\n");
  EXPECT_EQ(printed, "") << "nothing is printed without the log flag";
  // Samba names the host but no DHCP client runs: static.
  EXPECT_NE(build({"uname"}, "netbios name = FS\n", false, &printed)
                .find("hostname=FS\nip-address=192.168.1.10\nstatic-ip=1\n"),
            std::string::npos);
  // No uname: the kernel names are empty, and the host name is the
  // kernel's, up to its first dot, filled in at the end.
  std::string kernel_name;
  std::getline(std::ifstream("/proc/sys/kernel/hostname"), kernel_name);
  ASSERT_FALSE(kernel_name.empty());
  EXPECT_NE(build({"ps"}, "", false, &printed)
                .find("hostname=" + kernel_name.substr(0, kernel_name.find('.')) +
                      "\nip-address=192.168.1.10\nstatic-ip=1\nint-name=\nalias=\n"),
            std::string::npos);
}

}  // namespace
