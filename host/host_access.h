// The one way the agent reaches the host it describes: command lines run
// through the shell, file reads, what a path is, directory listings, the
// IPv4 interface list, the clocks and the working directory.
//
// LiveHost makes the system calls; RecordingHost makes them through a
// LiveHost and keeps every answer in a HostRecord; ReplayHost answers from
// a HostRecord without touching the machine, so a whole scan can run
// in-process against a host captured elsewhere.
//
// Writing the inventory file is the agent's own output, not a question to
// the host, and does not go through here.
#ifndef QUILLSCAN_HOST_HOST_ACCESS_H_
#define QUILLSCAN_HOST_HOST_ACCESS_H_

#include <ctime>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/host_record.h"

class HostAccess {
 public:
  struct CommandResult {
    bool started = false;  // the shell could be started (popen succeeded)
    std::string output;    // standard output, byte-exact
  };

  virtual ~HostAccess() = default;

  // Runs a whole shell command line; standard error is not captured.
  virtual CommandResult run(const std::string& cmdline) = 0;
  // Reads a file from its start, at most `limit` bytes. False when it
  // cannot be opened (without blocking: a FIFO nobody writes reads empty).
  virtual bool read(const std::string& path, size_t limit, std::string* out) = 0;
  // What the path is: see HostRecord::PathInfo.
  virtual HostRecord::PathInfo path_info(const std::string& path) = 0;
  // The entries of a directory in readdir order ("." and ".." included).
  // False when it cannot be opened.
  virtual bool list_dir(const std::string& path, std::vector<HostRecord::DirEntry>* out) = 0;
  // The same entries' names handed to `visit` one at a time; where the host
  // is read directly, a large directory is never held as a list.
  virtual bool visit_dir(const std::string& path, const std::function<void(const char*)>& visit);
  // The kernel's IPv4 interface list with each one's netmask and hardware
  // address, in list order.
  virtual std::vector<HostRecord::Interface> interfaces() = 0;

  // Seconds since the epoch, as time(2).
  virtual time_t wall_time() = 0;
  // localtime_r: false when the time cannot be converted.
  virtual bool local_time(time_t t, struct tm* out) = 0;
  // mktime: the inverse of local_time (normalises *tm), -1 on failure.
  virtual time_t make_time(struct tm* tm) = 0;
  // What strftime's "%z" prints for a time local_time gave ("+0100"); ""
  // when there is no zone information.
  virtual std::string zone_offset(const struct tm& local) = 0;
  // CLOCK_MONOTONIC; false when it cannot be read.
  virtual bool monotonic(struct timespec* out) = 0;

  // The current working directory; "." when it cannot be named.
  virtual std::string working_directory() = 0;
};

// Today's system calls.
class LiveHost : public HostAccess {
 public:
  CommandResult run(const std::string& cmdline) override;
  bool read(const std::string& path, size_t limit, std::string* out) override;
  HostRecord::PathInfo path_info(const std::string& path) override;
  bool list_dir(const std::string& path, std::vector<HostRecord::DirEntry>* out) override;
  bool visit_dir(const std::string& path, const std::function<void(const char*)>& visit) override;
  std::vector<HostRecord::Interface> interfaces() override;
  time_t wall_time() override;
  bool local_time(time_t t, struct tm* out) override;
  time_t make_time(struct tm* tm) override;
  std::string zone_offset(const struct tm& local) override;
  bool monotonic(struct timespec* out) override;
  std::string working_directory() override;
};

// The process-wide live host, for code that is not handed another one.
HostAccess& live_host();

// The host's local time t in the inventory's timestamp form (see
// format_timestamp); "" when it cannot be converted.
std::string host_timestamp(HostAccess& host, time_t t);

// A live host that keeps every request with its answer.
class RecordingHost : public HostAccess {
 public:
  explicit RecordingHost(HostAccess& inner) : inner_(inner) {}
  const HostRecord& record() const { return record_; }

  CommandResult run(const std::string& cmdline) override;
  bool read(const std::string& path, size_t limit, std::string* out) override;
  HostRecord::PathInfo path_info(const std::string& path) override;
  bool list_dir(const std::string& path, std::vector<HostRecord::DirEntry>* out) override;
  std::vector<HostRecord::Interface> interfaces() override;
  time_t wall_time() override;
  bool local_time(time_t t, struct tm* out) override;
  time_t make_time(struct tm* tm) override;
  std::string zone_offset(const struct tm& local) override;
  bool monotonic(struct timespec* out) override;
  std::string working_directory() override;

 private:
  void note_clock();

  HostAccess& inner_;
  HostRecord record_;
};

// Answers from a record. A request it has no answer for behaves as a
// missing tool or file (a command prints nothing, a file cannot be opened,
// a directory cannot be listed) and is listed in unanswered().
class ReplayHost : public HostAccess {
 public:
  struct Request {
    enum Kind { kCommand, kFile, kPath, kDir } kind;
    std::string key;   // command line or path
    size_t limit = 0;  // bytes asked for (kFile)
  };

  // Offered each request the record has no answer for; it may add the
  // answer to the record, which is then used (a source that fills the
  // record on demand).
  using Fallback = std::function<void(const Request&)>;

  explicit ReplayHost(const HostRecord& record, Fallback fallback = nullptr)
      : record_(record), fallback_(std::move(fallback)) {}
  const std::vector<Request>& unanswered() const { return unanswered_; }

  CommandResult run(const std::string& cmdline) override;
  bool read(const std::string& path, size_t limit, std::string* out) override;
  HostRecord::PathInfo path_info(const std::string& path) override;
  bool list_dir(const std::string& path, std::vector<HostRecord::DirEntry>* out) override;
  std::vector<HostRecord::Interface> interfaces() override;
  // Clocks are handed out in recorded order, the last one repeated; local
  // time is UTC shifted by the utc_offset of the clock last handed out.
  time_t wall_time() override;
  bool local_time(time_t t, struct tm* out) override;
  time_t make_time(struct tm* tm) override;
  std::string zone_offset(const struct tm& local) override;
  bool monotonic(struct timespec* out) override;
  std::string working_directory() override;

 private:
  const HostRecord::Clock& next_clock();
  int32_t current_offset() const;
  bool partial(const std::string& path, size_t held, size_t limit) const;
  // The record's entry for request.key, after offering a miss to the
  // fallback; a miss that stays one is listed as unanswered.
  template <typename Map>
  typename Map::const_iterator find(const Map& map, const Request& request) {
    auto it = map.find(request.key);
    if (it == map.end() && fallback_) {
      fallback_(request);
      it = map.find(request.key);
    }
    if (it == map.end()) unanswered_.push_back(request);
    return it;
  }

  const HostRecord& record_;
  Fallback fallback_;
  std::vector<Request> unanswered_;
  size_t next_clock_ = 0;
  const HostRecord::Clock* last_clock_ = nullptr;
};

#endif  // QUILLSCAN_HOST_HOST_ACCESS_H_
