// Text parsing and tree writing of the network and firewall collectors,
// kept apart from the socket calls and command runs so that tests can feed
// them captured tool output.
#ifndef QUILLSCAN_COLLECTORS_NETWORK_NETWORK_H_
#define QUILLSCAN_COLLECTORS_NETWORK_NETWORK_H_

#include <string>

#include "host/host_record.h"

class HostAccess;
struct AdapterAddress;
struct ScanContext;
class zXML;
class ztag;

// The two texts of a 6-byte hardware address: "00-1A-2B-3D-4E-5F" (stored
// and written) and "00:1a:2b:3d:4e:5f" (only used to find the NIC's line).
std::string mac_dashed(const unsigned char bytes[6]);
std::string mac_colon(const unsigned char bytes[6]);

// Description of the NIC whose MAC (colon form) is in column 7 of a NIC
// listing: the rest of that line from column 8 (the MTU) on. The esxcli
// table (majors 5 and 6) starts after its dashed header line; the
// esxcfg-nics table (major 4) at offset 0, so its header line is skipped.
// "" for other majors or when no line matches. A line read before the match
// that has fewer than seven columns, or a matching line with nothing after
// the MAC, makes std::string::substr throw std::out_of_range, unless
// skip_short_lines is set: then such a line is passed over, and a match
// without a description gives "".
std::string nic_description(const std::string& listing, int esx_major, const std::string& colon_mac,
                            bool skip_short_lines = false);

// Gateway from the filtered route listing: the text after the first
// " 0.0.0.0 " up to the end of its line. Sets *found to whether there is one.
std::string default_gateway(const std::string& route_output, bool* found);

// Whether a dhclient lease file's text holds a current lease of `ip` for
// interface `ifname`. The expiry is read as the host's local time; the
// host's clock is read once for the local-time fields and once for the
// comparison.
bool lease_matches_at(const std::string& lease, const std::string& ifname, const std::string& ip,
                      HostAccess& host);

// Everything one adapter node holds, gathered before it is written.
struct AdapterRecord {
  std::string description;  // NIC listing text, or "Local Loopback" for lo0
  std::string netmask;
  std::string type;  // "Ethernet" or "Local Loopback"
  std::string mac;   // dashed form
  std::string name;  // kernel interface name
  std::string ip;
  bool dhcp = false;
  std::string route_output;  // filtered route listing of this interface
};

// Writes "Network" / "Adapters" / net-adapter:<index> under top.
void record_adapter(ztag* top, int index, const AdapterRecord& adapter);

// Records the "nameserver" entries of resolv.conf text under "Network" /
// "dns-servers", searching from offset `from` (nothing at all when `from`
// lies beyond the text).
void record_dns_servers(const std::string& resolv, size_t from, ztag* top);

// Reads one interface of the kernel's list (NIC listing, route listing,
// lease files), writes net-adapter:<index> and fills *slot with its IP and
// MAC.
void collect_adapter(ScanContext& ctx, const HostRecord::Interface& iface, zXML* doc, int index,
                     AdapterAddress* slot, int esx_major);

// Records the rulesets of `esxcli network firewall ruleset list` output
// under "Security" / "Firewall".
void record_firewall(const std::string& output, ztag* top);

#endif  // QUILLSCAN_COLLECTORS_NETWORK_NETWORK_H_
