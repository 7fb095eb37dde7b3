// Command capture, whole-file reads, the console printer, missing-tool
// warnings and shell quoting.
#include "host/command.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdarg>
#include <cstdio>
#include <vector>

#include "zxml/tag.h"

std::string run_command(const char* cmdline, unsigned long* out_length) {
  FILE* pipe = popen(cmdline, "r");
  if (pipe == nullptr) return std::string();
  std::string output;
  char buffer[512];
  unsigned long total = 0;
  // The first piece is appended even when it is empty; later pieces only
  // when something was read. fread() is byte-exact, so NUL bytes survive.
  size_t got = fread(buffer, 1, sizeof buffer, pipe);
  output.append(buffer, got);
  total += got;
  while (!feof(pipe) && !ferror(pipe)) {
    got = fread(buffer, 1, sizeof buffer, pipe);
    if (got == 0) continue;
    output.append(buffer, got);
    total += got;
  }
  pclose(pipe);
  if (out_length != nullptr) *out_length = total;
  return output;
}

std::string read_file(const char* path, unsigned long* out_length) {
  if (out_length != nullptr) *out_length = 0;
  FILE* file = fopen(path, "r");
  if (file == nullptr) return std::string();
  std::string text;
  // Only a regular file has a meaningful end position: a directory reports
  // an arbitrary huge one. Anything else is read in pieces.
  struct stat st;
  const bool regular = fstat(fileno(file), &st) == 0 && S_ISREG(st.st_mode);
  off_t size = -1;
  if (regular && fseeko(file, 0, SEEK_END) == 0) size = ftello(file);
  if (size > 0 && fseeko(file, 0, SEEK_SET) == 0) {
    // A regular file: read it in one go. A file that shrank since its size
    // was taken gives what could be read, never bytes that were not read.
    std::vector<char> buffer(static_cast<size_t>(size) + 1);
    const size_t got = fread(buffer.data(), 1, static_cast<size_t>(size), file);
    text.assign(buffer.data(), got);
  } else {
    // Files that report size 0 (those under /proc) are read in pieces until
    // the end.
    rewind(file);
    char buffer[1025];
    size_t got;
    while ((got = fread(buffer, 1, 1024, file)) > 0) text.append(buffer, got);
  }
  fclose(file);
  if (out_length != nullptr) *out_length = text.size();
  return text;
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
