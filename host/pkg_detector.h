// Tool locator: finds the host's tools in a fixed list of directories once,
// at start-up, and remembers whether a DHCP client is running.
#ifndef QUILLSCAN_HOST_PKG_DETECTOR_H_
#define QUILLSCAN_HOST_PKG_DETECTOR_H_

#include <string>
#include <vector>

class PKGDetector {
 public:
  // Searches the standard directories for the standard tool names, then
  // runs the DHCP-client check.
  PKGDetector();
  // For tests and benchmarks: search `dirs` instead of the standard list,
  // register `names`, and run the DHCP check only when asked.
  PKGDetector(const std::vector<std::string>& dirs, const std::vector<std::string>& names,
              bool dhcp_check);
  virtual ~PKGDetector();
  PKGDetector(const PKGDetector&) = delete;
  PKGDetector& operator=(const PKGDetector&) = delete;

  bool add_tool(const std::string& name);
  bool has_tool(const std::string& name) const;
  // Full path of the first record of that name, or null when there is none.
  const char* tool_path(const std::string& name) const;
  bool dhclient_running() const { return dhclient_running_; }

  // The name-matching rule of the search: does directory entry `entry`
  // stand for tool `tool`?
  static bool name_matches(const char* tool, const char* entry);

  static const std::vector<std::string>& standard_dirs();
  static const std::vector<std::string>& standard_names();

 private:
  struct Tool {
    std::string name;
    std::string path;
  };
  bool dhclient_running_ = false;
  std::vector<Tool> tools_;
  std::vector<std::string> dirs_;
};

#endif  // QUILLSCAN_HOST_PKG_DETECTOR_H_
