// Shared text cuts.
#include "host/text.h"

#include <cstdlib>

#include "zxml/tag.h"

namespace text {

namespace {

// The low 32 bits of v read as a signed 32-bit number (two's complement),
// computed without any out-of-range conversion.
int32_t low32_signed(uint64_t v) {
  const uint32_t low = static_cast<uint32_t>(v);
  if (low <= static_cast<uint32_t>(INT32_MAX)) return static_cast<int32_t>(low);
  return static_cast<int32_t>(static_cast<int64_t>(low) - (INT64_C(1) << 32));
}

}  // namespace

int64_t read_decimal(const std::string& text, size_t pos, Overflow overflow) {
  if (pos >= text.size()) return 0;
  if (overflow == Overflow::kSaturate64) {
    return static_cast<int64_t>(std::strtoll(text.c_str() + pos, nullptr, 10));
  }
  while (pos < text.size() && (text[pos] == ' ' || (text[pos] >= '\t' && text[pos] <= '\r'))) {
    ++pos;
  }
  bool negative = false;
  if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
    negative = text[pos] == '-';
    ++pos;
  }
  uint64_t value = 0;
  while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
    value = value * 10 + static_cast<uint64_t>(text[pos] - '0');  // wraps, never overflows
    ++pos;
  }
  if (negative) value = 0 - value;
  return low32_signed(value);
}

std::vector<std::string> lines_after(const std::string& text, const char* marker,
                                     NoMarker no_marker, LastLine last_line) {
  std::vector<std::string> lines;
  const size_t at = text.find(marker);
  const size_t newline = at == npos ? npos : text.find('\n', at);
  size_t start;
  if (newline != npos) {
    start = newline + 1;
  } else if (no_marker == NoMarker::kFromTop) {
    start = 0;
  } else {
    return lines;
  }
  for (size_t end = text.find('\n', start); end != npos; end = text.find('\n', start)) {
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  if (last_line == LastLine::kCounted && start < text.size()) lines.push_back(text.substr(start));
  return lines;
}

std::vector<std::string> split_fields(const std::string& text, char delimiter) {
  std::vector<std::string> fields;
  size_t pos = 0;
  while (pos < text.size()) {
    const size_t start = text.find_first_not_of(delimiter, pos);
    if (start == npos) break;
    const size_t end = text.find(delimiter, start);
    if (end == npos) {
      fields.push_back(text.substr(start));
      break;
    }
    fields.push_back(text.substr(start, end - start));
    pos = end;
  }
  return fields;
}

std::string upper_ascii(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

std::string lower_ascii(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

void set_text(ztag* node, const char* name, const std::string& value) {
  node->set_attr(name, zvalue(value));
}

}  // namespace text
