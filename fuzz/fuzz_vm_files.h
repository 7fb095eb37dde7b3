// A scratch directory for the targets that read machine files: the parsers
// take paths, so each input is written there first.
#ifndef QUILLSCAN_FUZZ_FUZZ_VM_FILES_H_
#define QUILLSCAN_FUZZ_FUZZ_VM_FILES_H_

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "host/command.h"

namespace fuzz {

// The directory, made once per process and removed (with what it holds)
// when the process ends.
inline const std::string& scratch_dir() {
  // Never destroyed: the exit handler below still needs it.
  static const std::string* dir = [] {
    const char* base = std::getenv("TMPDIR");
    std::string pattern =
        std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/qs-fuzz-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (mkdtemp(name.data()) == nullptr) fail("mkdtemp", "cannot make a scratch directory");
    std::atexit([] {
      const std::string command = "rm -rf -- " + shell_quote(scratch_dir());
      if (std::system(command.c_str()) != 0)
        std::fprintf(stderr, "cannot run %s\n", command.c_str());
    });
    return new std::string(name.data());
  }();
  return *dir;
}

inline std::string write_scratch(const std::string& name, const std::string& content) {
  const std::string path = scratch_dir() + "/" + name;
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) fail("fopen", path);
  if (!content.empty() && std::fwrite(content.data(), 1, content.size(), f) != content.size()) {
    fail("fwrite", path);
  }
  std::fclose(f);
  return path;
}

// The machine collector reports its progress on standard output; the
// fuzzer's own output goes to standard error.
inline void silence_stdout() {
  const int null_fd = open("/dev/null", O_WRONLY);
  if (null_fd >= 0) {
    dup2(null_fd, STDOUT_FILENO);
    close(null_fd);
  }
}

}  // namespace fuzz

#endif  // QUILLSCAN_FUZZ_FUZZ_VM_FILES_H_
