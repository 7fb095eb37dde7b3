// Command capture, whole-file reads, the console printer, missing-tool
// warnings and shell quoting.
#include "host/command.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <utility>

#include "host/host_access.h"
#include "zxml/tag.h"

std::string run_command(HostAccess& host, const std::string& cmdline, unsigned long* out_length) {
  HostAccess::CommandResult result = host.run(cmdline);
  if (!result.started) return std::string();
  if (out_length != nullptr) *out_length = result.output.size();
  return std::move(result.output);
}

std::string run_command(const char* cmdline, unsigned long* out_length) {
  return run_command(live_host(), cmdline, out_length);
}

FILE* open_for_reading(const char* path, const char* mode) {
  // O_NONBLOCK only matters for FIFOs and devices: regular files and
  // directories ignore it.
  const int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  FILE* file = fdopen(fd, mode);
  if (file == nullptr) close(fd);
  return file;
}

std::string read_file(HostAccess& host, const std::string& path, unsigned long* out_length) {
  std::string text;
  host.read(path, kMaxReadFileBytes, &text);
  if (out_length != nullptr) *out_length = text.size();
  return text;
}

std::string read_file(const char* path, unsigned long* out_length) {
  return read_file(live_host(), path, out_length);
}

void print_message(const char* format, ...) {
  va_list args;
  va_start(args, format);
  vprintf(format, args);
  va_end(args);
  fflush(stdout);
}

void add_missing_tool_warning(ztag* node, const char* tool_name, const char* what,
                              bool is_missing) {
  const int number = node->next_index("Warning:", false);
  const std::string name = format_string("Warning:%u", static_cast<unsigned>(number));
  zattr* attr = node->set_attr(name, zvalue(""));
  attr->add_meta("type", "package_not_found");
  attr->add_meta("pkg_name", tool_name);
  attr->add_meta(is_missing ? "missing" : "more", what);
}

std::string shell_quote(const std::string& text) {
  // Inside single quotes the shell interprets nothing; a single quote
  // itself is written as '\'' (close, escaped quote, reopen). A NUL byte
  // cannot be part of a command line and is dropped.
  std::string quoted = "'";
  for (char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
    } else if (c != '\0') {
      quoted += c;
    }
  }
  quoted += '\'';
  return quoted;
}
