// The cuts every collector makes in host text: decimal numbers, the lines
// of a table below its header, blank-separated fields, ASCII-only case
// changes. Each behaviour the output depends on is an explicit parameter,
// so two collectors that read alike use one function and two that read
// differently say how.
#ifndef QUILLSCAN_HOST_TEXT_H_
#define QUILLSCAN_HOST_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class ztag;

namespace text {

constexpr size_t npos = std::string::npos;

// How a decimal reader treats a number beyond its range.
enum class Overflow {
  kWrap32,      // keep the low 32 bits, read as signed (atoi on the host)
  kSaturate64,  // stop at the nearest 64-bit limit (strtoll)
};
// A decimal number at `pos`: leading white space, an optional sign, then
// digits; 0 when there are none.
int64_t read_decimal(const std::string& text, size_t pos, Overflow overflow);

// The marker that ends a tool's table header: esxcli underlines columns
// with dashes, and collectors look for either two or three of them.
constexpr const char kTwoDashes[] = "--";
constexpr const char kThreeDashes[] = "---";
// Without the marker (or without a line end after it): no lines, or the
// lines from the top of the text (the header read as a row).
enum class NoMarker { kNoLines, kFromTop };
// Whether text after the last "\n" is a line.
enum class LastLine { kIgnored, kCounted };
// The lines that follow the line holding the first `marker` (the line
// containing the marker itself is skipped; "" as the marker skips the
// first line).
std::vector<std::string> lines_after(const std::string& text, const char* marker,
                                     NoMarker no_marker, LastLine last_line);

// Calls fn(line) for every line of text from `from`; the "\n" is not part
// of the line. A last line without "\n" is read when `last` counts it.
template <typename Fn>
void for_each_line(const std::string& text, LastLine last, Fn fn, size_t from = 0) {
  size_t start = from;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == npos) {
      if (last == LastLine::kIgnored) break;
      end = text.size();
    }
    fn(text.substr(start, end - start));
    start = end + 1;
  }
}

// The same for lines that end with "\n": a half-written last line is not read.
template <typename Fn>
void for_each_complete_line(const std::string& text, Fn fn, size_t from = 0) {
  for_each_line(text, LastLine::kIgnored, fn, from);
}

// Fields of text separated by runs of delimiter. Leading delimiters are
// skipped; the text after the last delimiter is the last field when it is
// not empty.
std::vector<std::string> split_fields(const std::string& text, char delimiter);

// Case changes of ASCII letters only; every other byte is kept, whatever
// the C library's locale says.
std::string upper_ascii(std::string text);
std::string lower_ascii(std::string text);

inline bool contains(const std::string& text, const char* part) {
  return text.find(part) != npos;
}

// Sets a text attribute.
void set_text(ztag* node, const char* name, const std::string& value);

}  // namespace text

#endif  // QUILLSCAN_HOST_TEXT_H_
