// Command-line options and the help text.
#include <gtest/gtest.h>

#include <algorithm>

#include "app/options.h"

namespace {

Options parse(std::vector<const char*> args) {
  args.insert(args.begin(), "quillscan");
  return parse_options(static_cast<int>(args.size()), args.data());
}

// help silent debug log compress has_ip | ip | login
std::string summary(const Options& o) {
  std::string flags;
  for (bool b : {o.help, o.silent, o.debug, o.log, o.compress, o.has_ip}) flags += b ? '1' : '0';
  return flags + "|" + o.ip + "|" + o.login;
}

TEST(AppOptions, SpellingsValuesAndHelp) {
  const std::pair<std::vector<const char*>, const char*> cases[] = {
      {{}, "000010||"},
      {{"/silent", "-debug", "/log"}, "011110||"},
      {{"-silent", "/debug", "-log"}, "011110||"},
      {{"/nocompress", "/noname", "-noname"}, "000000||"},
      {{"-nocompress"}, "000000||"},
      {{"/SILENT", "/silently", "silent", "--silent"}, "000010||"},  // exact, case-sensitive
      {{"/silent", "/ip:"}, "010011||"},                             // given but empty
      {{"-ip:10.0.0.1", "/ip:192.168.1.5"}, "000011|192.168.1.5|"},  // last one wins
      {{"-login:user:x", "-silent"}, "010010||user:x"},              // after the first colon
      {{"/login:a", "/login:"}, "000010||"},
      {{"/IP:1.2.3.4", "/login", "-ipx", "/?", "-h"}, "000010||"},
      // A help option ends the walk: later arguments are not looked at.
      {{"-?"}, "100010||"},
      {{"/ip:1", "/debug", "--help", "/ip:2", "/silent"}, "101011|1|"},
  };
  for (const auto& c : cases) EXPECT_EQ(summary(parse(c.first)), c.second) << c.second;
}

TEST(AppOptions, HelpText) {
  char* text = nullptr;
  size_t size = 0;
  FILE* out = open_memstream(&text, &size);
  print_help(out);
  fclose(out);
  const std::string help(text, size);
  free(text);
  const std::string middle =
      "Larkspur Census's ESXi Agent\n"
      "Usage: quillscan [OPTION...]\n"
      "-ip:[ipaddr],\t\t/ip:[ipaddr]\t\tSet Current IP Address\n"
      "--help,\t\t\t-?\t\t\tShow this help message\n"
      "-debug,\t\t\t/debug\t\t\tSave offline scan result in raw format to send to support\n"
      "-silent,\t\t/silent\t\t\tStart offline scan without output to console\n"
      "\n\nFor additional information contact us: ";
  const size_t at = help.find(middle);
  ASSERT_NE(at, std::string::npos) << help;
  EXPECT_EQ(help.find('\n'), at - 1) << "one banner line first";
  const std::string tail = help.substr(at + middle.size());
  EXPECT_EQ(std::count(tail.begin(), tail.end(), '\n'), 2) << tail;
  EXPECT_NE(tail.find("\nVisit our site: "), std::string::npos);
  EXPECT_NE(tail.find(" & forum: "), std::string::npos);
}

}  // namespace
