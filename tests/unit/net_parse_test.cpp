// NIC descriptions, DHCP lease matching, DNS servers and firewall rulesets
// from captured text.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <string>
#include <tuple>

#include "collectors/network/network.h"
#include "host/host_access.h"
#include "test_support.h"
#include "zxml/zXML.h"

namespace {

TEST(NetNicDescription, ColumnSevenMatchKeepsTheMtu) {
  const std::string mac = "00:11:22:33:44:55", rest = mac + " 1500 X\n";
  // Listing, ESX major -> description.
  const std::tuple<std::string, int, const char*> cases[] = {
      {"Name\n---\na b c d e f " + mac + "  1500\tX  \n", 6, "1500\tX  "},  // after the dashes
      {"head\n b  c d e f " + rest, 4, "1500 X"},         // blank runs skipped, empty column 1
      {"Name\n---\na b c d e f g " + rest, 5, ""},        // an extra column: the MAC is column 8
      {"head\na b c d e\tf " + rest, 4, ""},              // a tab is no separator
      {"head\na b c d e f " + rest + "\n", 4, "1500 X"},  // lines after the match are not read
  };
  for (const auto& [listing, major, expected] : cases) {
    EXPECT_EQ(nic_description(listing, major, mac), expected) << listing;
  }
}

// A line read before the match with fewer than seven columns, or a match
// with nothing after it, ends the scan; the lenient reading passes over them.
TEST(NetNicDescription, ShortLinesEndTheScan) {
  const std::string mac = "00:11:22:33:44:55", match = "a b c d e f " + mac + " 1500 X\n";
  const std::pair<std::string, const char*> cases[] = {
      {"Name\n---\n\n" + match, "1500 X"},                     // an empty line
      {"Name\n---\na b c d e f  \n" + match, "1500 X"},        // cut after six columns
      {"Name\n---\na b c d e f " + mac + "  \n" + match, ""},  // nothing after the MAC
  };
  for (const auto& [listing, lenient] : cases) {
    EXPECT_THROW(nic_description(listing, 5, mac), std::out_of_range) << listing;
    EXPECT_EQ(nic_description(listing, 5, mac, true), lenient) << listing;
  }
}

// Sets TZ while it lives.
struct Zone {
  explicit Zone(const char* tz) : old(getenv("TZ") != nullptr ? getenv("TZ") : "") { set(tz); }
  ~Zone() { set(old.empty() ? nullptr : old.c_str()); }
  static void set(const char* tz) {
    tz != nullptr ? setenv("TZ", tz, 1) : unsetenv("TZ");
    tzset();
  }
  std::string old;
};

std::string lease(long seconds, const std::string& expire, const char* ifname = "vmk0",
                  const char* address = "10.0.0.5") {
  return std::string("lease {\n  interface \"") + ifname + "\";\n  fixed-address " + address +
         ";\n  option dhcp-lease-time " + std::to_string(seconds) + ";\n  renew 6 " + expire +
         ";\n  expire 6 " + expire + ";\n}\n";
}

TEST(NetLease, CurrentExpiredFutureOtherAddressAndNamePosition) {
  Zone zone("UTC0");
  // The live host's time zone rules, with the clock stopped at noon.
  struct NoonUtc : LiveHost {
    time_t wall_time() override { return 1718452800; }  // 2024-06-15 12:00:00 UTC
  } noon_utc;
  const std::string now = lease(86400, "2024/06/16 00:00:00");
  const std::string old = lease(86400, "2024/06/15 11:59:59");
  const std::pair<std::string, bool> cases[] = {
      {now, true},
      {old, false},
      {lease(86400, "2024/06/15 12:00:00"), false},  // expires now
      {lease(3600, "2024/06/15 12:59:59"), true},    // started a second ago
      {lease(3600, "2024/06/15 13:00:00"), false},   // starts now, not yet current
      {lease(86400, "2024/06/16 00:00:00", "vmk0", "10.0.0.50"), false},  // another address
      {lease(86400, "2024/06/16 00:00:00", "vmk1"), false},
      // The name only at offset 0 makes the search start at the top, where
      // another interface's lease is found.
      {"\"vmk0\"\n" + lease(86400, "2024/06/16 00:00:00", "vmk1"), true},
      {now + old, false},  // the interface's last lease decides
      {old + now, true},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(lease_matches_at(c.first, "vmk0", "10.0.0.5", noon_utc), c.second) << c.first;
  }
  // Local time with today's daylight-saving flag: a December expiry read with
  // June's offset is 2024-11-30 22:00 UTC, so this lease began 30 minutes ago.
  Zone cet("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_TRUE(
      lease_matches_at(lease(14553000, "2024/12/01 00:00:00"), "vmk0", "10.0.0.5", noon_utc));
}

TEST(NetDnsAndFirewall, ResolvConfAndRulesets) {
  zXML doc(true, "Snapshot");
  // Blanks (not tabs) are skipped, comments and longer words are hits, the
  // next search starts at the value, and the last value runs to the end.
  record_dns_servers(
      "search lab\nnameserver   10.0.0.2  \nnameserver\t10.0.0.3\n# nameserver 10.0.0.4 old\n"
      "nameservers 5\nnameserver nameserver 10.0.0.6\nnameserver 10.0.0.7",
      0, doc.top());
  // Only exactly "true" is enabled; the header is a ruleset when no "--"
  // follows it; text after the last line break is not read.
  record_firewall("Name  Enabled\nsshServer     true\ntrailing     true \ncapital  True\nx true",
                  doc.top());
  EXPECT_EQ(
      test_support::tree_text(doc.top()),
      "+Snapshot=\n+Network=\n*dns-servers=\ndns-server:1=10.0.0.2\ndns-server:2=\t10.0.0.3\n"
      "dns-server:3=10.0.0.4 old\ndns-server:4=s 5\ndns-server:5=nameserver 10.0.0.6\n"
      "dns-server:6=10.0.0.6\ndns-server:7=10.0.0.7\n-\n+Security=\n+Firewall=\n~kind=esx_fw\n"
      "*rule:0=Name\nenabled=0\n*rule:1=sshServer\nenabled=1\n*rule:2=trailing\nenabled=0\n"
      "*rule:3=capital\nenabled=0\n-\n-\n-\n");
}

// No enabled text after the name (no blank, or blanks only) ends the scan.
TEST(NetDnsAndFirewall, LinesWithoutEnabledTextEndTheScan) {
  for (const char* output : {"---\nlonely\n", "---\nname   \n"}) {
    zXML doc(true, "Snapshot");
    EXPECT_THROW(record_firewall(output, doc.top()), std::out_of_range) << output;
  }
}

}  // namespace
