// The unit tests' shared helpers: a temporary directory, fake host tools,
// fixtures and the text form of tree nodes.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "zxml/zXML.h"

namespace test_support {

// A fresh directory under /tmp, removed with everything in it.
struct TempDir {
  char path_[20] = "/tmp/qs-unit-XXXXXX";
  TempDir() { EXPECT_NE(mkdtemp(path_), nullptr); }
  ~TempDir() { EXPECT_EQ(std::system(("rm -rf '" + path() + "'").c_str()), 0); }
  std::string path() const { return path_; }
  std::string operator/(const std::string& name) const { return path() + "/" + name; }
};

inline std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

inline void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

// An executable shell script at path (its directory is made if missing).
inline void write_script(const std::string& path, const std::string& body) {
  mkdir(path.substr(0, path.rfind('/')).c_str(), 0755);
  write_file(path, "#!/bin/sh\n" + body);
  EXPECT_EQ(chmod(path.c_str(), 0755), 0) << path;
}

// Puts dir at the head of PATH while it lives, so that commands run by
// bare name ("vmware -v", "whoami") find fake tools.
struct ScopedPath {
  const std::string old = getenv("PATH") != nullptr ? getenv("PATH") : "/usr/bin:/bin";
  explicit ScopedPath(const std::string& dir) { setenv("PATH", (dir + ":" + old).c_str(), 1); }
  ~ScopedPath() { setenv("PATH", old.c_str(), 1); }
};

// The text form of a node; the measured length must be what is written (the
// buffer has room to spare so that a short measure fails the check cleanly).
inline std::string text_of(const ztag& node, bool header_only = false) {
  const size_t n = node.text_length(header_only);
  std::unique_ptr<char[]> buf(new char[n + 4096]);
  EXPECT_EQ(node.write_text(buf.get(), 0, false, header_only), n);
  return std::string(buf.get(), n);
}

// The same for a node that may be missing ("" then).
inline std::string tree_text(const ztag* node) {
  return node == nullptr ? std::string() : text_of(*node);
}

// The text of branch `name` ("" if missing) after fill has written into
// the top of a fresh snapshot.
template <typename Fill>
std::string branch_text(const char* name, const Fill& fill) {
  zXML doc(true, "Snapshot");
  fill(doc.top());
  return tree_text(doc.top()->find_child(name));
}

// A real tool output from tests/fixtures/esxi-samples.
inline std::string fixture(const std::string& name) {
  return slurp(std::string(QS_FIXTURES) + "/esxi-samples/" + name);
}

}  // namespace test_support
