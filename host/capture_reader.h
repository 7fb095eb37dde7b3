// Reads a capture stream written by quillscan-capture (the host's own shell
// answering a scan's requests) into a HostRecord that a replaying host
// access can answer a scan from. The stream is checked whole before any of
// it is used: a wrong version, a truncated stream or a record whose
// checksum does not match is refused with one line of explanation.
#ifndef QUILLSCAN_HOST_CAPTURE_READER_H_
#define QUILLSCAN_HOST_CAPTURE_READER_H_

#include <map>
#include <string>
#include <vector>

#include "host/host_record.h"

// The version this reader understands (the number after "QSCAP").
constexpr int kCaptureVersion = 1;

struct Capture {
  HostRecord record;
  // Answers the shell gathered only to derive the record's interfaces
  // (the output of "ip -o -4 addr show", "ifconfig -a", esxcli's interface
  // lists, "mac DEV" for a device's hardware address), by their key.
  std::map<std::string, std::string> probes;
  // Where the interfaces came from: "ip", "ifconfig", "esxcli" or "" when
  // the capture holds nothing to derive them from.
  std::string interface_source;
  int records = 0;
};

// Parses and checks `data`. On failure returns false and sets *error to one
// line (no trailing newline) saying what is wrong.
bool read_capture(const std::string& data, Capture* out, std::string* error);

// Interface derivation from the shell's views, exposed for tests: each
// fills `interfaces` in the order the tool lists them.
void interfaces_from_ip(const std::string& ip_output,
                        const std::map<std::string, std::string>& probes,
                        std::vector<HostRecord::Interface>* interfaces);
void interfaces_from_ifconfig(const std::string& output,
                              std::vector<HostRecord::Interface>* interfaces);
void interfaces_from_esxcli(const std::string& ipv4_get, const std::string& interface_list,
                            std::vector<HostRecord::Interface>* interfaces);

#endif  // QUILLSCAN_HOST_CAPTURE_READER_H_
