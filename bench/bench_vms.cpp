// How the agent's own cost grows with the number of registered machines.
//
// Scans the generated host sim/hosts/gen-vms with 256 and with 1,024
// machines (8 datastores) and reports, for each, the agent's own CPU time
// (user + system of the scanning process alone; the host tools it runs are
// separate processes and are not counted) and its peak resident memory, then
// the growth from 256 to 1,024 machines.
//
// Each measurement runs this program a second time inside the simulated host
// ("--inner"), where it performs one complete scan in-process and writes its
// figures to a file in the working directory.
//
//   bench_vms                 run from the source tree (as "make bench" does)
//   QS_SOURCE_DIR=... bench_vms
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "app/scanner.h"
#include "host/command.h"

namespace fs = std::filesystem;

namespace {

constexpr int kRepeats = 3;

long long micros(const timeval& t) {
  return t.tv_sec * 1000000LL + t.tv_usec;
}

// VmHWM (peak resident set) of this process in kB, from /proc.
long long peak_rss_kb() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, 6, "VmHWM:") == 0) return std::atoll(line.c_str() + 6);
  }
  return -1;
}

// Inside the simulated host: one full scan, figures to bench.txt.
int inner() {
  // As in a silent run of the agent, standard error (and with it that of
  // every tool the scan starts) goes nowhere.
  if (std::freopen("/dev/null", "w", stderr) == nullptr) return 1;
  const long long base_kb = peak_rss_kb();
  rusage before_self{}, before_children{};
  getrusage(RUSAGE_SELF, &before_self);
  getrusage(RUSAGE_CHILDREN, &before_children);
  const auto start = std::chrono::steady_clock::now();
  {
    CScaner scanner;
    run_scan(&scanner, true, false, false, nullptr, "", false);
  }
  const auto end = std::chrono::steady_clock::now();
  rusage self{}, children{};
  getrusage(RUSAGE_SELF, &self);
  getrusage(RUSAGE_CHILDREN, &children);
  std::ofstream out("bench.txt");
  out << "self_us "
      << (micros(self.ru_utime) - micros(before_self.ru_utime)) +
             (micros(self.ru_stime) - micros(before_self.ru_stime))
      << "\nchildren_us "
      << (micros(children.ru_utime) - micros(before_children.ru_utime)) +
             (micros(children.ru_stime) - micros(before_children.ru_stime))
      << "\nwall_ms " << std::chrono::duration_cast<std::chrono::milliseconds>(end - start).count()
      << "\nbase_kb " << base_kb << "\npeak_kb " << peak_rss_kb() << "\n";
  return out ? 0 : 1;
}

struct Figures {
  long long self_us = -1;
  long long children_us = -1;
  long long wall_ms = -1;
  long long base_kb = -1;
  long long peak_kb = -1;
  int machines = -1;
};

fs::path source_dir(const char* argv0) {
  if (const char* env = std::getenv("QS_SOURCE_DIR")) return env;
  if (fs::exists("sim/run")) return fs::current_path();
  // build-bench/bench_vms lives one level below the source tree.
  fs::path p = fs::canonical(fs::path(argv0)).parent_path();
  for (; !p.empty() && p != p.root_path(); p = p.parent_path()) {
    if (fs::exists(p / "sim" / "run")) return p;
  }
  return {};
}

// Machines in the scan's snapshot, counted with the decoder.
int count_machines(const fs::path& decoder, const fs::path& inv) {
  const std::string text =
      run_command(shell_quote(decoder.string()) + " text " + shell_quote(inv.string()) + " 0");
  std::istringstream lines(text);
  std::string line;
  int n = 0;
  while (std::getline(lines, line)) {
    if (line.compare(0, 4, "+vm:") == 0 || line.compare(0, 4, "*vm:") == 0) ++n;
  }
  return n;
}

