// The stages of the asset summary that derive values from the finished
// snapshot: classification, scan times, identity from SMBIOS, operating
// system, processor, system makers, memory, video, storage and firewall.
// Each takes the "AssetInfo" element and exactly what it reads, so that it
// can run on a tree built by hand.
#ifndef QUILLSCAN_SUMMARY_ASSET_STAGES_H_
#define QUILLSCAN_SUMMARY_ASSET_STAGES_H_

#include <functional>
#include <string>

class PortsDictionary;
class ztag;

// The printed value of attribute `name` of `node` ("" when either is missing).
std::string asset_attr_text(const ztag* node, const char* name);

// The system serial and the board and chassis makers of an SMBIOS dump.
struct SmbiosIdentity {
  std::string system_serial;
  std::string board_manuf;
  std::string chassis_manuf;
};
SmbiosIdentity read_smbios_identity(const std::string& dump);

// The virtualisation product that a system model and maker name.
std::string virtual_type(const std::string& model, const std::string& manuf, bool xen_guest);

// "asset-type" and "virtual-type". has_smbios: the host has the SMBIOS dump
// tool, so the snapshot's system record can be trusted.
void asset_classification(ztag* asset, const ztag* snapshot, bool has_smbios, bool xen_guest);
// Scan and icon types, and the scan time in all three of its places.
void asset_scan_types(ztag* asset, const std::string& scan_time);
// "uuid" of the system record.
void asset_uuid(ztag* asset, const ztag* snapshot);
// "serial-number".
void asset_serial(ztag* asset, const SmbiosIdentity& identity);
// Registration fields and the operating system.
void asset_os(ztag* asset, const ztag* snapshot);
// Processor count, speed, model and maker; the laptop icons for a mobile
// processor.
void asset_processor(ztag* asset, const ztag* snapshot, const PortsDictionary& dictionary);
// System, chassis and board makers, and the physical memory.
void asset_system(ztag* asset, const ztag* snapshot, bool has_smbios,
                  const SmbiosIdentity& identity);
// "video-ram".
void asset_video(ztag* asset, const ztag* snapshot);
// The first monitor, and the physical disk capacity text.
void asset_monitor_and_capacity(ztag* asset, const ztag* snapshot, const std::string& physical);
// Used and free percentage of the root file system, which is marked "sys".
void asset_storage(ztag* asset, ztag* snapshot);
// "fw-status".
void asset_firewall(ztag* asset, bool has_iptables);
// When no host name was found, the kernel's (up to the first "." or line
// end); `kernel_hostname` reads it.
void asset_hostname_fallback(ztag* asset, const std::function<std::string()>& kernel_hostname);

#endif  // QUILLSCAN_SUMMARY_ASSET_STAGES_H_
