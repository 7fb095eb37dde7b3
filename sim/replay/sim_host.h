// A simulated host folder (sim/hosts/NAME) read as a replay record, without
// root and without namespaces: its files/ and what its setup.sh makes land
// in a temporary root; its tools become the same wrapper scripts sim/run
// installs; its interfaces, host name and one clock reading go straight
// into the record.
//
// The record fills on demand: answer() asks the host folder for what a
// replay did not find (a command line is evaluated by /bin/sh with the
// host's tools first in PATH, a path is looked up in the temporary root).
#ifndef QUILLSCAN_SIM_REPLAY_SIM_HOST_H_
#define QUILLSCAN_SIM_REPLAY_SIM_HOST_H_

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

// A replay of `sim` that asks the host folder, as the scan goes, for what
// the record does not hold yet; what the folder has no answer for either
// ends up in unanswered().
inline ReplayHost replay_of(SimHost& sim) {
  return ReplayHost(sim.record(),
                    [&sim](const ReplayHost::Request& request) { sim.answer({request}); });
}

#endif  // QUILLSCAN_SIM_REPLAY_SIM_HOST_H_
