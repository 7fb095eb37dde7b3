// Command-line options and the help text.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/options.h"

namespace {

Options parse(std::vector<const char*> args) {
  args.insert(args.begin(), "quillscan");
  return parse_options(static_cast<int>(args.size()), args.data());
}

TEST(AppOptions, Spellings) {
  struct Case {
    std::vector<const char*> args;
    bool silent, debug, log, compress;
  };
  const Case cases[] = {
      {{}, false, false, false, true},
      {{"/silent"}, true, false, false, true},
      {{"-silent"}, true, false, false, true},
      {{"/debug", "-log"}, false, true, true, true},
      {{"-debug", "/log", "/silent"}, true, true, true, true},
      {{"/nocompress"}, false, false, false, false},
      {{"-nocompress", "/noname", "-noname"}, false, false, false, false},
      {{"/SILENT"}, false, false, false, true},                          // case-sensitive
      {{"/silently", "silent", "--silent"}, false, false, false, true},  // exact only
      {{"/silent", "/silent"}, true, false, false, true},
  };
  for (const Case& c : cases) {
    const Options o = parse(c.args);
    std::string joined;
    for (const char* a : c.args) joined += std::string(a) + " ";
    EXPECT_FALSE(o.help) << joined;
    EXPECT_EQ(o.silent, c.silent) << joined;
    EXPECT_EQ(o.debug, c.debug) << joined;
    EXPECT_EQ(o.log, c.log) << joined;
    EXPECT_EQ(o.compress, c.compress) << joined;
  }
}

TEST(AppOptions, IpAndLoginValues) {
  Options o = parse({"/silent", "/ip:"});
  EXPECT_TRUE(o.has_ip);  // given but empty: not absent
  EXPECT_EQ(o.ip, "");
  o = parse({"-ip:10.0.0.1", "/ip:192.168.1.5"});
  EXPECT_EQ(o.ip, "192.168.1.5");  // last one wins
  o = parse({"/silent"});
  EXPECT_FALSE(o.has_ip);
  EXPECT_EQ(o.login, "");
  o = parse({"-login:user:x", "-silent"});
  EXPECT_EQ(o.login, "user:x");  // after the first colon only
  o = parse({"/login:a", "/login:"});
  EXPECT_EQ(o.login, "");
  o = parse({"/IP:1.2.3.4", "/login", "-ipx"});
  EXPECT_FALSE(o.has_ip);
  EXPECT_EQ(o.login, "");
}

TEST(AppOptions, HelpStopsTheWalk) {
  for (const auto& args : std::vector<std::vector<const char*>>{
           {"-?"}, {"--help"}, {"/debug", "-?"}, {"-?", "/silent"}, {"/ip:1", "--help", "/ip:2"}}) {
    const Options o = parse(args);
    EXPECT_TRUE(o.help);
    EXPECT_FALSE(o.silent);  // arguments after the help are not looked at
  }
  EXPECT_EQ(parse({"/ip:1", "--help", "/ip:2"}).ip, "1");
  EXPECT_FALSE(parse({"/?", "-help", "-h"}).help);
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
  for (const char* hidden : {"log", "noname", "nocompress", "login"}) {
    EXPECT_EQ(help.find(std::string("/") + hidden), std::string::npos) << hidden;
  }
}

}  // namespace
