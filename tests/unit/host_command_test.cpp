// Command capture, file reads, the missing-tool warning and shell quoting.
#include <gtest/gtest.h>

#include "host/command.h"
#include "spine_test_support.h"

namespace {

using spine_test::TempDir;

// n bytes of a pattern that holds NUL and high bytes.
std::string pattern(size_t n) {
  std::string text;
  for (size_t i = 0; i < n; ++i) text += static_cast<char>((i * 7) % 256);
  return text;
}

TEST(HostRunCommand, CapturesStandardOutputByteExact) {
  TempDir tmp;
  spine_test::write_file(tmp / "bytes", pattern(5000));
  for (size_t n : {0, 1, 511, 512, 513, 1024, 1025, 5000}) {
    unsigned long length = 12345;
    EXPECT_EQ(run_command("head -c " + std::to_string(n) + " " + tmp.path() + "/bytes", &length),
              pattern(n));
    EXPECT_EQ(length, n);
  }
  unsigned long length = 0;
  EXPECT_EQ(run_command("echo out; echo err >&2; exit 3", &length), "out\n");
  EXPECT_EQ(length, 4u);
}

TEST(HostReadFile, RegularMissingAndProcFiles) {
  TempDir tmp;
  spine_test::write_file(tmp / "f", pattern(3000));
  unsigned long length = 0;
  EXPECT_EQ(read_file(tmp / "f", &length), pattern(3000));
  EXPECT_EQ(length, 3000u);
  // Absent files and directories give no text and length 0.
  for (const std::string& path : {tmp / "absent", tmp.path()}) {
    length = 7;
    EXPECT_EQ(read_file(path, &length), "");
    EXPECT_EQ(length, 0u);
  }
  // /proc files report size 0; this one is longer than one 1024-byte piece.
  const std::string expected = spine_test::slurp("/proc/self/mountinfo");
  ASSERT_GT(expected.size(), 1024u);
  EXPECT_EQ(read_file("/proc/self/mountinfo", &length), expected);
  EXPECT_EQ(length, expected.size());
}

TEST(HostShellQuote, HostileTextReachesTheToolUnchanged) {
  TempDir tmp;
  const std::string marker = tmp / "ran";
  const std::string texts[] = {
      "vmnic0",
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
      "*",
      "-n",
      "a|touch " + marker + "&",
      "\\",
      "!$#&<>(){}[]~",
      "\xff\xfe high",
  };
  for (const std::string& text : texts) {
    // Two quoted words: the tool sees exactly two arguments.
    EXPECT_EQ(run_command("printf '[%s]' " + shell_quote(text) + " " + shell_quote(text)),
              "[" + text + "][" + text + "]");
  }
  EXPECT_FALSE(spine_test::exists(marker));
  EXPECT_EQ(shell_quote(std::string("a\0b", 3)), "'ab'");  // NUL cannot travel; dropped
}

TEST(HostMissingToolWarning, NumberedWithAnnotationsInOrder) {
  ztag node("OS");
  node.set_attr("name", zvalue("x"));
  add_missing_tool_warning(&node, "uname", "os", false);
  add_missing_tool_warning(&node, "lsusb", "USB", true);
  EXPECT_EQ(spine_test::text_of(&node),
            "*OS=\nname=x\n"
            "Warning:1=\n~type=package_not_found\n~pkg_name=uname\n~more=os\n"
            "Warning:2=\n~type=package_not_found\n~pkg_name=lsusb\n~missing=USB\n");
}

}  // namespace
