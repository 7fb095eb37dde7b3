// Helpers shared by the container and decoder tests: scratch directories,
// whole-file I/O, hand-assembled .inv images and running the decoder.
#ifndef QUILLSCAN_TESTS_UNIT_INV_TEST_UTIL_H_
#define QUILLSCAN_TESTS_UNIT_INV_TEST_UTIL_H_

#include <sys/wait.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

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
