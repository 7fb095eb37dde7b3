// Line splitting shared by the system collectors: the text is cut at "\n"
// and only lines that end with "\n" are handed on; a last line without a
// line end is ignored, so a half-written file or a truncated tool output
// never yields a half-read record.
#ifndef QUILLSCAN_COLLECTORS_SYSTEM_TEXT_LINES_H_
#define QUILLSCAN_COLLECTORS_SYSTEM_TEXT_LINES_H_

#include <cstddef>
#include <string>

// Calls fn(line) for every complete line of text, starting at `from`, in
// order; the "\n" is not part of the line.
template <typename Fn>
void for_each_complete_line(const std::string& text, Fn fn, size_t from = 0) {
  size_t start = from;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) break;
    fn(text.substr(start, end - start));
    start = end + 1;
  }
}

#endif  // QUILLSCAN_COLLECTORS_SYSTEM_TEXT_LINES_H_
