// Command capture, whole-file reads, the console printer, missing-tool
// warnings, and shell quoting of host-supplied text.
#ifndef QUILLSCAN_HOST_COMMAND_H_
#define QUILLSCAN_HOST_COMMAND_H_

#include <cstddef>
#include <string>

class ztag;

// Runs cmdline through the shell and returns its whole standard output,
// byte-exact (NUL bytes included). *out_length receives the byte count; it
// is left untouched when the command cannot be started.
std::string run_command(const char* cmdline, unsigned long* out_length = nullptr);
inline std::string run_command(const std::string& cmdline, unsigned long* out_length = nullptr) {
  return run_command(cmdline.c_str(), out_length);
}

// Reads a whole file (also /proc files that report size 0). A file that
// cannot be opened gives "" and length 0.
std::string read_file(const char* path, unsigned long* out_length = nullptr);
inline std::string read_file(const std::string& path, unsigned long* out_length = nullptr) {
  return read_file(path.c_str(), out_length);
}

// printf to standard output, then flush.
void print_message(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Adds a "Warning:N" attribute (type=package_not_found, pkg_name=tool, and
// missing=what or more=what) to node.
void add_missing_tool_warning(ztag* node, const char* tool_name, const char* what, bool is_missing);

// Quotes text taken from the host for use as one shell word: the shell
// passes it to the tool unchanged and never interprets any of it.
std::string shell_quote(const std::string& text);

#endif  // QUILLSCAN_HOST_COMMAND_H_
