// Command-line options of the agent.
#ifndef QUILLSCAN_APP_OPTIONS_H_
#define QUILLSCAN_APP_OPTIONS_H_

#include <cstdio>
#include <string>

struct Options {
  bool help = false;
  bool silent = false;
  bool debug = false;
  bool log = false;
  // Cleared by /nocompress; nothing reads it (files are always compressed).
  bool compress = true;
  bool has_ip = false;  // an /ip: option was given (its value may be empty)
  std::string ip;
  std::string login;
  // /current: read the host as current releases print (every reading
  // switch on). Not listed in the help, whose text is fixed.
  bool current = false;
};

// Applies the arguments argv[1..argc-1] in order. Unknown arguments are
// ignored; a help option stops the walk with help set.
Options parse_options(int argc, const char* const* argv);

// Writes the help text.
void print_help(FILE* out);

#endif  // QUILLSCAN_APP_OPTIONS_H_
