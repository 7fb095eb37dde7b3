// Tool locator: finds the host's tools in a fixed list of directories once,
// at start-up, and remembers whether a DHCP client is running.
#ifndef QUILLSCAN_HOST_PKG_DETECTOR_H_
#define QUILLSCAN_HOST_PKG_DETECTOR_H_

#include <string>
#include <vector>

class HostAccess;

class PKGDetector {
 public:
  // One found tool: the name as registered and the full path of its first
  // match ("<directory>/<entry>").
  struct Tool {
    std::string name;
    std::string path;
  };

  // How the constructor searches. Both give identical records; the single
  // pass reads every directory once for all names, the per-name search reads
  // every directory once per name.
  enum class Search { kSinglePass, kPerName };

  // Searches the standard directories for the standard tool names, then
  // runs the DHCP-client check.
  PKGDetector();
  // The same on another host.
  explicit PKGDetector(HostAccess& host);
  // For tests and benchmarks: search `dirs` instead of the standard list,
  // register `names`, and run the DHCP check only when asked.
  PKGDetector(const std::vector<std::string>& dirs, const std::vector<std::string>& names,
              bool dhcp_check, Search search = Search::kSinglePass);
  PKGDetector(const std::vector<std::string>& dirs, const std::vector<std::string>& names,
              bool dhcp_check, Search search, HostAccess& host);
  virtual ~PKGDetector();
  PKGDetector(const PKGDetector&) = delete;
  PKGDetector& operator=(const PKGDetector&) = delete;

  // Searches every directory for one more name (per-name search); appends a
  // record and returns true when something matches.
  bool add_tool(const std::string& name);
  bool has_tool(const std::string& name) const;
  // Full path of the first record of that name, or null when there is none.
  const char* tool_path(const std::string& name) const;
  bool dhclient_running() const { return dhclient_running_; }
  // All records in registration order.
  const std::vector<Tool>& records() const { return tools_; }

  // The name-matching rule of the search: does directory entry `entry`
  // stand for tool `tool`?
  static bool name_matches(const char* tool, const char* entry);

  static const std::vector<std::string>& standard_dirs();
  static const std::vector<std::string>& standard_names();

 private:
  void register_single_pass(const std::vector<std::string>& names);
  void run_dhcp_check();

  HostAccess* host_;
  bool dhclient_running_ = false;
  std::vector<Tool> tools_;
  std::vector<std::string> dirs_;
};

#endif  // QUILLSCAN_HOST_PKG_DETECTOR_H_
