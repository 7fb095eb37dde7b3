// Shared by the fuzz targets: a scanner that needs no host, the input cut
// into the texts a parser reads, and the check that every tree a parser
// builds is written as text that the decoder parses back unchanged.
#ifndef QUILLSCAN_FUZZ_FUZZ_SUPPORT_H_
#define QUILLSCAN_FUZZ_FUZZ_SUPPORT_H_

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/scanner.h"
#include "tools/inv_reader.h"
#include "zxml/zXML.h"

namespace fuzz {

// Separates the texts of one input ("vmware -v" output, then "esxcli system
// version get" output, ...). The seed corpus joins real outputs with it.
constexpr char kSeparator[] = "\n--8<--\n";

// The first `count` texts of the input (missing ones are empty); the last
// one runs to the end of the input.
inline std::vector<std::string> split(const uint8_t* data, size_t size, size_t count) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::string separator(kSeparator);
  std::vector<std::string> parts;
  size_t from = 0;
  while (parts.size() + 1 < count) {
    const size_t at = input.find(separator, from);
    if (at == std::string::npos) break;
    parts.push_back(input.substr(from, at - from));
    from = at + separator.size();
  }
  parts.push_back(from <= input.size() ? input.substr(from) : std::string());
  parts.resize(count);
  return parts;
}

// One scanner for the whole run: no tools found, no DHCP check, and the real
// dictionaries.
inline CScaner& scanner() {
  static CScaner* instance = new CScaner(new PKGDetector({}, {}, false), new PortsDictionary());
  return *instance;
}

[[noreturn]] inline void fail(const char* what, const std::string& detail) {
  std::fprintf(stderr, "fuzz check failed: %s: %s\n", what, detail.c_str());
  std::abort();
}

// The document's text form (what is compressed into the file) must be
// measured exactly, parse with the decoder, and read back as the same text.
inline void check_document(const zXML& doc) {
  unsigned long length = 0;
  std::unique_ptr<unsigned char[]> body(doc.serialize(length, false, false));
  if (length < 2 || body[length - 1] != 0 || body[length - 2] != 0) {
    fail("serialize", "no two closing zero bytes");
  }
  const std::string text(reinterpret_cast<const char*>(body.get()), length - 2);
  const size_t measured = doc.root()->text_length(false);
  if (measured != text.size()) {
    fail("text_length", std::to_string(measured) + " != " + std::to_string(text.size()));
  }
  invread::Element top;
  std::vector<invread::Element> more;
  std::string error;
  if (!invread::parse_document(text, &top, &error, &more)) fail("parse_document", error);
  if (invread::document_text(top, &more) != text) fail("document_text", "differs");
}

// Runs fn, letting through only the end the program is specified to take
// for some inputs of this parser: std::string::substr's out-of-range error.
// Anything else thrown is a bug and stops the fuzzer.
template <typename Fn>
void allowing_substr_out_of_range(Fn fn) {
  try {
    fn();
  } catch (const std::out_of_range& e) {
    if (std::string(e.what()).compare(0, 20, "basic_string::substr") != 0) throw;
  }
}

}  // namespace fuzz

#endif  // QUILLSCAN_FUZZ_FUZZ_SUPPORT_H_
