// Host identity (short name, IP, MAC) and the inventory file name.
#include <gtest/gtest.h>
#include <unistd.h>

#include "app/identity.h"
#include "spine_test_support.h"

namespace {

TEST(AppIdentity, ShortHostName) {
  const std::pair<std::string, std::string> cases[] = {
      {"esx-01.lab.local\n", "esx-01"},
      {"esx01\n", "esx01"},
      {"esx01", "esx01"},
      {"", ""},
      {".hidden\n", ""},
      {"two\nlines.x\n", "two\nlines"},
  };
  for (const auto& c : cases) EXPECT_EQ(short_host_name(c.first), c.second) << c.first;
  EXPECT_EQ(query_short_host_name(nullptr), "");  // no uname on the host
  spine_test::TempDir tmp;
  spine_test::write_script(tmp / "un ame", "[ \"$1\" = -n ] && echo esx-07.example.org\n");
  EXPECT_EQ(query_short_host_name((tmp / "un ame").c_str()), "esx-07");
}

TEST(AppIdentity, IpAndMacChoice) {
  const std::vector<AdapterAddress> host = {
      {"0.0.0.0", "00-50-56-AA-00-01"},      {"10.0.0.5", "00-00-00-00-00-00"},
      {"127.0.0.1", "00-00-00-00-00-00"},    {"192.168.1.10", "00-0C-29-AB-CD-EF"},
      {"192.168.2.10", "00-0C-29-AB-CD-F0"},
  };
  const std::vector<AdapterAddress> zero_only = {{"0.0.0.0", "00-50-56-AA-00-01"}};
  const std::tuple<std::vector<AdapterAddress>, const char*, const char*> cases[] = {
      {host, nullptr, "192.168.1.10 00-0C-29-AB-CD-EF"},         // first usable adapter
      {host, "192.168.2.10", "192.168.2.10 00-0C-29-AB-CD-F0"},  // a given address wins
      {host, "10.9.9.9", "192.168.1.10 00-0C-29-AB-CD-EF"},      // unknown: ignored
      {host, "", "192.168.1.10 00-0C-29-AB-CD-EF"},
      {host, "10.0.0.5", "10.0.0.5 00-00-00-00-00-00"},  // even an unusable one
      {{}, "10.0.0.1", "127.0.0.1 00-00-00-00-00"},
      {zero_only, nullptr, "127.0.0.1 00-00-00-00-00"},
  };
  for (const auto& c : cases) {
    const std::string ip = choose_ip(std::get<0>(c), std::get<1>(c));
    EXPECT_EQ(ip + " " + choose_mac(std::get<0>(c), ip), std::get<2>(c));
  }
}

TEST(AppIdentity, FileNames) {
  const std::tuple<std::string, std::string, int, std::string> cases[] = {
      {"esx-01", "00-0C-29-AB-CD-EF", 0, "ESX_01_000C29ABCDEF.inv"},
      {"esx-01", "00-0C-29-AB-CD-EF", 2, "ESX_01_000C29ABCDEF(2).inv"},
      {"", "00-00-00-00-00", 1, "_0000000000(1).inv"},
      {"Mixed_Case9", "AA-BB", 0, "MIXED_CASE9_AABB.inv"},
      // Whatever uname prints, the name stays one entry of the directory.
      {"../../etc/x", "00-11", 0, ".._.._ETC_X_0011.inv"},
      {std::string("a\0b\nc\x7f", 6), "00", 0, "A_B_C__00.inv"},
      {"\xc3\xa9t\xc3\xa9", "00", 0, "\xc3\xa9T\xc3\xa9_00.inv"},  // non-ASCII kept
  };
  for (const auto& c : cases) {
    EXPECT_EQ(inventory_file_name(std::get<0>(c), std::get<1>(c), std::get<2>(c)), std::get<3>(c));
  }
}

TEST(AppIdentity, OutputPathSkipsTakenNames) {
  spine_test::TempDir tmp;
  std::string name;
  auto choose = [&] {
    return choose_output_path(tmp.path(), "esx-01", "00-0C-29-AB-CD-EF", &name);
  };
  EXPECT_EQ(choose(), tmp / "ESX_01_000C29ABCDEF.inv");
  spine_test::write_file(tmp / name, "first");
  EXPECT_EQ(choose(), tmp / "ESX_01_000C29ABCDEF(1).inv");
  EXPECT_EQ(name, "ESX_01_000C29ABCDEF(1).inv");
  spine_test::write_file(tmp / name, "second");
  // A link that points nowhere is taken too: writing through it would
  // create a file elsewhere.
  ASSERT_EQ(symlink("/nonexistent/x.inv", (tmp / "ESX_01_000C29ABCDEF(2).inv").c_str()), 0);
  EXPECT_EQ(choose(), tmp / "ESX_01_000C29ABCDEF(3).inv");
}

}  // namespace
