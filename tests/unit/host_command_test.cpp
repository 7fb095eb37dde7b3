// Command capture, file reads, shell quoting and the raw-text container.
#include <gtest/gtest.h>
#include <unistd.h>

#include "host/command.h"
#include "host/raw_data.h"
#include "test_support.h"

namespace {

// n bytes of a pattern that holds NUL and high bytes.
std::string pattern(size_t n) {
  std::string text;
  for (size_t i = 0; i < n; ++i) text += static_cast<char>((i * 7) % 256);
  return text;
}

// Output and file text byte for byte, across the 512-byte read pieces of
// a pipe and the 1024-byte pieces of a /proc file (which reports size 0).
TEST(HostRunCommand, CapturesOutputAndFilesByteExact) {
  test_support::TempDir tmp;
  test_support::write_file(tmp / "bytes", pattern(5000));
  unsigned long length = 0;
  for (size_t n : {0, 1, 511, 512, 513, 1024, 1025, 5000}) {
    EXPECT_EQ(run_command("head -c " + std::to_string(n) + " " + tmp.path() + "/bytes", &length),
              pattern(n));
    EXPECT_EQ(length, n);
  }
  EXPECT_EQ(run_command("echo out; echo err >&2; exit 3", &length), "out\n");
  EXPECT_EQ(length, 4u);
  for (const std::string& path :
       {tmp / "bytes", tmp / "absent", tmp.path(), std::string("/proc/self/mountinfo")}) {
    const std::string expected = path == tmp.path() ? "" : test_support::slurp(path);
    EXPECT_EQ(read_file(path, &length), expected) << path;
    EXPECT_EQ(length, expected.size());
  }
  EXPECT_GT(length, 1024u) << "the /proc file fits one piece";
}

TEST(HostShellQuote, HostileTextReachesTheToolUnchanged) {
  test_support::TempDir tmp;
  // "@" stands for a command that leaves a mark when a shell runs it.
  for (std::string text :
       {"vmnic0", "", "two words", "a;@", "$(@)", "`@`", "a|@&", "it's", "'", "''\\''", "\"$HOME\"",
        "a\nb", "*", "-n", "\\", "!$#&<>(){}[]~", "\xff"}) {
    if (text.find('@') != std::string::npos)
      text.replace(text.find('@'), 1, "touch " + tmp / "ran");
    // Two quoted words: the tool sees exactly two arguments.
    EXPECT_EQ(run_command("printf '[%s]' " + shell_quote(text) + " " + shell_quote(text)),
              "[" + text + "][" + text + "]");
  }
  EXPECT_NE(access((tmp / "ran").c_str(), F_OK), 0);
  EXPECT_EQ(shell_quote(std::string("a\0b", 3)), "'ab'");  // NUL cannot travel; dropped
}

std::string section(const std::string& title, const std::string& body) {
  return ">>>---Begin of Section: '" + title + "'---<<<\n" + body + "\n>>>---End of Section: '" +
         title + "'---<<<";
}

TEST(HostTextContainer, FirstSectionHasNoFinalNewlineLaterOnesDo) {
  CTextContainer text;
  EXPECT_EQ(text.text(), nullptr);
  text.add_section("A", "one");
  EXPECT_EQ(std::string(text.text()), section("A", "one"));
  text.add_section("B", "");
  text.add_section("C", "three\n");
  const std::string expected =
      section("A", "one") + "\n" + section("B", "") + "\n\n" + section("C", "three\n") + "\n";
  EXPECT_EQ(std::string(text.text()), expected);
  EXPECT_EQ(text.length(), expected.size());
}

}  // namespace
