// Helpers shared by the container and decoder tests: scratch directories,
// whole-file I/O, hand-assembled .inv images and running the decoder.
#ifndef QUILLSCAN_TESTS_UNIT_INV_TEST_UTIL_H_
#define QUILLSCAN_TESTS_UNIT_INV_TEST_UTIL_H_

#include <sys/wait.h>
#include <zlib.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "zxml/tag.h"

namespace invtest {

// A fresh directory under /tmp, removed with its files at the end.
class ScratchDir {
 public:
  ScratchDir() {
    char tmpl[] = "/tmp/qs_inv_test_XXXXXX";
    const char* made = mkdtemp(tmpl);
    path_ = made != nullptr ? made : "/tmp";
  }
  ~ScratchDir() {
    const std::string cmd = "rm -rf '" + path_ + "'";
    if (path_ != "/tmp") (void)std::system(cmd.c_str());
  }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

inline std::string read_all(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

inline void write_all(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// zlib level 9 of text, made with zlib's one-shot call (independent of the
// library under test).
inline std::string zlib(const std::string& text) {
  uLongf n = compressBound(text.size());
  std::string out(n, '\0');
  compress2(reinterpret_cast<Bytef*>(&out[0]), &n, reinterpret_cast<const Bytef*>(text.data()),
            text.size(), 9);
  out.resize(n);
  return out;
}

inline std::string doc_body(const std::string& text) {
  return zlib(text) + std::string("\x00\x01ZXML", 6);
}

// An .inv image from (header block lines after "[i]", body) pairs, with the
// offsets filled in; block text uses "%O" and "%L" for offset and length.
inline std::string assemble(const std::vector<std::pair<std::string, std::string>>& records,
                            int snapshotcount, bool little_endian = true) {
  std::string bodies, header = "[H]\ncount=" + std::to_string(records.size()) +
                               "\nsnapshotcount=" + std::to_string(snapshotcount) + "\n";
  for (size_t i = 0; i < records.size(); ++i) {
    std::string block = records[i].first;
    for (auto& key :
         {std::make_pair(std::string("%O"), std::to_string(bodies.size())),
          std::make_pair(std::string("%L"), std::to_string(records[i].second.size()))}) {
      for (size_t at = block.find(key.first); at != std::string::npos; at = block.find(key.first)) {
        block.replace(at, 2, key.second);
      }
    }
    header += "[" + std::to_string(i) + "]\n" + block;
    bodies += records[i].second;
  }
  std::string trailer(14, '\0');
  const unsigned long long pos = bodies.size();
  for (int i = 0; i < 8; ++i)
    trailer[little_endian ? i : 7 - i] = static_cast<char>(pos >> (8 * i));
  trailer[8] = 3;
  trailer[9] = 1;
  trailer.replace(10, 4, "INV!");
  return bodies + header + trailer;
}

inline const char* kAssetBlock = "offset=%O\nlength=%L\ntype=assetinfo\n";
inline const char* kSnapshotBlock =
    "offset=%O\nlength=%L\ntype=snapshot\ntimestamp=20140312101500.000000+180\nsnaptype=esx:1\n";
inline const char* kRawBlock = "offset=%O\nlength=%L\ntype=customdata\nID=rawdata\n";

// Random trees: names and values of every kind, annotations everywhere,
// deep and wide nesting. The measured length must equal the bytes written.
inline void grow(ztag* node, std::mt19937& rng, int depth) {
  std::uniform_int_distribution<int> pick(0, 99);
  const char* texts[] = {"",         " ",   "  padded  ", "a\nb\r\nc\rd", "caf\xE9", "\xE2\x82\xAC",
                         "\xFF\xFE", "x=y", "~tilde"};
  auto text = [&]() { return std::string(texts[pick(rng) % 9]) + std::to_string(pick(rng)); };
  auto value = [&]() {
    const int k = pick(rng) % 6;
    if (k == 0) return zvalue();
    if (k == 1) return zvalue(pick(rng) % 2 == 0);
    if (k == 2) return zvalue(static_cast<int64_t>(rng()) * (pick(rng) - 50) * 997);
    if (k == 3) return zvalue((static_cast<double>(rng()) - 2e9) / 7.0);
    if (k == 4) return zvalue(std::exp(pick(rng) * 7.0) * (pick(rng) - 50));
    return zvalue(text());
  };
  // Annotations are stored unchanged: give them text that is already fit
  // for the file (no line feed, UTF-8).
  auto note = [&]() { return normalise_text(text()); };
  const int metas = pick(rng) % 3;
  for (int i = 0; i < metas; ++i) node->add_meta("k" + note(), note());
  if (pick(rng) < 30) node->set_value(value());
  const int attrs = pick(rng) % 6;
  for (int i = 0; i < attrs; ++i) {
    zattr* a = node->set_attr("a" + std::to_string(pick(rng) % 5), value(),
                              pick(rng) < 30 ? "pos" : nullptr, "p");
    if (pick(rng) < 20) a->add_meta("units", note());
  }
  if (depth < 5) {
    const int children = pick(rng) % (depth == 0 ? 8 : 4);
    for (int i = 0; i < children; ++i) {
      grow(node->child(format_string("c:%d", node->next_index("c:", true))), rng, depth + 1);
    }
  }
}

struct Run {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs the decoder with the given (already shell-quoted) arguments.
inline Run run_decoder(const ScratchDir& dir, const std::string& args) {
  Run r;
  const std::string out = dir.file("stdout"), err = dir.file("stderr");
  const std::string cmd =
      std::string("'") + QS_DECODER_PATH + "' " + args + " >'" + out + "' 2>'" + err + "'";
  const int rc = std::system(cmd.c_str());
  r.status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
  r.out = read_all(out);
  r.err = read_all(err);
  return r;
}

}  // namespace invtest

#endif  // QUILLSCAN_TESTS_UNIT_INV_TEST_UTIL_H_
