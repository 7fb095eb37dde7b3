// NIC descriptions, DNS servers and firewall rulesets from captured text.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "collectors/network/network.h"
#include "zxml/zXML.h"

namespace {

std::string fixture(const std::string& name) {
  std::ifstream in(std::string(QS_FIXTURES) + "/esxi-samples/" + name, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// The text form of the top element's child `name` and everything below it.
std::string branch_text(const zXML& doc, const char* name) {
  const ztag* node = doc.top()->find_child(name);
  if (node == nullptr) return "<none>";
  std::vector<char> buffer(node->text_length(false) + 1);
  return std::string(buffer.data(), node->write_text(buffer.data(), 0, false, false));
}

TEST(NetNicDescription, ColumnSevenMatchKeepsTheMtu) {
  const std::string nics = fixture("esxcfg-nics_-l.esxi55.txt");
  const std::string esxcli55 = fixture("esxcli_network_nic_list.esxi55.txt");
  const std::string esxcli67 = fixture("esxcli_network_nic_list.esxi67.txt");
  const std::string mac = "00:11:22:33:44:55";
  struct {
    const char* what;
    std::string listing;
    int major;
    std::string mac;
    const char* expected;
  } cases[] = {
      {"esxcfg-nics", nics, 4, "a0:36:9f:3e:b4:62",
       "1500   Intel Corporation I350 Gigabit Network Connection"},
      {"esxcli 5.5", esxcli55, 6, "68:5b:35:91:47:85",
       "1500  Broadcom Corporation NetXtreme BCM57762 Gigabit Ethernet PCIe"},
      {"status columns push the MAC to column 8", esxcli67, 6, "00:13:32:08:f7:d4", ""},
      {"no tool for major 7", esxcli55, 7, "68:5b:35:91:47:85", ""},
      {"esxcli without dashes", "Name b c d e f " + mac + " 1500 X\n", 5, mac, ""},
      {"major 4 skips the first line", "a b c d e f " + mac + " 1500 X\n", 4, mac, ""},
      {"a tab is no separator", "head\na b c d e\tf " + mac + " 1500 X\n", 4, mac, ""},
      {"first match wins, even without a rest",
       "head\na b c d e f " + mac + "  \na b c d e f " + mac + " 1500 X\n", 4, mac, ""},
      {"blank runs skipped, empty column 1", "head\n b  c d e f " + mac + "  1500\tX  \n", 4, mac,
       "1500\tX  "},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(nic_description(c.listing, c.major, c.mac), c.expected) << c.what;
  }
}

TEST(NetDnsServers, PlainSearchFromTheGivenPosition) {
  zXML doc(true, "Snapshot");
  record_dns_servers("nameserver 10.0.0.1\n", std::string::npos, doc.top());
  record_dns_servers("", 0, doc.top());
  EXPECT_EQ(branch_text(doc, "Network"), "<none>");

  // Blanks (not tabs) are skipped, comments and longer words are hits, the
  // next search starts at the value, and the last value runs to the end.
  record_dns_servers(
      "search lab\nnameserver   10.0.0.2  \nnameserver\t10.0.0.3\n# nameserver 10.0.0.4 old\n"
      "nameservers 5\nnameserver nameserver 10.0.0.6\nnameserver 10.0.0.7",
      0, doc.top());
  EXPECT_EQ(branch_text(doc, "Network"),
            "+Network=\n*dns-servers=\ndns-server:1=10.0.0.2\ndns-server:2=\t10.0.0.3\n"
            "dns-server:3=10.0.0.4 old\ndns-server:4=s 5\ndns-server:5=nameserver 10.0.0.6\n"
            "dns-server:6=10.0.0.6\ndns-server:7=10.0.0.7\n-\n");
}

TEST(NetFirewall, ExactTrueAndNumberingFromZero) {
  zXML doc(true, "Snapshot");
  record_firewall(
      "Name       Enabled\n---------  -------\nsshServer     true\nsshClient    false\n"
      "trailing     true \ncapital       True\nnotRead       true",
      doc.top());
  EXPECT_EQ(branch_text(doc, "Security"),
            "+Security=\n+Firewall=\n~kind=esx_fw\n*rule:0=sshServer\nenabled=1\n"
            "*rule:1=sshClient\nenabled=0\n*rule:2=trailing\nenabled=0\n*rule:3=capital\n"
            "enabled=0\n-\n-\n");
}

TEST(NetFirewall, HeaderWithoutDashesAndSecondRun) {
  zXML doc(true, "Snapshot");
  record_firewall("Name  Enabled\nsshServer  true\n", doc.top());
  EXPECT_EQ(branch_text(doc, "Security"),
            "+Security=\n+Firewall=\n~kind=esx_fw\n*rule:0=Name\nenabled=0\n"
            "*rule:1=sshServer\nenabled=1\n-\n-\n");
  // A second run reuses rule:0 and adds a second annotation.
  record_firewall("---\nfirst   \n", doc.top());
  EXPECT_EQ(branch_text(doc, "Security"),
            "+Security=\n+Firewall=\n~kind=esx_fw\n~kind=esx_fw\n*rule:0=first\nenabled=0\n"
            "*rule:1=sshServer\nenabled=1\n-\n-\n");
  EXPECT_THROW(record_firewall("---\nlonely\n", doc.top()), std::out_of_range);
}

}  // namespace
