// Command capture, whole-file reads, the console printer, missing-tool
// warnings, and shell quoting of host-supplied text.
#ifndef QUILLSCAN_HOST_COMMAND_H_
#define QUILLSCAN_HOST_COMMAND_H_

#include <cstddef>
#include <cstdio>
#include <string>

class HostAccess;
class ztag;

// Runs cmdline through the shell and returns its whole standard output,
// byte-exact (NUL bytes included). *out_length receives the byte count; it
// is left untouched when the command cannot be started.
std::string run_command(HostAccess& host, const std::string& cmdline,
                        unsigned long* out_length = nullptr);
// The same on the live host.
std::string run_command(const char* cmdline, unsigned long* out_length = nullptr);
inline std::string run_command(const std::string& cmdline, unsigned long* out_length = nullptr) {
  return run_command(cmdline.c_str(), out_length);
}

// Opens a host file for reading (mode "r" or "rb") without waiting: a FIFO
// that nobody writes to reads as empty instead of blocking the scan, and a
// terminal does not become the agent's controlling terminal. Null when the
// file cannot be opened.
FILE* open_for_reading(const char* path, const char* mode = "r");

// Largest amount read_file reads from one file. The files the agent reads
// are a few kilobytes; a path that leads elsewhere (a device such as
// /dev/zero that never ends, a virtual disk of a terabyte) must not take
// the scan's memory or time.
constexpr unsigned long kMaxReadFileBytes = 64ul << 20;

// Reads a whole file (also /proc files that report size 0), up to
// kMaxReadFileBytes. A file that cannot be opened gives "" and length 0.
std::string read_file(HostAccess& host, const std::string& path,
                      unsigned long* out_length = nullptr);
// The same on the live host.
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
