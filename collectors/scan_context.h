// What a collector (and the asset summary) may use during one scan: the
// host it reads, the located tools, the reference dictionaries, the log
// flag, and the values earlier collectors hand on to later ones.
#ifndef QUILLSCAN_COLLECTORS_SCAN_CONTEXT_H_
#define QUILLSCAN_COLLECTORS_SCAN_CONTEXT_H_

#include <string>
#include <vector>

#include "collectors/hardware/ports_dictionary.h"
#include "host/host_access.h"
#include "host/pkg_detector.h"

// One network address of the host: IP text and MAC text ("00-0C-29-...").
struct AdapterAddress {
  std::string ip;
  std::string mac;
};

// Named switches that change how the host is read. A default scan has all
// of them off; each one is opt-in.
struct ReadingSwitches {};

struct ScanContext {
  ScanContext(HostAccess& host_in, const PKGDetector& tools_in,
              const PortsDictionary& dictionary_in)
      : host(host_in), tools(tools_in), dictionary(dictionary_in) {}

  HostAccess& host;
  const PKGDetector& tools;
  const PortsDictionary& dictionary;
  bool log = false;
  // Whether the host is a Xen guest; nothing sets it, the summary tests it.
  bool xen_guest = false;
  ReadingSwitches reading;

  // Handed on: the OS collector's version numbers (-1 unknown), the network
  // collector's addresses, the storage collector's capacity totals (GB).
  int esx_major = -1;
  int esx_minor = -1;
  std::vector<AdapterAddress> addresses;
  double physical_gb = 0;
  double fs_size_gb = 0;
  double fs_free_gb = 0;
};

#endif  // QUILLSCAN_COLLECTORS_SCAN_CONTEXT_H_
