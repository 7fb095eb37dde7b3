// A simulated host folder (sim/hosts/NAME) read as a replay record, without
// root and without namespaces: its files/ and what its setup.sh makes land
// in a temporary root; its tools become the same wrapper scripts sim/run
// installs; its interfaces, host name and one clock reading go straight
// into the record.
//
// The record fills on demand. A scan replayed from it lists the requests
// it found no answer for; answer() asks the host folder for them (a command
// line is evaluated by /bin/sh with the host's tools first in PATH, a path
// is looked up in the temporary root) and a new replay sees the answers.
#ifndef QUILLSCAN_TESTS_SUPPORT_SIM_HOST_H_
#define QUILLSCAN_TESTS_SUPPORT_SIM_HOST_H_

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/host_access.h"
#include "host/host_record.h"

class SimHost {
 public:
  // `name` is a folder of sim/hosts, or a folder path when it holds a "/".
  explicit SimHost(const std::string& name);
  ~SimHost();
  SimHost(const SimHost&) = delete;
  SimHost& operator=(const SimHost&) = delete;

  const HostRecord& record() const { return record_; }

  // Answers the requests not asked before; returns how many those were.
  size_t answer(const std::vector<ReplayHost::Request>& requests);

  // What the host's shell prints on standard output for a command line.
  std::string run(const std::string& cmdline) const;
  // Where a path of the host is on this machine, its links followed inside
  // the host's root. /proc and the device nodes the simulated host borrows
  // are the machine's own.
  std::string machine_path(const std::string& host_path) const;

 private:
  std::string host_dir_;
  std::string tmp_;
  std::string root_;
  std::vector<std::string> tool_paths_;
  std::string env_;
  HostRecord record_;
  std::set<std::pair<int, std::string>> asked_;
};

// Replays a scan on `sim` until it asks nothing new: `scan` runs once per
// round on a fresh replay of the record so far. Returns the last replay's
// unanswered requests (those the host folder has no answer for either).
template <typename Scan>
std::vector<ReplayHost::Request> replay_until_answered(SimHost& sim, Scan scan) {
  for (int round = 0; round < 50; ++round) {
    ReplayHost replay(sim.record());
    scan(replay);
    if (sim.answer(replay.unanswered()) == 0) return replay.unanswered();
  }
  return {ReplayHost::Request{ReplayHost::Request::kCommand, "<too many rounds>", 0}};
}

#endif  // QUILLSCAN_TESTS_SUPPORT_SIM_HOST_H_
