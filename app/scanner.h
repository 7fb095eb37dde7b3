// The scanner object handed to every collector, and the scan driver.
#ifndef QUILLSCAN_APP_SCANNER_H_
#define QUILLSCAN_APP_SCANNER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "collectors/hardware/ports_dictionary.h"
#include "host/pkg_detector.h"
#include "host/reading.h"
#include "zxml/zXML.h"

struct ifreq;

// One network address of the host: IP text and MAC text ("00-0C-29-...").
struct AdapterAddress {
  std::string ip;
  std::string mac;
};

extern const char* const kVersionMajor;  // "15.10"
extern const char* const kVersionBuild;  // "19"

class CScaner {
 public:
  CScaner();
  // For tests: a scanner over a locator and dictionary built elsewhere
  // (takes ownership of both).
  CScaner(PKGDetector* detector, PortsDictionary* dictionary);
  virtual ~CScaner();
  CScaner(const CScaner&) = delete;
  CScaner& operator=(const CScaner&) = delete;

  // --- network adapters, DNS, DHCP
  void scan_network(zXML* doc, int esx_major, int reserved);
  void scan_adapter(int sock, struct ifreq request, const char* name, zXML* doc, int index,
                    std::string* ip_slot, std::string* mac_slot, int esx_major, int reserved);
  static bool lease_matches(const std::string& lease, const std::string& ifname,
                            const std::string& ip);

  // --- firewall rulesets
  void scan_firewall(zXML* doc);

  // --- storage: physical capacity, file-system size and free (GB)
  void scan_storage(zXML* doc, double& physical_gb, double& fs_size_gb, double& fs_free_gb);
  void scan_filesystem_line(const std::string& line, zXML* doc, int line_number, float& free_gb,
                            float& size_gb);

  // --- virtual machines and their disks
  void scan_vms(zXML* doc);
  // Records the machines of a "vim-cmd vmsvc/getallvms" listing.
  void record_vms(const std::string& listing, zXML* doc);
  void process_vm(const std::string& vmx_path, ztag* machine, uint64_t datastore_free);
  void scan_vm_cdroms(ztag* devices, const std::string& vmx_text, const char* prefix,
                      int& cd_counter);
  void scan_vm_disks(ztag* devices, const std::string& vmx_text, const char* prefix,
                     const std::string& vmx_dir, uint64_t datastore_free, int& disk_counter);
  // depth counts the parent disks followed so far (a chain stops after
  // storage::kMaxParentDepth).
  void read_vmdk(const std::string& path, ztag* disk, bool top_level, int depth = 0);
  uint64_t extent_bytes(const std::string& descriptor, const std::string& dir, bool provisioned);

  // --- asset summary; returns a new "AssetInfo" document owned by the caller
  zXML* collect_asset_info(const char* ip, const char* physical, const char* fs_size,
                           const char* fs_free, const char* mac, const char* login, int& out,
                           zXML* snapshot);

  std::vector<AdapterAddress> addresses;
  bool write_flag = true;
  PKGDetector* detector;
  bool log = false;
  PortsDictionary* dictionary;
  bool flag2 = true;
  bool doc_flag = true;
  bool xen_guest = false;
  // How the collectors read the host; all off unless /current is given.
  ReadingSwitches reading;
};

// Runs one scan (normal or debug) from start to end.
void run_scan(CScaner* scanner, bool silent, bool reserved, bool debug, const char* ip,
              const char* login, bool log);

#endif  // QUILLSCAN_APP_SCANNER_H_
