// OS collector internals: parsing of the version texts, the "OS" node and
// the uptime text, callable without a host.
#ifndef QUILLSCAN_COLLECTORS_SYSTEM_OS_H_
#define QUILLSCAN_COLLECTORS_SYSTEM_OS_H_

#include <string>

#include "host/reading.h"

class ztag;

struct OsInfo {
  std::string name;
  std::string codename;
  std::string descr;
  std::string service_pack;
  int esx_major = -1;
  int esx_minor = -1;
};

// Major and minor version from the "vmware -v" text; both -1 when the text
// holds no version.
void parse_vmware_version(const std::string& vmware_v, int* major, int* minor);

// Everything the OS collector learns from the "vmware -v" text and, for
// majors 5 and 6 (and 7 on with the current_releases switch), the "esxcli
// system version get" text (ignored otherwise).
void parse_os(const std::string& vmware_v, const std::string& esxcli_version, OsInfo& info,
              const ReadingSwitches& reading = ReadingSwitches());

// Writes "OS" / "os:1" and its attributes below `top`. `architecture` is
// null when the host has no "uname".
void record_os(const OsInfo& info, ztag* top, const char* architecture, const std::string& uptime);

// The uptime text for `seconds` since boot; clock_ok false gives the text
// for an unreadable clock.
std::string format_uptime_seconds(long long seconds, bool clock_ok);

#endif  // QUILLSCAN_COLLECTORS_SYSTEM_OS_H_
