// Command-line options of the agent.
#include "app/options.h"

#include <cstring>

#include "host/reading.h"

namespace {

bool is_one_of(const char* arg, const char* slash_form, const char* dash_form) {
  return std::strcmp(arg, slash_form) == 0 || std::strcmp(arg, dash_form) == 0;
}

bool has_prefix(const char* arg, const char* prefix) {
  return std::strncmp(arg, prefix, std::strlen(prefix)) == 0;
}

}  // namespace

Options parse_options(int argc, const char* const* argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    if (is_one_of(arg, "-?", "--help")) {
      options.help = true;
      return options;  // later arguments are not looked at
    }
    if (is_one_of(arg, "/silent", "-silent")) {
      options.silent = true;
    } else if (is_one_of(arg, "/debug", "-debug")) {
      options.debug = true;
    } else if (is_one_of(arg, "/log", "-log")) {
      options.log = true;
    } else if (has_prefix(arg, "/ip:") || has_prefix(arg, "-ip:")) {
      options.has_ip = true;
      options.ip = arg + 4;
    } else if (is_one_of(arg, "/noname", "-noname")) {
      // accepted, no effect
    } else if (is_one_of(arg, "/nocompress", "-nocompress")) {
      // Compat: nothing reads it; the file is always compressed
      // (test_spine, test_second_third_and_fourth_scan).
      options.compress = false;
    } else if (has_prefix(arg, "/login:") || has_prefix(arg, "-login:")) {
      // Everything after the first colon; the value may hold colons itself.
      options.login = std::strchr(arg, ':') + 1;
    } else if (is_current_option(arg)) {
      options.current = true;
    }
  }
  return options;
}

void print_help(FILE* out) {
  fputs("Copyright (C) 2009-2018 Larkspur Census. All rights reserved.\n", out);
  fputs("Larkspur Census's ESXi Agent\n", out);
  fputs("Usage: quillscan [OPTION...]\n", out);
  fputs("-ip:[ipaddr],\t\t/ip:[ipaddr]\t\tSet Current IP Address\n", out);
  fputs("--help,\t\t\t-?\t\t\tShow this help message\n", out);
  fputs("-debug,\t\t\t/debug\t\t\tSave offline scan result in raw format to send to support\n",
        out);
  fputs("-silent,\t\t/silent\t\t\tStart offline scan without output to console\n", out);
  fputs("\n\n", out);
  fputs("For additional information contact us: support@larkspur-census.example\n", out);
  fputs(
      "Visit our site: https://www.larkspur-census.example & forum: "
      "https://forum.larkspur-census.example\n",
      out);
}
