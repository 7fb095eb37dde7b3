// Tool locator construction over a tree of large directories: the single
// pass (each directory read once for all names) against the per-name search
// (each directory read once per name). Prints both times and their ratio.
//
//   bench_locator [directories [entries-per-directory]]
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "host/pkg_detector.h"

namespace {

double seconds_to_construct(const std::vector<std::string>& dirs, PKGDetector::Search search,
                            size_t* records) {
  const auto start = std::chrono::steady_clock::now();
  PKGDetector detector(dirs, PKGDetector::standard_names(), false, search);
  const auto stop = std::chrono::steady_clock::now();
  *records = detector.records().size();
  return std::chrono::duration<double>(stop - start).count();
}

bool same_records(const std::vector<std::string>& dirs) {
  PKGDetector single(dirs, PKGDetector::standard_names(), false, PKGDetector::Search::kSinglePass);
  PKGDetector per_name(dirs, PKGDetector::standard_names(), false, PKGDetector::Search::kPerName);
  if (single.records().size() != per_name.records().size()) return false;
  for (size_t i = 0; i < single.records().size(); ++i) {
    if (single.records()[i].name != per_name.records()[i].name ||
        single.records()[i].path != per_name.records()[i].path) {
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const int dir_count = argc > 1 ? std::max(1, atoi(argv[1])) : 44;
  const int entries = argc > 2 ? std::max(1, atoi(argv[2])) : 2000;

  char pattern[] = "/tmp/qs-bench-XXXXXX";
  if (mkdtemp(pattern) == nullptr) {
    perror("mkdtemp");
    return 1;
  }
  const std::string root = pattern;

  // Directories full of unrelated names, some holding tools (plain or
  // compressed). As on a real host, only some of the names exist at all, so
  // both searches have to read every directory to the end.
  std::mt19937 random(7);
  const std::vector<std::string>& names = PKGDetector::standard_names();
  const std::vector<std::string> present = {"env",   "head",  "ls", "smbiosDump", "df",
                                            "lsusb", "uname", "ps", "iptables",   "route"};
  std::vector<std::string> dirs;
  for (int d = 0; d < dir_count; ++d) {
    const std::string dir = root + "/d" + std::to_string(d);
    dirs.push_back(dir);
    if (mkdir(dir.c_str(), 0755) != 0) {
      perror("mkdir");
      return 1;
    }
    for (int e = 0; e < entries; ++e) {
      std::string name = "lib" + std::to_string(random()) + ".so." + std::to_string(e % 10);
      if (e % 97 == 0) name = present[random() % present.size()] + (e % 2 ? ".gz" : "");
      const int fd = open((dir + "/" + name).c_str(), O_CREAT | O_WRONLY, 0644);
      if (fd >= 0) close(fd);
    }
  }

  if (!same_records(dirs)) {
    fprintf(stderr, "the two searches disagree\n");
    return 1;
  }

  // Best of several runs of each, after the warm-up above.
  size_t records = 0;
  double single = 1e9;
  double per_name = 1e9;
  for (int run = 0; run < 5; ++run) {
    single =
        std::min(single, seconds_to_construct(dirs, PKGDetector::Search::kSinglePass, &records));
    per_name =
        std::min(per_name, seconds_to_construct(dirs, PKGDetector::Search::kPerName, &records));
  }

  printf("tool locator over %d directories x %d entries, %zu names, %zu found\n", dir_count,
         entries, names.size(), records);
  printf("  single pass:     %10.3f ms\n", single * 1e3);
  printf("  per-name search: %10.3f ms\n", per_name * 1e3);
  printf("  ratio:           %10.1fx\n", per_name / single);

  const std::string command = "rm -rf '" + root + "'";
  if (system(command.c_str()) != 0) fprintf(stderr, "cannot remove %s\n", root.c_str());
  return 0;
}
