// DHCP lease matching on dhclient lease file text, with a fixed clock and a
// fixed time zone.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "collectors/network/network.h"
#include "net_test_util.h"

namespace {

using net_test::read_fixture;

time_t g_now = 0;
time_t fixed_clock() {
  return g_now;
}

// Sets TZ for the lifetime of the object and restores it afterwards.
class ZoneGuard {
 public:
  explicit ZoneGuard(const char* zone) {
    const char* old = getenv("TZ");
    had_old_ = old != nullptr;
    if (had_old_) old_ = old;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~ZoneGuard() {
    if (had_old_) {
      setenv("TZ", old_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  bool had_old_ = false;
  std::string old_;
};

std::string lease_block(const std::string& ifname, const std::string& address, long seconds,
                        const std::string& expire) {
  return "lease {\n  interface \"" + ifname + "\";\n  fixed-address " + address +
         ";\n  option subnet-mask 255.255.255.0;\n  option dhcp-lease-time " +
         std::to_string(seconds) + ";\n  option routers 192.168.10.1;\n  renew 6 " + expire +
         ";\n  rebind 6 " + expire + ";\n  expire 6 " + expire + ";\n}\n";
}

const long kDay = 86400;
const char kIp[] = "192.168.10.25";

struct LeaseCase {
  const char* what;
  std::string text;
  const char* ip;
  bool expected;
};

// 2024-06-15 12:00:00 UTC.
const time_t kNoonUtc = 1718452800;

TEST(NetLease, CurrentExpiredFutureAndOtherAddress) {
  ZoneGuard zone("UTC0");
  g_now = kNoonUtc;
  const std::string current = lease_block("vmk0", kIp, kDay, "2024/06/16 00:00:00");
  const std::string expired = lease_block("vmk0", kIp, kDay, "2024/06/15 11:59:59");
  const LeaseCase cases[] = {
      {"current lease", current, kIp, true},
      {"current lease of another address", current, "192.168.10.26", false},
      {"address compared as whole text", current, "192.168.10.2", false},
      {"expired a second ago", expired, kIp, false},
      {"expires this second", lease_block("vmk0", kIp, kDay, "2024/06/15 12:00:00"), kIp, false},
      {"starts this second", lease_block("vmk0", kIp, 3600, "2024/06/15 13:00:00"), kIp, false},
      {"starts in the future", lease_block("vmk0", kIp, 3600, "2024/06/15 13:00:01"), kIp, false},
      {"started a second ago", lease_block("vmk0", kIp, 3600, "2024/06/15 12:59:59"), kIp, true},
      {"lease of another interface", lease_block("vmk1", kIp, kDay, "2024/06/16 00:00:00"), kIp,
       false},
      {"date without zero padding", lease_block("vmk0", kIp, kDay, "2024/6/16 0:0:0"), kIp, true},
      {"the last lease of the interface counts", current + expired, kIp, false},
      {"an older expired lease does not matter", expired + current, kIp, true},
      {"a later lease of another interface does not matter",
       current + lease_block("vmk1", "10.0.0.9", kDay, "2024/06/15 11:00:00"), kIp, true},
      {"empty text", "", kIp, false},
      {"no expiry",
       "lease {\n  interface \"vmk0\";\n  fixed-address 192.168.10.25;\n"
       "  option dhcp-lease-time 86400;\n}\n",
       kIp, false},
  };
  for (const LeaseCase& c : cases) {
    EXPECT_EQ(lease_matches_at(c.text, "vmk0", c.ip, fixed_clock), c.expected) << c.what;
  }
}

TEST(NetLease, NameOnlyAtOffsetZeroSearchesFromTheTop) {
  ZoneGuard zone("UTC0");
  g_now = kNoonUtc;
  // The quoted name opens the text: the keywords after it decide.
  const std::string bare =
      "\"vmk0\"; fixed-address 192.168.10.25; dhcp-lease-time 86400; "
      "expire 6 2024/06/16 00:00:00;";
  EXPECT_TRUE(lease_matches_at(bare, "vmk0", kIp, fixed_clock));
  // Those keywords may belong to another interface's lease.
  const std::string other =
      "\"vmk0\"\n" + lease_block("vmk1", "10.0.0.9", kDay, "2024/06/16 00:00:00");
  EXPECT_TRUE(lease_matches_at(other, "vmk0", "10.0.0.9", fixed_clock));
  EXPECT_FALSE(lease_matches_at(other, "vmk0", kIp, fixed_clock));
}

TEST(NetLease, ExpiryIsReadAsLocalTime) {
  // UTC+10: noon UTC is 22:00 local.
  ZoneGuard zone("XXX-10");
  g_now = kNoonUtc;
  EXPECT_TRUE(lease_matches_at(lease_block("vmk0", kIp, 3600, "2024/06/15 22:30:00"), "vmk0", kIp,
                               fixed_clock));
  // Read as local time, the UTC expiry lies ten hours in the past.
  EXPECT_FALSE(lease_matches_at(lease_block("vmk0", kIp, 3600, "2024/06/15 12:30:00"), "vmk0", kIp,
                                fixed_clock));
}

TEST(NetLease, TodaysDaylightSavingFlagApplies) {
  ZoneGuard zone("CET-1CEST,M3.5.0,M10.5.0/3");
  g_now = kNoonUtc;  // summer time
  // A winter expiry taken with summer time's offset is 22:00 UTC on Nov 30,
  // so this lease started half an hour ago; with winter time's offset it
  // would start in half an hour.
  const long length = 14553000;
  EXPECT_TRUE(lease_matches_at(lease_block("vmk0", kIp, length, "2024/12/01 00:00:00"), "vmk0", kIp,
                               fixed_clock));
}

TEST(NetLease, CapturedLeaseFiles) {
  ZoneGuard zone("UTC0");
  const std::string esxi = read_fixture("esxi-samples/dhclient-vmk0.leases.esxi.reconstructed.txt");
  ASSERT_FALSE(esxi.empty());
  g_now = 1394701200;  // 2014-03-13 09:00:00, before its expiry at 10:15
  EXPECT_TRUE(lease_matches_at(esxi, "vmk0", "192.168.10.25", fixed_clock));
  EXPECT_FALSE(lease_matches_at(esxi, "vmk1", "192.168.10.25", fixed_clock));
  g_now = kNoonUtc;
  EXPECT_FALSE(lease_matches_at(esxi, "vmk0", "192.168.10.25", fixed_clock));

  // Two lease blocks with dates that are not zero-padded; the second one
  // (expiring 01:01:20 after an hour) is the one read.
  const std::string linux3 =
      read_fixture("esxi-samples/dhclient.eth0.leases.linux-dhclient3-2007.txt");
  ASSERT_FALSE(linux3.empty());
  g_now = 1183509000 + 60;  // 2007-07-04 00:31:00
  EXPECT_TRUE(lease_matches_at(linux3, "eth0", "192.168.1.2", fixed_clock));
  g_now = 1183509000 + 1800 + 60;  // 01:01:00: the first block expired at 01:00:53
  EXPECT_TRUE(lease_matches_at(linux3, "eth0", "192.168.1.2", fixed_clock));
  g_now = 1183509000 + 1800 + 81;  // 01:01:21
  EXPECT_FALSE(lease_matches_at(linux3, "eth0", "192.168.1.2", fixed_clock));
}

}  // namespace
