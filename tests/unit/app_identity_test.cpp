// Host identity: IP and MAC choice, and the inventory file name.
#include <gtest/gtest.h>
#include <unistd.h>

#include "app/identity.h"
#include "test_support.h"

namespace {

TEST(AppIdentity, IpAndMacChoice) {
  const char* const zero = "00-00-00-00-00-00";  // no usable MAC
  const std::vector<AdapterAddress> host = {{"0.0.0.0", "M0"},
                                            {"10.0.0.5", zero},
                                            {"127.0.0.1", zero},
                                            {"10.0.1.1", "M1"},
                                            {"10.0.2.2", "M2"}};
  const std::tuple<std::vector<AdapterAddress>, const char*, const char*> cases[] = {
      {host, nullptr, "10.0.1.1 M1"},                    // the first usable adapter
      {host, "10.0.2.2", "10.0.2.2 M2"},                 // a given address wins
      {host, "10.9.9.9", "10.0.1.1 M1"},                 // unknown: ignored
      {host, "10.0.0.5", "10.0.0.5 00-00-00-00-00-00"},  // even an unusable one
      // Nothing usable: the loopback address and the five-group MAC.
      {{}, "10.0.0.1", "127.0.0.1 00-00-00-00-00"},
      {{host[0]}, nullptr, "127.0.0.1 00-00-00-00-00"}};
  for (const auto& [addresses, given, expected] : cases) {
    const std::string ip = choose_ip(addresses, given);
    EXPECT_EQ(ip + " " + choose_mac(addresses, ip), expected);
  }
}

// The file name from what "uname -n" prints: its short name (up to the
// first dot, else the line end) upper-cased, and the MAC without dashes.
TEST(AppIdentity, FileNames) {
  const std::tuple<std::string, std::string, int, std::string> cases[] = {
      {"esx-01.lab.local\n", "00-0C-29-AB-CD-EF", 0, "ESX_01_000C29ABCDEF.inv"},
      {"Mixed_Case9\n", "AA-BB", 2, "MIXED_CASE9_AABB(2).inv"},
      {"", "00-00-00-00-00", 1, "_0000000000(1).inv"},
      {".hidden\n", "00", 0, "_00.inv"},
      // Whatever uname prints, the name stays one entry of the directory.
      {"a/b\n", "00-11", 0, "A_B_0011.inv"},
      {std::string("a\0b\x7f\nc.d", 8), "00", 0, "A_B__C_00.inv"},
      {"\xc3\xa9t\xc3\xa9", "00", 0, "\xc3\xa9T\xc3\xa9_00.inv"}};  // non-ASCII kept
  for (const auto& [uname_n, mac, copy, file] : cases)
    EXPECT_EQ(inventory_file_name(short_host_name(uname_n), mac, copy), file) << uname_n;
  // A link that points nowhere is taken: writing through it would create a
  // file elsewhere. (Numbering past real files: the end-to-end scans.)
  test_support::TempDir tmp;
  ASSERT_EQ(symlink("/nonexistent/x.inv", (tmp / "ESX_01_000C29ABCDEF.inv").c_str()), 0);
  std::string name;
  EXPECT_EQ(choose_output_path(tmp.path(), "esx-01", "00-0C-29-AB-CD-EF", &name),
            tmp / "ESX_01_000C29ABCDEF(1).inv");
  EXPECT_EQ(name, "ESX_01_000C29ABCDEF(1).inv");
}

}  // namespace
