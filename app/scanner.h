// The scanner object handed to every collector, and the scan driver.
#ifndef QUILLSCAN_APP_SCANNER_H_
#define QUILLSCAN_APP_SCANNER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "collectors/scan_context.h"
#include "host/host_access.h"
#include "host/host_record.h"
#include "host/pkg_detector.h"
#include "zxml/zXML.h"

extern const char* const kVersionMajor;  // "15.10"
extern const char* const kVersionBuild;  // "19"

// The scanner: owns the tool locator, the dictionaries and the scan
// context the collectors share. Its collector members forward to the
// collectors' own functions.
class CScaner {
 public:
  CScaner();
  // A scanner of another host (not owned; it must outlive the scanner).
  explicit CScaner(HostAccess& host);
  // For tests: a scanner over a locator and dictionary built elsewhere
  // (takes ownership of both), on the live host or another one.
  CScaner(PKGDetector* detector, PortsDictionary* dictionary);
  CScaner(PKGDetector* detector, PortsDictionary* dictionary, HostAccess& host);
  virtual ~CScaner();
  CScaner(const CScaner&) = delete;
  CScaner& operator=(const CScaner&) = delete;

  // What the collectors see of this scanner.
  ScanContext& context();

  // --- network adapters, DNS, DHCP
  void scan_network(zXML* doc, int esx_major, int reserved);
  void scan_adapter(const HostRecord::Interface& iface, zXML* doc, int index, std::string* ip_slot,
                    std::string* mac_slot, int esx_major, int reserved);
  bool lease_matches(const std::string& lease, const std::string& ifname, const std::string& ip);

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

  HostAccess& host;
  bool write_flag = true;
  PKGDetector* detector;
  bool log = false;
  PortsDictionary* dictionary;
  bool flag2 = true;
  bool doc_flag = true;
  bool xen_guest = false;

 private:
  ScanContext context_;

 public:
  // Filled by the network collector (lives in the context).
  std::vector<AdapterAddress>& addresses;
};

// What a normal scan found: the two documents (owned by the caller) and
// the identity the file name is made of.
struct ScanDocuments {
  zXML* snapshot;
  zXML* asset;
  std::string short_name;
  std::string mac;
};

// A normal scan up to the point where the file is written: every
// collector, the asset summary and the snapshot's summary attributes.
ScanDocuments scan_documents(CScaner* scanner, bool silent, const char* ip, const char* login,
                             bool log);

// Runs one scan (normal or debug) from start to end.
void run_scan(CScaner* scanner, bool silent, bool reserved, bool debug, const char* ip,
              const char* login, bool log);

#endif  // QUILLSCAN_APP_SCANNER_H_
