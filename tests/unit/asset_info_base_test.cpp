// Asset summary: Samba configuration values and the identity, user and
// domain stages over fake host tools.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <regex>
#include <string>

#include "app/scanner.h"
#include "spine_test_support.h"
#include "summary/asset_info.h"
#include "zxml/zXML.h"

namespace {

using spine_test::text_of;
using spine_test::write_script;

TEST(AssetSmbConf, FirstUncommentedLine) {
  struct Case {
    std::string conf;
    bool found;
    std::string value;
  };
  const Case cases[] = {
      {"", false, ""},
      {"[global]\n   netbios name = ESX01\n   workgroup = LAB\n", true, "ESX01"},
      {"netbios name =ESX01", true, "ESX01"},             // no newline at the end
      {"netbios name =\t \tESX 01 \n", true, "ESX 01 "},  // leading blanks only
      {";netbios name = OLD\n  # netbios name = OLDER\nnetbios name = NEW\n", true, "NEW"},
      {"\t; netbios name = OLD\n", false, ""},
      {"netbios name = \n", true, ""},
      {"netbios name=ESX01\n", false, ""},  // the key includes " ="
      {"NetBIOS name = ESX01\n", false, ""},
      {"x netbios name = A # b\n", true, "A # b"},  // a comment only at line start
  };
  for (const Case& c : cases) {
    bool found = !c.found;
    EXPECT_EQ(smb_conf_value(c.conf, "netbios name =", &found), c.value) << c.conf;
    EXPECT_EQ(found, c.found) << c.conf;
  }
  EXPECT_EQ(first_line("root\nx\n"), "root");
  EXPECT_EQ(first_line("root"), "root");
}

// What the later stages write for an empty snapshot on a host without
// smbiosDump and iptables, between "user-name" and "mac-address" and after
// "mac-address".
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
  void SetUp() override {
    mkdir((tmp / "tools").c_str(), 0755);
    mkdir((tmp / "bin").c_str(), 0755);
    write_script(tmp / "tools/uname", "[ \"$1\" = -n ] && echo esx-01.lab.local\n");
    write_script(tmp / "tools/ps", "[ \"$1\" = -A ] && echo ' 900 ?  00:00:00 dhclient'\n");
    write_script(tmp / "bin/whoami", "echo operator\necho second line\n");
  }

  // Builds the summary; `tools` lists the fake tools the host has.
  std::string build(const std::vector<std::string>& tools, const std::string& smb_conf, bool log,
                    std::string* printed) {
    spine_test::ScopedPath path(tmp / "bin");
    CScaner scanner(new PKGDetector({tmp / "tools"}, tools, true), new PortsDictionary());
    scanner.log = log;
    zXML snapshot(true, "Snapshot");
    zXML doc(true, "AssetInfo");
    AssetBuild b;
    b.scanner = &scanner;
    b.snapshot = &snapshot;
    b.ip = "192.168.1.10";
    b.mac = "00-0C-29-AB-CD-EF";
    b.login = "admin:1";
    b.smb_conf = smb_conf;
    b.asset = doc.top();
    testing::internal::CaptureStdout();
    build_asset_info(b);
    *printed = testing::internal::GetCapturedStdout();
    return mask_scan_time(text_of(doc.top()));
  }

  // The scan time is the clock's: it is checked for its form and replaced.
  static std::string mask_scan_time(const std::string& text) {
    static const std::regex stamp(
        "(first-scan|last-scan|snapshot-list)=\\d{14}\\.000000[+-]\\d+\n");
    return std::regex_replace(text, stamp, "$1=<time>\n");
  }

  spine_test::TempDir tmp;
};

TEST_F(AssetBase, NamesFromSambaWithDhcp) {
  std::string printed;
  const std::string text =
      build({"uname", "ps"},
            "[global]\n# netbios name = OLD\n   netbios name = FILESRV\n   workgroup = LABDOM\n",
            true, &printed);
  EXPECT_EQ(text,
            std::string("+AssetInfo=\nhostname=FILESRV\nip-address=192.168.1.10\nstatic-ip=0\n"
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
  std::string text = build({"uname", "ps"}, "", false, &printed);
  EXPECT_EQ(text, std::string("+AssetInfo=\nhostname=esx-01\nip-address=192.168.1.10\nstatic-ip=1\n"
                              "int-name=esx-01\nalias=esx-01\ndescription=\ncomment=\ninv-number=\n"
                              "login=admin:1\nuser-name=operator\n") +
                      kClassification + "mac-address=00-0C-29-AB-CD-EF\n" + kEmptySnapshotStages +
                      "*control=\ndomain=\n-\n");
  EXPECT_EQ(printed, "") << "nothing is printed without the log flag";

  // Samba names the host but no DHCP client runs (no ps): static.
  text = build({"uname"}, "netbios name = FILESRV\n", false, &printed);
  EXPECT_NE(text.find("hostname=FILESRV\nip-address=192.168.1.10\nstatic-ip=1\n"),
            std::string::npos)
      << text;

  // No uname: the kernel names are empty, and the host name is the
  // kernel's, up to its first dot, filled in at the end.
  std::string kernel_name;
  std::getline(std::ifstream("/proc/sys/kernel/hostname"), kernel_name);
  ASSERT_FALSE(kernel_name.empty());
  text = build({"ps"}, "", false, &printed);
  EXPECT_NE(text.find("hostname=" + kernel_name.substr(0, kernel_name.find('.')) +
                      "\nip-address=192.168.1.10\nstatic-ip=1\nint-name=\nalias=\n"),
            std::string::npos)
      << text;
}

}  // namespace
