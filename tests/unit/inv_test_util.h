// Helpers shared by the tree, container and decoder tests.
#ifndef QUILLSCAN_TESTS_UNIT_INV_TEST_UTIL_H_
#define QUILLSCAN_TESTS_UNIT_INV_TEST_UTIL_H_

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <zlib.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "test_support.h"
#include "zxml/zXML.h"

namespace invtest {

const std::string kStart = "\xEF\xBB\xBF?zxml\n";  // byte order mark and "?zxml" line

// A fresh directory under /tmp, removed with its files at the end.
struct ScratchDir {
  char path[32] = "/tmp/qs_inv_test_XXXXXX";
  ScratchDir() { EXPECT_NE(mkdtemp(path), nullptr); }
  ~ScratchDir() { (void)std::system(("rm -rf '" + std::string(path) + "'").c_str()); }
  std::string file(const std::string& name) const { return path + ("/" + name); }
};

inline constexpr auto& read_all = test_support::slurp;
inline constexpr auto& write_all = test_support::write_file;

using test_support::text_of;

// A document body as the container stores it.
inline std::string body(const zXML& doc, bool compressed) {
  unsigned long n = 0;
  std::unique_ptr<unsigned char[]> b(doc.serialize(n, false, compressed));
  return std::string(reinterpret_cast<char*>(b.get()), n);
}

// zlib level 9 by zlib's one-shot call, independent of the code under test.
inline std::string zlib(const std::string& text) {
  uLongf n = compressBound(text.size());
  std::string out(n, '\0');
  compress2(reinterpret_cast<Bytef*>(&out[0]), &n, reinterpret_cast<const Bytef*>(text.data()),
            text.size(), 9);
  return out.substr(0, n);
}

inline std::string doc_body(const std::string& text) {
  return zlib(text) + std::string("\x00\x01ZXML", 6);
}

// An .inv image of (type lines, body) records: each header block is
// "[i]", its offset and length, then the type lines; the trailer has the
// header position in the given byte order and the write flag set.
inline std::string assemble(const std::vector<std::pair<std::string, std::string>>& records,
                            int snapshotcount, bool little_endian = true) {
  std::string bodies, header = "[H]\ncount=" + std::to_string(records.size()) +
                               "\nsnapshotcount=" + std::to_string(snapshotcount) + "\n";
  for (size_t i = 0; i < records.size(); ++i) {
    header += format_string("[%zu]\noffset=%zu\nlength=%zu\n", i, bodies.size(),
                            records[i].second.size()) +
              records[i].first;
    bodies += records[i].second;
  }
  std::string trailer = std::string(8, '\0') + "\x03\x01INV!";
  for (int i = 0; i < 8; ++i) {
    trailer[little_endian ? i : 7 - i] = static_cast<char>(uint64_t{bodies.size()} >> (8 * i));
  }
  return bodies + header + trailer;
}

const char* const kAsset = "type=assetinfo\n";
const char* const kRaw = "type=customdata\nID=rawdata\n";

// Grows a random tree: values of every kind, texts that need normalising,
// annotations on elements and attributes, five levels deep.
inline void grow(ztag* node, std::mt19937& rng, int depth) {
  auto pick = [&](int n) { return static_cast<int>(rng() % n); };
  const char* texts[] = {"",     " ", "  pad  ", "a\nb\r\nc\rd", "caf\xE9", "\xE2\x82\xAC",
                         "\xFF", "="};
  auto text = [&]() { return texts[pick(8)] + std::to_string(pick(100)); };
  const zvalue values[] = {zvalue(),      zvalue(true),   zvalue(-1234567890123),
                           zvalue(1e300), zvalue(-2.675), zvalue(text())};
  for (int i = pick(3); i > 0; --i) node->add_meta("k", normalise_text(text()));  // stored as given
  if (pick(3) == 0) node->set_value(values[pick(6)]);
  for (int i = pick(6); i > 0; --i) {
    zattr* a =
        node->set_attr("a" + std::to_string(pick(5)), values[pick(6)], pick(3) ? nullptr : "p", "");
    if (pick(5) == 0) a->add_meta("units", normalise_text(text()));
  }
  for (int i = depth < 5 ? pick(depth == 0 ? 8 : 4) : 0; i > 0; --i) {
    grow(node->child(format_string("c:%d", node->next_index("c:", true))), rng, depth + 1);
  }
}

// Runs the decoder with the given (already shell-quoted) arguments; returns
// "status|standard output|standard error".
inline std::string run_decoder(const ScratchDir& dir, const std::string& args) {
  const std::string out = dir.file("stdout"), err = dir.file("stderr");
  const int rc = std::system(
      (std::string("'") + QS_DECODER_PATH + "' " + args + " >" + out + " 2>" + err).c_str());
  return std::to_string(WIFEXITED(rc) ? WEXITSTATUS(rc) : -1) + "|" + read_all(out) + "|" +
         read_all(err);
}

}  // namespace invtest

#endif  // QUILLSCAN_TESTS_UNIT_INV_TEST_UTIL_H_
