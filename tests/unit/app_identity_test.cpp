// Host identity: IP and MAC choice, and the inventory file name.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
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
      // "/" becomes "_" and a NUL ends the name; every other byte is kept.
      {"a/b\n", "00-11", 0, "A_B_0011.inv"},
      {std::string("a\0b.d", 5), "00", 0, "A_00.inv"},
      {"esx1\r\n", "68-5B-35-C9-96-10", 0, "ESX1\r_685B35C99610.inv"},
      {"b\x7f\nc.d", "00", 0, "B\x7f\nC_00.inv"},
      {"\xc3\xa9t\xc3\xa9", "00", 0, "\xc3\xa9T\xc3\xa9_00.inv"}};  // non-ASCII kept
  for (const auto& [uname_n, mac, copy, file] : cases)
    EXPECT_EQ(inventory_file_name(short_host_name(uname_n), mac, copy), file) << uname_n;
}

// Whatever already has a candidate name (a file, a link that points
// nowhere, a directory) moves the file on to the next one; the file gets
// the permissions fopen(.., "w") would give and no temporary is left.
TEST(AppIdentity, NewFileSkipsEveryTakenName) {
  test_support::TempDir tmp;
  test_support::write_file(tmp / "X.inv", "old");
  ASSERT_EQ(symlink((tmp / "elsewhere").c_str(), (tmp / "X(1).inv").c_str()), 0);
  ASSERT_EQ(mkdir((tmp / "X(2).inv").c_str(), 0755), 0);
  const OutputDirectory dir(tmp.path());
  const NameSequence names = [](int copy) {
    return copy == 0 ? std::string("X.inv") : "X(" + std::to_string(copy) + ").inv";
  };
  std::string chosen;
  ASSERT_TRUE(create_new_file(dir, names, "image", &chosen));
  EXPECT_EQ(chosen, "X(3).inv");
  EXPECT_EQ(test_support::slurp(tmp / "X(3).inv"), "image");
  EXPECT_EQ(test_support::slurp(tmp / "X.inv"), "old");
  EXPECT_EQ(access((tmp / "elsewhere").c_str(), F_OK), -1);
  const mode_t mask = umask(0);
  umask(mask);
  struct stat st;
  ASSERT_EQ(stat((tmp / "X(3).inv").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0666 & ~mask);
  DIR* d = opendir(tmp.path().c_str());
  std::vector<std::string> entries;
  while (const dirent* e = readdir(d)) entries.push_back(e->d_name);
  closedir(d);
  EXPECT_EQ(entries.size(), 6u);  // ".", "..", X.inv and the three copies
}

}  // namespace