bool measure(const fs::path& src, const fs::path& self, int machines, Figures& f) {
  const fs::path tmp = fs::temp_directory_path() /
                       ("qs-bench-" + std::to_string(getpid()) + "-" + std::to_string(machines));
  const fs::path host = tmp / "gen-vms";
  const fs::path work = tmp / "work";
  fs::remove_all(tmp);
  fs::create_directories(work);
  fs::copy(src / "sim" / "hosts" / "gen-vms", host, fs::copy_options::recursive);
  std::ofstream(host / "count") << machines << "\n";

  const std::string cmd = shell_quote((src / "sim" / "run").string()) + " " +
                          shell_quote(host.string()) + " --workdir " + shell_quote(work.string()) +
                          " --bind " + shell_quote(self.parent_path().string()) + " -- " +
                          shell_quote(self.string()) + " --inner >/dev/null";
  const int status = std::system(cmd.c_str());
  std::ifstream in(work / "bench.txt");
  std::string key;
  long long value;
  while (in >> key >> value) {
    if (key == "self_us") f.self_us = value;
    if (key == "children_us") f.children_us = value;
    if (key == "wall_ms") f.wall_ms = value;
    if (key == "base_kb") f.base_kb = value;
    if (key == "peak_kb") f.peak_kb = value;
  }
  for (const auto& entry : fs::directory_iterator(work)) {
    if (entry.path().extension() == ".inv") {
      f.machines = count_machines(self.parent_path() / "quillscan-inv", entry.path());
    }
  }
  fs::remove_all(tmp);
  if (status != 0 || f.self_us < 0 || f.peak_kb < 0) {
    std::cerr << "bench_vms: the scan of " << machines << " machines failed (status " << status
              << ")\n";
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string(argv[1]) == "--inner") return inner();

  const fs::path src = source_dir(argv[0]);
  if (src.empty()) {
    std::cerr << "bench_vms: cannot find the source tree (set QS_SOURCE_DIR)\n";
    return 1;
  }
  const fs::path self = fs::canonical("/proc/self/exe");
  const int sizes[] = {256, 1024};
  Figures best[2];
  std::printf("%-9s %-4s %12s %14s %10s %12s %12s\n", "machines", "run", "agent CPU ms",
              "tools CPU ms", "wall ms", "peak RSS kB", "at start kB");
  for (int s = 0; s < 2; ++s) {
    for (int r = 0; r < kRepeats; ++r) {
      Figures f;
      if (!measure(src, self, sizes[s], f)) return 1;
      if (f.machines != sizes[s]) {
        std::cerr << "bench_vms: the snapshot lists " << f.machines << " machines, not " << sizes[s]
                  << "\n";
        return 1;
      }
      std::printf("%-9d %-4d %12.1f %14.1f %10lld %12lld %12lld\n", sizes[s], r + 1,
                  f.self_us / 1000.0, f.children_us / 1000.0, f.wall_ms, f.peak_kb, f.base_kb);
      std::fflush(stdout);
      // The least CPU of the runs is the least disturbed by other load;
      // peak memory does not depend on load, the largest is reported.
      if (best[s].self_us < 0 || f.self_us < best[s].self_us) best[s].self_us = f.self_us;
      best[s].peak_kb = std::max(best[s].peak_kb, f.peak_kb);
      best[s].base_kb = f.base_kb;
    }
  }
  const double cpu_ratio = static_cast<double>(best[1].self_us) / best[0].self_us;
  const double mem_ratio =
      static_cast<double>(best[1].peak_kb - best[1].base_kb) / (best[0].peak_kb - best[0].base_kb);
  std::printf("\nagent CPU (least of %d): %.1f ms for 256, %.1f ms for 1024 machines: x%.2f\n",
              kRepeats, best[0].self_us / 1000.0, best[1].self_us / 1000.0, cpu_ratio);
  std::printf("peak RSS added by the scan: %lld kB for 256, %lld kB for 1024 machines: x%.2f\n",
              best[0].peak_kb - best[0].base_kb, best[1].peak_kb - best[1].base_kb, mem_ratio);
  std::printf("4x the machines; linear growth is x4.00 or less\n");
  return 0;
}
