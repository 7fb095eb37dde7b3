// Helpers for the host, app, OS and asset-summary tests: temporary
// directories, fake host tools, and the text form of tree nodes.
#ifndef QUILLSCAN_TESTS_UNIT_SPINE_TEST_SUPPORT_H_
#define QUILLSCAN_TESTS_UNIT_SPINE_TEST_SUPPORT_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "zxml/tag.h"

namespace spine_test {

// A fresh directory under /tmp, removed with everything in it.
class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/qs-unit-XXXXXX";
    path_ = mkdtemp(pattern) != nullptr ? pattern : "";
    EXPECT_FALSE(path_.empty());
  }
  ~TempDir() { EXPECT_EQ(std::system(("rm -rf '" + path_ + "'").c_str()), 0); }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.good()) << path;
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

inline std::string fixture(const std::string& name) {
  return slurp(std::string(QS_FIXTURES) + "/esxi-samples/" + name);
}

inline void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

// An executable shell script at path.
inline void write_script(const std::string& path, const std::string& body) {
  write_file(path, "#!/bin/sh\n" + body);
  EXPECT_EQ(chmod(path.c_str(), 0755), 0) << path;
}

inline bool exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

// Puts first_dir at the head of PATH while it lives, so that commands run
// by bare name ("vmware -v", "whoami") find fake tools.
class ScopedPath {
 public:
  explicit ScopedPath(const std::string& first_dir)
      : old_(getenv("PATH") != nullptr ? getenv("PATH") : "/usr/bin:/bin") {
    setenv("PATH", (first_dir + ":/usr/bin:/bin").c_str(), 1);
  }
  ~ScopedPath() { setenv("PATH", old_.c_str(), 1); }

 private:
  std::string old_;
};

// The text form of one node (with its children, closed).
inline std::string text_of(const ztag* node) {
  std::unique_ptr<char[]> buffer(new char[node->text_length(false) + 1]);
  return std::string(buffer.get(), node->write_text(buffer.get(), 0, false, false));
}

}  // namespace spine_test

#endif  // QUILLSCAN_TESTS_UNIT_SPINE_TEST_SUPPORT_H_
