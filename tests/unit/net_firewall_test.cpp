// Firewall rulesets from `esxcli network firewall ruleset list` text.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "collectors/network/network.h"
#include "net_test_util.h"
#include "zxml/zXML.h"

namespace {

using net_test::read_fixture;
using net_test::subtree_text;

ztag* firewall_of(zXML& doc) {
  ztag* security = doc.top()->find_child("Security");
  return security == nullptr ? nullptr : security->find_child("Firewall");
}

TEST(NetFirewall, OnlyExactTrueIsEnabled) {
  zXML doc(true, "Snapshot");
  record_firewall(
      "Name                      Enabled\n"
      "------------------------  -------\n"
      "sshServer                    true\n"
      "sshClient                   false\n"
      "trailing                    true \n"
      "capital                     True\n"
      "notRead                     true",
      doc.top());
  EXPECT_EQ(subtree_text(doc.top()->find_child("Security")),
            "+Security=\n"
            "+Firewall=\n"
            "~kind=esx_fw\n"
            "*rule:0=sshServer\n"
            "enabled=1\n"
            "*rule:1=sshClient\n"
            "enabled=0\n"
            "*rule:2=trailing\n"
            "enabled=0\n"
            "*rule:3=capital\n"
            "enabled=0\n"
            "-\n"
            "-\n");
}

TEST(NetFirewall, WithoutDashesTheHeaderIsARuleset) {
  zXML doc(true, "Snapshot");
  record_firewall("Name  Enabled\nsshServer  true\n", doc.top());
  EXPECT_EQ(subtree_text(firewall_of(doc)),
            "+Firewall=\n"
            "~kind=esx_fw\n"
            "*rule:0=Name\n"
            "enabled=0\n"
            "*rule:1=sshServer\n"
            "enabled=1\n"
            "-\n");
}

TEST(NetFirewall, CapturedListings) {
  zXML doc(true, "Snapshot");
  const std::string full =
      read_fixture("esxi-samples/esxcli_network_firewall_ruleset_list.esxi65.txt");
  ASSERT_FALSE(full.empty());
  record_firewall(full, doc.top());
  ztag* firewall = firewall_of(doc);
  ASSERT_NE(firewall, nullptr);
  ASSERT_EQ(firewall->children().size(), 43u);
  EXPECT_EQ(subtree_text(firewall->child_at(0)), "*rule:0=sshServer\nenabled=1\n");
  EXPECT_EQ(subtree_text(firewall->child_at(1)), "*rule:1=sshClient\nenabled=0\n");
  EXPECT_EQ(subtree_text(firewall->child_at(42)), "*rule:42=vsanhealth-multicasttest\nenabled=0\n");

  // A listing cut down to its enabled rows has no header at all.
  zXML doc2(true, "Snapshot");
  record_firewall(
      read_fixture("esxi-samples/esxcli_network_firewall_ruleset_list.esxi55.awk-enabled-only.txt"),
      doc2.top());
  ASSERT_NE(firewall_of(doc2), nullptr);
  ASSERT_EQ(firewall_of(doc2)->children().size(), 25u);
  EXPECT_EQ(subtree_text(firewall_of(doc2)->child_at(0)), "*rule:0=sshServer\nenabled=1\n");
}

TEST(NetFirewall, EmptyOutputAndSecondRun) {
  zXML doc(true, "Snapshot");
  record_firewall("", doc.top());
  EXPECT_EQ(subtree_text(firewall_of(doc)), "*Firewall=\n~kind=esx_fw\n");

  const std::string listing = "Name Enabled\n---- -------\na true\nb false\n";
  record_firewall(listing, doc.top());
  record_firewall(listing, doc.top());
  EXPECT_EQ(subtree_text(firewall_of(doc)),
            "+Firewall=\n"
            "~kind=esx_fw\n"
            "~kind=esx_fw\n"
            "~kind=esx_fw\n"
            "*rule:0=a\n"
            "enabled=1\n"
            "*rule:1=b\n"
            "enabled=0\n"
            "-\n");
}

TEST(NetFirewall, LineWithoutBlankThrows) {
  zXML doc(true, "Snapshot");
  EXPECT_THROW(record_firewall("Name Enabled\n---- -------\nlonely\n", doc.top()),
               std::out_of_range);
  // A name followed by blanks only is simply not enabled.
  zXML doc2(true, "Snapshot");
  record_firewall("---\nname   \n", doc2.top());
  EXPECT_EQ(subtree_text(firewall_of(doc2)),
            "+Firewall=\n~kind=esx_fw\n*rule:0=name\nenabled=0\n-\n");
}

}  // namespace
