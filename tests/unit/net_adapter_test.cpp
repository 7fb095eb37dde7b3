// NIC descriptions, adapter nodes and DNS servers from captured host text.
#include <gtest/gtest.h>

#include <string>

#include "collectors/network/network.h"
#include "net_test_util.h"
#include "zxml/zXML.h"

namespace {

using net_test::read_fixture;
using net_test::subtree_text;

struct DescriptionCase {
  const char* what;
  std::string listing;
  int major;
  const char* mac;
  const char* expected;
};

TEST(NetNicDescription, MatchesColumnSevenAndKeepsTheMtu) {
  const std::string nics_esx = read_fixture("esxi-samples/esxcfg-nics_-l.esxi55.txt");
  const std::string esxcli55 = read_fixture("esxi-samples/esxcli_network_nic_list.esxi55.txt");
  const std::string esxcli67 = read_fixture("esxi-samples/esxcli_network_nic_list.esxi67.txt");
  ASSERT_FALSE(nics_esx.empty());
  ASSERT_FALSE(esxcli55.empty());
  ASSERT_FALSE(esxcli67.empty());
  const DescriptionCase cases[] = {
      {"esxcfg-nics table, a middle line", nics_esx, 4, "a0:36:9f:3e:b4:62",
       "1500   Intel Corporation I350 Gigabit Network Connection"},
      {"esxcfg-nics table, the last line", nics_esx, 4, "f4:0f:1b:49:5c:9a",
       "1500   Broadcom Corporation QLogic 57712 10 Gigabit Ethernet Adapter"},
      {"esxcli table without status columns", esxcli55, 5, "68:5b:35:91:47:85",
       "1500  Broadcom Corporation NetXtreme BCM57762 Gigabit Ethernet PCIe"},
      {"majors 5 and 6 read the same table", esxcli55, 6, "68:5b:35:c9:96:10",
       "1500  Broadcom Corporation NetXtreme BCM57766 Gigabit Ethernet"},
      {"status columns push the MAC to column 8", esxcli67, 6, "00:13:32:08:f7:d4", ""},
      {"an unknown major reads no table", esxcli55, 7, "68:5b:35:91:47:85", ""},
      {"the MAC is compared in lower case only", nics_esx, 4, "A0:36:9F:3E:B4:62", ""},
      {"no line has the MAC", nics_esx, 4, "00:50:56:00:00:01", ""},
      {"esxcli output without dashes", "Name A B C D E 00:11:22:33:44:55 1500 X\n", 5,
       "00:11:22:33:44:55", ""},
      {"major 4 skips the first line", "a b c d e f 00:11:22:33:44:55 1500 First\n", 4,
       "00:11:22:33:44:55", ""},
      {"text after the last newline is not read", "head\na b c d e f 00:11:22:33:44:55 1500 X", 4,
       "00:11:22:33:44:55", ""},
      {"a MAC in the last column gives an empty description",
       "head\na b c d e f 00:11:22:33:44:55   \nz b c d e f 00:11:22:33:44:55 9000 Later\n", 4,
       "00:11:22:33:44:55", ""},
      {"a leading blank makes column 1 empty", "head\n b c d e f 00:11:22:33:44:55 1500 Shifted\n",
       4, "00:11:22:33:44:55", "1500 Shifted"},
      {"a tab does not separate columns", "head\na b c d e\tf 00:11:22:33:44:55 1500 X\n", 4,
       "00:11:22:33:44:55", ""},
      {"blank runs are skipped", "head\na   b c d  e f     00:11:22:33:44:55  1500\tTab  End \n", 4,
       "00:11:22:33:44:55", "1500\tTab  End "},
  };
  for (const DescriptionCase& c : cases) {
    EXPECT_EQ(nic_description(c.listing, c.major, c.mac), c.expected) << c.what;
  }
}

TEST(NetNicDescription, MacTexts) {
  const unsigned char bytes[6] = {0x00, 0x50, 0x56, 0xab, 0x0c, 0xff};
  EXPECT_EQ(mac_dashed(bytes), "00-50-56-AB-0C-FF");
  EXPECT_EQ(mac_colon(bytes), "00:50:56:ab:0c:ff");
}

TEST(NetAdapterNode, AttributesInOrderWithGateway) {
  zXML doc(true, "Snapshot");
  AdapterRecord a;
  a.description = "1500   Intel Corporation I350 Gigabit Network Connection";
  a.netmask = "255.255.255.192";
  a.type = "Ethernet";
  a.mac = "A0-36-9F-3E-B4-62";
  a.name = "vmk0";
  a.ip = "172.26.64.10";
  a.dhcp = true;
  // What the grep/awk filter makes of the route listing for vmk0.
  a.route_output = " 255.255.255.192 Local\n 0.0.0.0 172.26.64.1\n";
  record_adapter(doc.top(), 2, a);
  EXPECT_EQ(subtree_text(doc.top()->find_child("Network")),
            "+Network=\n"
            "+Adapters=\n"
            "*net-adapter:2=1500   Intel Corporation I350 Gigabit Network Connection\n"
            "ip-subnet=255.255.255.192\n"
            "adapter-name=1500   Intel Corporation I350 Gigabit Network Connection\n"
            "type=Ethernet\n"
            "mac-address=A0-36-9F-3E-B4-62\n"
            "manuf-by-mac=A0-36-9F\n"
            "bsd-device-name=vmk0\n"
            "ip-address=172.26.64.10\n"
            "dhcp-enabled=1\n"
            "default-gateway=172.26.64.1\n"
            "-\n"
            "-\n");
}

TEST(NetAdapterNode, ZeroMacAndNoDefaultRoute) {
  zXML doc(true, "Snapshot");
  AdapterRecord a;
  a.description = "Local Loopback";
  a.netmask = "255.0.0.0";
  a.type = "Local Loopback";
  a.mac = "00-00-00-00-00-00";
  a.name = "lo0";
  a.ip = "127.0.0.1";
  a.route_output = " 255.0.0.0 Local\n";
  record_adapter(doc.top(), 1, a);
  EXPECT_EQ(subtree_text(doc.top()->find_child("Network")),
            "+Network=\n"
            "+Adapters=\n"
            "*net-adapter:1=Local Loopback\n"
            "ip-subnet=255.0.0.0\n"
            "adapter-name=Local Loopback\n"
            "type=Local Loopback\n"
            "bsd-device-name=lo0\n"
            "ip-address=127.0.0.1\n"
            "dhcp-enabled=0\n"
            "-\n"
            "-\n");
}

TEST(NetGateway, FirstDefaultRouteToLineEnd) {
  bool found = true;
  EXPECT_EQ(default_gateway("", &found), "");
  EXPECT_FALSE(found);
  EXPECT_EQ(default_gateway(" 255.255.255.0 Local\n", &found), "");
  EXPECT_FALSE(found);
  // No newline after the gateway: it runs to the end of the output.
  EXPECT_EQ(default_gateway(" 0.0.0.0 10.1.1.1", &found), "10.1.1.1");
  EXPECT_TRUE(found);
  // The first match wins, whichever line it is on.
  EXPECT_EQ(default_gateway(" 0.0.0.0 10.1.1.1\n 0.0.0.0 10.2.2.2\n", &found), "10.1.1.1");
  EXPECT_TRUE(found);
}

TEST(NetDnsServers, BlanksTabsCommentsAndTextEnd) {
  zXML doc(true, "Snapshot");
  const std::string resolv =
      "search lab.local\n"
      "nameserver 10.0.0.2\n"
      "nameserver   10.0.0.3  \n"
      "nameserver\t10.0.0.4\n"
      "# nameserver 10.9.9.9 (old)\n"
      "nameservers 10.0.0.6\n"
      "nameserver 10.0.0.5";
  record_dns_servers(resolv, 0, doc.top());
  EXPECT_EQ(subtree_text(doc.top()->find_child("Network")),
            "+Network=\n"
            "*dns-servers=\n"
            "dns-server:1=10.0.0.2\n"
            "dns-server:2=10.0.0.3\n"
            "dns-server:3=\t10.0.0.4\n"
            "dns-server:4=10.9.9.9 (old)\n"
            "dns-server:5=s 10.0.0.6\n"
            "dns-server:6=10.0.0.5\n"
            "-\n");
}

TEST(NetDnsServers, NothingFromPastTheEndOrFromAnEmptyFile) {
  zXML doc(true, "Snapshot");
  // The search position after an adapter pass.
  record_dns_servers("nameserver 10.0.0.2\n", std::string::npos, doc.top());
  record_dns_servers("", 0, doc.top());
  EXPECT_EQ(doc.top()->find_child("Network"), nullptr);
}

TEST(NetDnsServers, SearchResumesAtTheValueAndKeywordAtTheEnd) {
  zXML doc(true, "Snapshot");
  // The value itself is searched again, and a bare keyword at the very end
  // of the text gives an empty value.
  record_dns_servers("nameserver nameserver 10.0.0.7\nnameserver", 0, doc.top());
  EXPECT_EQ(subtree_text(doc.top()->find_child("Network")),
            "+Network=\n"
            "*dns-servers=\n"
            "dns-server:1=nameserver 10.0.0.7\n"
            "dns-server:2=10.0.0.7\n"
            "dns-server:3=\n"
            "-\n");
}

}  // namespace
