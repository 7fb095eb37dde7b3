// Helpers of the storage, machine and disk tests: a scanner without host
// tools and a scratch directory; subtree text and fixtures come from
// hw_tree_text.h.
#ifndef QUILLSCAN_TESTS_UNIT_STORAGE_TEST_UTIL_H_
#define QUILLSCAN_TESTS_UNIT_STORAGE_TEST_UTIL_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "app/scanner.h"
#include "hw_tree_text.h"

namespace storage_test {

using hw_test::read_fixture;
using hw_test::tree_text;

inline std::unique_ptr<CScaner> make_scanner() {
  return std::make_unique<CScaner>(new PKGDetector({}, {}, false), new PortsDictionary());
}

// A scratch directory, removed with everything in it at the end.
class TempDir {
 public:
  TempDir() {
    char name[] = "/tmp/qs-storage-test-XXXXXX";
    if (mkdtemp(name) != nullptr) path_ = name;
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string dir() const { return path_ + "/"; }
  // Writes text to a file; a larger size extends it sparsely.
  void write(const std::string& name, const std::string& text, off_t size = -1) const {
    std::ofstream(dir() + name, std::ios::binary) << text;
    if (size >= 0) {
      EXPECT_EQ(truncate((dir() + name).c_str(), size), 0) << name;
    }
  }
  void mkdir(const std::string& name) const { std::filesystem::create_directories(dir() + name); }

 private:
  std::string path_;
};

}  // namespace storage_test

#endif  // QUILLSCAN_TESTS_UNIT_STORAGE_TEST_UTIL_H_
