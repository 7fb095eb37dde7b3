// Host identity (short name, IP, MAC) and the inventory file name.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "app/identity.h"
#include "spine_test_support.h"

namespace {

using spine_test::TempDir;
using spine_test::write_file;

TEST(AppIdentity, ShortHostName) {
  const std::pair<std::string, std::string> cases[] = {
      {"esx-01.lab.local\n", "esx-01"},
      {"esx01\n", "esx01"},
      {"esx01", "esx01"},
      {"", ""},
      {"\n", ""},
      {".hidden\n", ""},
      {"two\nlines.x\n", "two\nlines"},  // the dot is looked for first
  };
  for (const auto& c : cases) EXPECT_EQ(short_host_name(c.first), c.second) << c.first;
  EXPECT_EQ(query_short_host_name(nullptr), "");  // no uname on the host
}

TEST(AppIdentity, QueryRunsUnameWithDashN) {
  TempDir tmp;
  const std::string uname = tmp / "un ame";  // a path that needs quoting
  spine_test::write_script(uname, "[ \"$1\" = -n ] && echo esx-07.example.org\n");
  EXPECT_EQ(query_short_host_name(uname.c_str()), "esx-07");
}

TEST(AppIdentity, IpAndMacChoice) {
  const std::vector<AdapterAddress> host = {
      {"0.0.0.0", "00-50-56-AA-00-01"},      {"10.0.0.5", "00-00-00-00-00-00"},
      {"127.0.0.1", "00-00-00-00-00-00"},    {"192.168.1.10", "00-0C-29-AB-CD-EF"},
      {"192.168.2.10", "00-0C-29-AB-CD-F0"},
  };
  struct Case {
    std::vector<AdapterAddress> list;
    const char* given;
    const char* ip;
    const char* mac;
  };
  const Case cases[] = {
      {host, nullptr, "192.168.1.10", "00-0C-29-AB-CD-EF"},         // first usable adapter
      {host, "192.168.2.10", "192.168.2.10", "00-0C-29-AB-CD-F0"},  // a given address wins
      {host, "10.9.9.9", "192.168.1.10", "00-0C-29-AB-CD-EF"},      // unknown: ignored
      {host, "", "192.168.1.10", "00-0C-29-AB-CD-EF"},
      {host, "10.0.0.5", "10.0.0.5", "00-00-00-00-00-00"},  // even an unusable one
      {{}, nullptr, "127.0.0.1", "00-00-00-00-00"},
      {{}, "10.0.0.1", "127.0.0.1", "00-00-00-00-00"},
      {{{"0.0.0.0", "00-50-56-AA-00-01"}}, nullptr, "127.0.0.1", "00-00-00-00-00"},
      {{{"0.0.0.0", "00-50-56-AA-00-01"}, {"127.0.0.1", "00-00-00-00-00-00"}},
       nullptr,
       "127.0.0.1",
       "00-00-00-00-00-00"},
  };
  for (const Case& c : cases) {
    const std::string ip = choose_ip(c.list, c.given);
    EXPECT_EQ(ip, c.ip) << (c.given ? c.given : "(none)");
    EXPECT_EQ(choose_mac(c.list, ip), c.mac) << ip;
  }
}

TEST(AppIdentity, FileNames) {
  struct Case {
    std::string host;
    std::string mac;
    int copy;
    std::string name;
  };
  const Case cases[] = {
      {"esx-01", "00-0C-29-AB-CD-EF", 0, "ESX_01_000C29ABCDEF.inv"},
      {"esx-01", "00-0C-29-AB-CD-EF", 2, "ESX_01_000C29ABCDEF(2).inv"},
      {"host", "00-00-00-00-00", 0, "HOST_0000000000.inv"},
      {"", "00-00-00-00-00", 1, "_0000000000(1).inv"},
      {"Mixed_Case9", "AA-BB", 0, "MIXED_CASE9_AABB.inv"},
      // Whatever uname prints, the name stays one entry of the directory.
      {"../../etc/x", "00-11", 0, ".._.._ETC_X_0011.inv"},
      {"/", "00", 0, "__00.inv"},
      {std::string("a\0b\nc\x7f", 6), "00", 0, "A_B_C__00.inv"},
      {"\xc3\xa9t\xc3\xa9", "00", 0, "\xc3\xa9T\xc3\xa9_00.inv"},  // non-ASCII kept
  };
  for (const Case& c : cases) {
    EXPECT_EQ(inventory_file_name(c.host, c.mac, c.copy), c.name) << c.host;
  }
}

TEST(AppIdentity, OutputPathSkipsTakenNames) {
  TempDir tmp;
  std::string name;
  EXPECT_EQ(choose_output_path(tmp.path(), "esx-01", "00-0C-29-AB-CD-EF", &name),
            tmp / "ESX_01_000C29ABCDEF.inv");
  EXPECT_EQ(name, "ESX_01_000C29ABCDEF.inv");
  write_file(tmp / "ESX_01_000C29ABCDEF.inv", "first");
  EXPECT_EQ(choose_output_path(tmp.path(), "esx-01", "00-0C-29-AB-CD-EF", &name),
            tmp / "ESX_01_000C29ABCDEF(1).inv");
  EXPECT_EQ(name, "ESX_01_000C29ABCDEF(1).inv");
  write_file(tmp / "ESX_01_000C29ABCDEF(1).inv", "second");
  // A link that points nowhere is taken too: writing through it would
  // create a file elsewhere.
  ASSERT_EQ(symlink("/nonexistent/elsewhere.inv", (tmp / "ESX_01_000C29ABCDEF(2).inv").c_str()), 0);
  EXPECT_EQ(choose_output_path(tmp.path(), "esx-01", "00-0C-29-AB-CD-EF", &name),
            tmp / "ESX_01_000C29ABCDEF(3).inv");
  EXPECT_TRUE(path_taken(tmp / "ESX_01_000C29ABCDEF(2).inv"));
  EXPECT_FALSE(path_taken(tmp / "ESX_01_000C29ABCDEF(3).inv"));
}

}  // namespace
