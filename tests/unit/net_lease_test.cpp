// DHCP lease matching on dhclient lease text, with a fixed clock and zone.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "collectors/network/network.h"

namespace {

const time_t kNoonUtc = 1718452800;  // 2024-06-15 12:00:00 UTC
time_t fixed_clock() {
  return kNoonUtc;
}

// Sets TZ while it lives.
struct Zone {
  explicit Zone(const char* tz) : had(getenv("TZ") != nullptr), old(had ? getenv("TZ") : "") {
    setenv("TZ", tz, 1);
    tzset();
  }
  ~Zone() {
    had ? setenv("TZ", old.c_str(), 1) : unsetenv("TZ");
    tzset();
  }
  bool had;
  std::string old;
};

std::string lease(const std::string& ifname, const std::string& address, long seconds,
                  const std::string& expire) {
  return "lease {\n  interface \"" + ifname + "\";\n  fixed-address " + address +
         ";\n  option dhcp-lease-time " + std::to_string(seconds) + ";\n  renew 6 " + expire +
         ";\n  expire 6 " + expire + ";\n}\n";
}

bool matches(const std::string& text, const char* ip = "10.0.0.5") {
  return lease_matches_at(text, "vmk0", ip, fixed_clock);
}

TEST(NetLease, CurrentExpiredFutureAndOtherAddress) {
  Zone zone("UTC0");
  const std::string current = lease("vmk0", "10.0.0.5", 86400, "2024/06/16 00:00:00");
  const std::string expired = lease("vmk0", "10.0.0.5", 86400, "2024/06/15 11:59:59");
  EXPECT_TRUE(matches(current));
  EXPECT_TRUE(matches(lease("vmk0", "10.0.0.5", 86400, "2024/6/16 0:0:0")));  // unpadded
  EXPECT_FALSE(matches(current, "10.0.0.50"));
  EXPECT_FALSE(matches(expired));
  EXPECT_FALSE(matches(lease("vmk0", "10.0.0.5", 86400, "2024/06/15 12:00:00")));
  EXPECT_TRUE(matches(lease("vmk0", "10.0.0.5", 3600, "2024/06/15 12:59:59")));
  EXPECT_FALSE(matches(lease("vmk0", "10.0.0.5", 3600, "2024/06/15 13:00:00")));
  EXPECT_FALSE(matches(lease("vmk1", "10.0.0.5", 86400, "2024/06/16 00:00:00")));
  EXPECT_FALSE(matches(""));
  EXPECT_FALSE(matches("\"vmk0\" fixed-address 10.0.0.5; dhcp-lease-time 86400;"));
  // The interface's last lease decides.
  EXPECT_FALSE(matches(current + expired));
  EXPECT_TRUE(matches(expired + current));
}

TEST(NetLease, NameOnlyAtOffsetZeroSearchesFromTheTop) {
  Zone zone("UTC0");
  const std::string other = lease("vmk1", "10.0.0.9", 86400, "2024/06/16 00:00:00");
  EXPECT_TRUE(matches("\"vmk0\"\n" + other, "10.0.0.9"));
  EXPECT_FALSE(matches("\"vmk0\"\n" + other, "10.0.0.5"));
}

TEST(NetLease, ExpiryIsLocalTimeWithTodaysDaylightSavingFlag) {
  {
    Zone zone("XXX-10");  // noon UTC is 22:00 here
    EXPECT_TRUE(matches(lease("vmk0", "10.0.0.5", 3600, "2024/06/15 22:30:00")));
    EXPECT_FALSE(matches(lease("vmk0", "10.0.0.5", 3600, "2024/06/15 12:30:00")));
  }
  Zone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  // A winter expiry taken with June's summer offset is 2024-11-30 22:00 UTC;
  // this lease then started half an hour ago (with the winter offset it
  // would start in half an hour).
  EXPECT_TRUE(matches(lease("vmk0", "10.0.0.5", 14553000, "2024/12/01 00:00:00")));
}

}  // namespace
