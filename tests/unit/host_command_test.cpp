// Command capture, file reads, the missing-tool warning and shell quoting.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "host/command.h"
#include "spine_test_support.h"
#include "zxml/tag.h"

namespace {

using spine_test::TempDir;
using spine_test::write_file;

// n bytes of a pattern that holds NUL and high bytes.
std::string pattern(size_t n) {
  std::string text;
  for (size_t i = 0; i < n; ++i) text += static_cast<char>((i * 7) % 256);
  return text;
}

TEST(HostRunCommand, CapturesOutputByteExact) {
  TempDir tmp;
  const std::string source = tmp / "bytes";
  write_file(source, pattern(5000));
  // Around the 512-byte read size, and output holding NUL bytes.
  for (size_t n : {0, 1, 511, 512, 513, 1024, 1025, 5000}) {
    unsigned long length = 12345;
    const std::string out =
        run_command("head -c " + std::to_string(n) + " " + shell_quote(source), &length);
    EXPECT_EQ(length, n);
    EXPECT_EQ(out, pattern(n)) << n << " bytes";
  }
  // Only standard output is captured; pipes work; the exit status is not
  // looked at.
  unsigned long length = 0;
  EXPECT_EQ(run_command("echo out; echo err >&2; exit 3", &length), "out\n");
  EXPECT_EQ(length, 4u);
  EXPECT_EQ(run_command("printf 'a\\nb dhclient\\n' | grep dhclient"), "b dhclient\n");
}

TEST(HostReadFile, RegularMissingAndProcFiles) {
  TempDir tmp;
  const std::string path = tmp / "f";
  write_file(path, pattern(3000));
  unsigned long length = 0;
  EXPECT_EQ(read_file(path, &length), pattern(3000));
  EXPECT_EQ(length, 3000u);

  write_file(path, "");
  length = 7;
  EXPECT_EQ(read_file(path, &length), "");
  EXPECT_EQ(length, 0u);

  length = 7;
  EXPECT_EQ(read_file(tmp / "absent", &length), "");
  EXPECT_EQ(length, 0u);

  length = 7;
  EXPECT_EQ(read_file(tmp.path(), &length), "");  // a directory has no text
  EXPECT_EQ(length, 0u);

  // Files under /proc report size 0 but have contents; this one is longer
  // than one 1024-byte piece and stays the same while the test runs.
  const char* proc = "/proc/self/mountinfo";
  struct stat st;
  ASSERT_EQ(stat(proc, &st), 0);
  ASSERT_EQ(st.st_size, 0);
  const std::string expected = spine_test::slurp(proc);
  ASSERT_GT(expected.size(), 1024u);
  EXPECT_EQ(read_file(proc, &length), expected);
  EXPECT_EQ(length, expected.size());
}

TEST(HostShellQuote, HostileTextReachesTheToolUnchanged) {
  TempDir tmp;
  const std::string marker = tmp / "ran";
  const std::vector<std::string> texts = {
      "vmnic0",
      "naa.600508b1001c3a6d",
      "",
      "two words",
      "a;touch " + marker,
      "$(touch " + marker + ")",
      "`touch " + marker + "`",
      "it's",
      "'",
      "''\\''",
      "\"$HOME\"",
      "line1\nline2",
      "tab\there",
      "*",
      "-n",
      "a|touch " + marker + "&",
      "\\",
      "!$#&<>(){}[]~",
      std::string("\xff\xfe high"),
  };
  for (const std::string& text : texts) {
    // Two quoted words: the tool must see exactly two arguments.
    const std::string out =
        run_command("printf '[%s]' " + shell_quote(text) + " " + shell_quote(text));
    EXPECT_EQ(out, "[" + text + "][" + text + "]") << text;
  }
  EXPECT_FALSE(spine_test::exists(marker));
  // A NUL byte cannot travel in a command line; it is dropped.
  EXPECT_EQ(shell_quote(std::string("a\0b", 3)), "'ab'");
  EXPECT_EQ(shell_quote("it's"), "'it'\\''s'");
}

TEST(HostMissingToolWarning, NumberedWithAnnotationsInOrder) {
  ztag node("OS");
  node.set_attr("name", zvalue("x"));
  add_missing_tool_warning(&node, "uname", "os", false);
  add_missing_tool_warning(&node, "lsusb", "USB", true);
  EXPECT_EQ(spine_test::text_of(&node),
            "*OS=\n"
            "name=x\n"
            "Warning:1=\n~type=package_not_found\n~pkg_name=uname\n~more=os\n"
            "Warning:2=\n~type=package_not_found\n~pkg_name=lsusb\n~missing=USB\n");
}

TEST(HostPrintMessage, FormatsToStandardOutput) {
  testing::internal::CaptureStdout();
  print_message("%d%%\n", 60);
  print_message(">>>%s\n", "ESX_01_000C29ABCDEF.inv");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "60%\n>>>ESX_01_000C29ABCDEF.inv\n");
}

}  // namespace
