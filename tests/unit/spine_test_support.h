// Helpers for the host, app, OS and asset-summary tests: temporary
// directories, fake host tools, and the text form of tree nodes.
#ifndef QUILLSCAN_TESTS_UNIT_SPINE_TEST_SUPPORT_H_
#define QUILLSCAN_TESTS_UNIT_SPINE_TEST_SUPPORT_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
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
    const char* made = mkdtemp(pattern);
    EXPECT_NE(made, nullptr);
    path_ = made != nullptr ? made : "/tmp";
  }
  ~TempDir() {
    const std::string command = "rm -rf '" + path_ + "'";
    if (std::system(command.c_str()) != 0) ADD_FAILURE() << "cannot remove " << path_;
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline void write_file(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  ASSERT_TRUE(out.good()) << path;
  out << content;
}

inline std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

inline std::string fixture(const std::string& name) {
  std::ifstream in(std::string(QS_FIXTURES) + "/" + name, std::ios::binary);
  EXPECT_TRUE(in.good()) << name;
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// An executable shell script at path.
inline void write_script(const std::string& path, const std::string& body) {
  write_file(path, "#!/bin/sh\n" + body);
  ASSERT_EQ(chmod(path.c_str(), 0755), 0) << path;
}

inline bool exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

// Sets PATH for the lifetime of the object, so that commands run by bare
// name ("vmware -v", "whoami") find fake tools first.
class ScopedPath {
 public:
  explicit ScopedPath(const std::string& first_dir) {
    const char* old = getenv("PATH");
    had_ = old != nullptr;
    if (had_) old_ = old;
    setenv("PATH", (first_dir + ":/usr/bin:/bin").c_str(), 1);
  }
  ~ScopedPath() {
    if (had_) {
      setenv("PATH", old_.c_str(), 1);
    } else {
      unsetenv("PATH");
    }
  }
  ScopedPath(const ScopedPath&) = delete;
  ScopedPath& operator=(const ScopedPath&) = delete;

 private:
  bool had_ = false;
  std::string old_;
};

// The text form of one node (with its children, closed).
inline std::string text_of(const ztag* node) {
  const size_t n = node->text_length(false);
  std::unique_ptr<char[]> buffer(new char[n + 1]);
  const size_t written = node->write_text(buffer.get(), 0, false, false);
  return std::string(buffer.get(), written);
}

}  // namespace spine_test

#endif  // QUILLSCAN_TESTS_UNIT_SPINE_TEST_SUPPORT_H_
