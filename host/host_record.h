// The answers a host gave to an agent's requests: what every command line
// printed, what every file held, what every directory listed, the network
// interfaces and the clocks. A recording host access fills one while a
// scan runs; a replaying one answers a scan from it; the capture reader
// builds one from a capture taken with the host's own shell.
//
// Keys are exactly what the agent asks with: the command line as it is
// handed to the shell, the path as it is opened. Nothing here interprets
// them.
#ifndef QUILLSCAN_HOST_HOST_RECORD_H_
#define QUILLSCAN_HOST_HOST_RECORD_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct HostRecord {
  // What the agent learns about a path without reading it: whether stat(2)
  // succeeds (links followed), whether it opens for reading, its kind, the
  // byte count a seek to its end reports, and the bytes the file system has
  // allocated to it (st_blocks * 512; less than size for a sparse file).
  struct PathInfo {
    bool exists = false;    // stat succeeds
    bool openable = false;  // opens for reading (without blocking)
    bool is_dir = false;
    bool is_regular = false;
    uint64_t size = 0;
    uint64_t allocated = 0;
  };

  // One directory entry as readdir returns it, in readdir order.
  struct DirEntry {
    std::string name;
    // 'd' directory, 'f' regular file, 'l' symbolic link, 'o' other,
    // '?' the file system does not say (DT_UNKNOWN).
    char type = '?';
  };

  // One entry of the kernel's IPv4 interface list (SIOCGIFCONF), in list
  // order, with what SIOCGIFNETMASK and SIOCGIFHWADDR answered. A failed
  // query is recorded as the value the agent then reads (the address field
  // left as it was).
  struct Interface {
    std::string name;
    std::string ip;       // dotted decimal
    std::string netmask;  // dotted decimal
    unsigned char mac[6] = {0, 0, 0, 0, 0, 0};
  };

  // One reading of the clocks.
  struct Clock {
    int64_t wall = 0;            // seconds since the epoch (time(2))
    int32_t utc_offset = 0;      // local time minus UTC, seconds, at `wall`
    int64_t monotonic_sec = 0;   // CLOCK_MONOTONIC, i.e. seconds since boot
    int64_t monotonic_nsec = 0;  // and nanoseconds
  };

  // Command line -> everything it wrote to standard output (binary-safe).
  std::map<std::string, std::string> commands;
  // Path -> its contents as read from the start. A file recorded only in
  // part (the head of a large virtual disk extent) holds that part; reads
  // past it find nothing more.
  std::map<std::string, std::string> files;
  std::map<std::string, PathInfo> paths;
  // Directory path -> its entries ("." and ".." included when listed).
  std::map<std::string, std::vector<DirEntry>> dirs;
  std::vector<Interface> interfaces;
  // In the order they were read. Replay hands them out in that order and
  // repeats the last one when a scan reads more than were recorded.
  std::vector<Clock> clocks;
  std::string working_directory;
};

#endif  // QUILLSCAN_HOST_HOST_RECORD_H_
