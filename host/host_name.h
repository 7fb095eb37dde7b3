// The host's short name, as the kernel reports it through "uname -n".
#ifndef QUILLSCAN_HOST_HOST_NAME_H_
#define QUILLSCAN_HOST_HOST_NAME_H_

#include <string>

class HostAccess;

// The short host name in the output of "uname -n": up to the first ".", or
// when there is none, up to the first newline.
std::string short_host_name(const std::string& uname_output);

// Runs "<uname> -n" and returns the short host name. A host without
// "uname" (null path) has the empty name.
std::string query_short_host_name(HostAccess& host, const char* uname_path);

#endif  // QUILLSCAN_HOST_HOST_NAME_H_
