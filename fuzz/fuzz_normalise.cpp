// The normalisation every text value goes through, checked against a
// literal rendering of its three steps, and the properties the file format
// relies on: no line feed is left, and the result is UTF-8 as the decoder
// checks it.
#include "fuzz/fuzz_support.h"
#include "tools/inv_reader.h"
#include "zxml/tag.h"

namespace {

// Step 1, one position at a time: a line feed becomes a carriage return; a
// carriage return deletes the byte after it (the line feed of a CR LF pair
// included: CR LF ends as a lone CR, the library's choice for a pair that
// would otherwise never be resolved).
std::string line_ends(std::string s) {
  size_t from = 0;
  for (;;) {
    const size_t p = s.find_first_of("\r\n", from);
    if (p == std::string::npos) return s;
    if (s[p] == '\n') {
      s[p] = '\r';
    } else if (p + 1 < s.size()) {
      s.erase(p + 1, 1);
    }
    from = p + 1;
  }
}

// Step 2: spaces only; texts of two bytes or more that begin or end with
// one lose their leading spaces, then (when two bytes or more remain) their
// trailing ones, never the first byte.
std::string blanks(std::string s) {
  if (s.size() < 2 || (s.front() != ' ' && s.back() != ' ')) return s;
  while (!s.empty() && s.front() == ' ') s.erase(0, 1);
  if (s.size() < 2) return s;
  while (s.size() > 1 && s.back() == ' ') s.pop_back();
  return s;
}

// Step 3: a byte of 0x80 or more starts a UTF-8 sequence when the number of
// continuation bytes its high bits announce follow it; otherwise it is read
// as Latin-1 (0xFE and 0xFF announce nothing and are always repaired).
std::string encoding(const std::string& s) {
  std::string out;
  for (size_t i = 0; i < s.size();) {
    const unsigned char b = static_cast<unsigned char>(s[i]);
    if (b < 0x80) {
      out += s[i++];
      continue;
    }
    int need = -1;
    if (b >= 0xC0 && b <= 0xDF) need = 1;
    if (b >= 0xE0 && b <= 0xEF) need = 2;
    if (b >= 0xF0 && b <= 0xF7) need = 3;
    if (b >= 0xF8 && b <= 0xFB) need = 4;
    if (b >= 0xFC && b <= 0xFD) need = 5;
    bool valid = need > 0 && i + need < s.size();
    for (int k = 1; valid && k <= need; ++k) {
      valid = (static_cast<unsigned char>(s[i + k]) & 0xC0) == 0x80;
    }
    if (valid) {
      out.append(s, i, need + 1);
      i += need + 1;
    } else if (b < 0xC0) {
      out += '\xC2';
      out += static_cast<char>(b);
      ++i;
    } else {
      out += '\xC3';
      out += static_cast<char>(b - 0x40);
      ++i;
    }
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string got = normalise_text(text);
  const std::string want = encoding(blanks(line_ends(text)));
  if (got != want) fuzz::fail("normalise_text", "differs from the step-by-step rendering");
  if (got.find('\n') != std::string::npos) fuzz::fail("normalise_text", "a line feed is left");
  if (invread::find_invalid_utf8(got) != std::string::npos) {
    fuzz::fail("normalise_text", "not UTF-8 by the decoder's check");
  }
  // A value built from it is stored as it is.
  if (zvalue(text).as_text() != got) fuzz::fail("zvalue", "stores another text");
  return 0;
}
