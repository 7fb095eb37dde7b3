// Shared pieces of the storage, machine and disk tests: a scanner without
// host tools, the text form of a subtree, and scratch directories.
#ifndef QUILLSCAN_TESTS_UNIT_STORAGE_TEST_UTIL_H_
#define QUILLSCAN_TESTS_UNIT_STORAGE_TEST_UTIL_H_

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "app/scanner.h"
#include "zxml/tag.h"

namespace storage_test {

inline std::unique_ptr<CScaner> make_scanner() {
  return std::make_unique<CScaner>(new PKGDetector({}, {}, false), new PortsDictionary());
}

// The serialized lines of one node and everything below it.
inline std::string dump(const ztag* node) {
  std::vector<char> buffer(node->text_length(false) + 1, '\0');
  const size_t n = node->write_text(buffer.data(), 0, false, false);
  return std::string(buffer.data(), n);
}

inline std::string read_fixture(const std::string& relative) {
  std::string text;
  FILE* f = std::fopen((std::string(QS_FIXTURES) + "/" + relative).c_str(), "rb");
  if (f == nullptr) return text;
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
  std::fclose(f);
  return text;
}

// A scratch directory removed (with its files) when the object goes away.
class TempDir {
 public:
  TempDir() {
    char name[] = "/tmp/qs_storage_XXXXXX";
    path_ = mkdtemp(name) != nullptr ? name : "";
  }
  ~TempDir() {
    for (const std::string& f : files_) unlink(f.c_str());
    for (auto it = dirs_.rbegin(); it != dirs_.rend(); ++it) rmdir(it->c_str());
    rmdir(path_.c_str());
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string dir() const { return path_ + "/"; }

  std::string mkdir(const std::string& name) {
    const std::string p = path_ + "/" + name;
    ::mkdir(p.c_str(), 0755);
    dirs_.push_back(p);
    return p;
  }
  // Writes text to a file; a size larger than the text extends it sparsely.
  std::string write(const std::string& name, const std::string& text, off_t size = -1) {
    const std::string p = path_ + "/" + name;
    FILE* f = std::fopen(p.c_str(), "wb");
    if (f != nullptr) {
      std::fwrite(text.data(), 1, text.size(), f);
      std::fclose(f);
    }
    if (size >= 0) truncate(p.c_str(), size);
    files_.push_back(p);
    return p;
  }

 private:
  std::string path_;
  std::vector<std::string> files_;
  std::vector<std::string> dirs_;
};

}  // namespace storage_test

#endif  // QUILLSCAN_TESTS_UNIT_STORAGE_TEST_UTIL_H_
