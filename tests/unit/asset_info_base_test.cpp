// Asset summary: Samba configuration values and the identity, user and
// domain stages over fake host tools.
#include <gtest/gtest.h>

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
    return spine_test::text_of(doc.top());
  }

  spine_test::TempDir tmp;
};

TEST_F(AssetBase, NamesFromSambaWithDhcp) {
  std::string printed;
  EXPECT_EQ(
      build({"uname", "ps"}, "# netbios name = OLD\n netbios name = FS\n workgroup = LABDOM\n",
            true, &printed),
      "+AssetInfo=\nhostname=FS\nip-address=192.168.1.10\nstatic-ip=0\n"
      "int-name=esx-01\nalias=esx-01\ndescription=\ncomment=\ninv-number=\n"
      "login=admin:1\nuser-name=operator\nmac-address=00-0C-29-AB-CD-EF\n"
      "*control=\ndomain=LABDOM\n-\n");
  EXPECT_EQ(printed, "1.\n2.\n3.\n6.\n");
}

TEST_F(AssetBase, NamesFromUnameWithoutSamba) {
  std::string printed;
  // A DHCP client alone does not make the address dynamic.
  EXPECT_EQ(build({"uname", "ps"}, "", false, &printed),
            "+AssetInfo=\nhostname=esx-01\nip-address=192.168.1.10\nstatic-ip=1\n"
            "int-name=esx-01\nalias=esx-01\ndescription=\ncomment=\ninv-number=\n"
            "login=admin:1\nuser-name=operator\nmac-address=00-0C-29-AB-CD-EF\n"
            "*control=\ndomain=\n-\n");
  EXPECT_EQ(printed, "") << "nothing is printed without the log flag";
  // Samba names the host but no DHCP client runs: static.
  EXPECT_NE(build({"uname"}, "netbios name = FS\n", false, &printed)
                .find("hostname=FS\nip-address=192.168.1.10\nstatic-ip=1\n"),
            std::string::npos);
  // No uname: the kernel's names are empty, and so is the host name.
  EXPECT_NE(build({"ps"}, "", false, &printed)
                .find("hostname=\nip-address=192.168.1.10\nstatic-ip=1\nint-name=\nalias=\n"),
            std::string::npos);
}

}  // namespace
