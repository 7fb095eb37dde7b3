// The host's short name.
#include "host/host_name.h"

#include "host/command.h"

std::string short_host_name(const std::string& uname_output) {
  size_t stop = uname_output.find('.');
  if (stop == std::string::npos) stop = uname_output.find('\n');
  return uname_output.substr(0, stop);
}

std::string query_short_host_name(HostAccess& host, const char* uname_path) {
  if (uname_path == nullptr) return std::string();
  return short_host_name(run_command(host, shell_quote(uname_path) + " -n"));
}
