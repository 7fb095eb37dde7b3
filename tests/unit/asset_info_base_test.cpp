// Asset summary: the identity, user and domain stages over fake host tools.
#include <gtest/gtest.h>

#include "app/scanner.h"
#include "spine_test_support.h"
#include "summary/asset_info.h"
#include "zxml/zXML.h"

namespace {

// The base stages on a host whose ps shows a DHCP client (the locator's
// check runs it through the shell, from a directory whose name must be
// quoted) and whose whoami prints two lines. The address is dynamic only
// when Samba names the host too: by the first uncommented line with the
// exact key. Stage markers are printed in a log run.
TEST(AssetBase, StagesWithAndWithoutSamba) {
  spine_test::TempDir tmp;
  const std::string tools = tmp / "it's $(x)";
  spine_test::write_script(tools + "/uname", "[ \"$1\" = -n ] && echo esx-01.lab.local\n");
  spine_test::write_script(tools + "/ps", "[ \"$1\" = -A ] && echo ' 9 ? 00:00 dhclient'\n");
  spine_test::write_script(tmp / "bin/whoami", "echo operator\necho second line\n");
  spine_test::ScopedPath path(tmp / "bin");
  const std::tuple<std::string, bool, std::string, std::string> cases[] = {
      {"# netbios name = A\nnetbios name=B\nx netbios name =\t FS # c\n workgroup = LABDOM\n", true,
       "hostname=FS # c\nip-address=192.168.1.10\nstatic-ip=0\n", "LABDOM"},
      {"\t; netbios name = A\nNetBIOS name = B\n", false,
       "hostname=esx-01\nip-address=192.168.1.10\nstatic-ip=1\n", ""}};
  for (const auto& [smb_conf, log, head, domain] : cases) {
    CScaner scanner(new PKGDetector({tools}, {"uname", "ps"}, true), new PortsDictionary());
    scanner.log = log;
    zXML snapshot(true, "Snapshot");
    zXML doc(true, "AssetInfo");
    AssetBuild b;
    b.scanner = &scanner, b.snapshot = &snapshot, b.asset = doc.top(), b.smb_conf = smb_conf;
    b.ip = "192.168.1.10", b.mac = "00-0C-29-AB-CD-EF", b.login = "admin:1";
    testing::internal::CaptureStdout();
    build_asset_info(b);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), log ? "1.\n2.\n3.\n6.\n" : "");
    std::string text(doc.top()->text_length(false) + 1, '\0');
    text.resize(doc.top()->write_text(&text[0], 0, false, false));
    EXPECT_EQ(text, "+AssetInfo=\n" + head +
                        "int-name=esx-01\nalias=esx-01\ndescription=\ncomment=\ninv-number=\n"
                        "login=admin:1\nuser-name=operator\nmac-address=00-0C-29-AB-CD-EF\n"
                        "*control=\ndomain=" +
                        domain + "\n-\n");
  }
}

}  // namespace
