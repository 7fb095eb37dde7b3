// The scanner object and the scan driver: collectors in their fixed order,
// progress lines, host identity, the inventory file and its name.
#include "app/scanner.h"

#include <cstdio>
#include <ctime>

#include "app/identity.h"
#include "app/raw_data.h"
#include "collectors/collectors.h"
#include "collectors/network/network.h"
#include "collectors/storage/storage.h"
#include "host/command.h"
#include "summary/asset_info.h"
#include "zxml/INVfile.h"

const char* const kVersionMajor = "15.10";
const char* const kVersionBuild = "19";

CScaner::CScaner() : CScaner(live_host()) {}

CScaner::CScaner(HostAccess& host_in)
    : CScaner(new PKGDetector(host_in), new PortsDictionary(), host_in) {}

CScaner::CScaner(PKGDetector* detector_in, PortsDictionary* dictionary_in)
    : CScaner(detector_in, dictionary_in, live_host()) {}

CScaner::CScaner(PKGDetector* detector_in, PortsDictionary* dictionary_in, HostAccess& host_in)
    : host(host_in),
      detector(detector_in),
      dictionary(dictionary_in),
      context_(host_in, *detector_in, *dictionary_in),
      addresses(context_.addresses) {}

CScaner::~CScaner() {
  delete detector;
  delete dictionary;
}

ScanContext& CScaner::context() {
  context_.log = log;
  context_.xen_guest = xen_guest;
  return context_;
}

void CScaner::scan_network(zXML* doc, int esx_major, int reserved) {
  collect_network(context(), doc, esx_major, reserved);
}

void CScaner::scan_adapter(const HostRecord::Interface& iface, zXML* doc, int index,
                           std::string* ip_slot, std::string* mac_slot, int esx_major,
                           int /*reserved*/) {
  AdapterAddress slot;
  collect_adapter(context(), iface, doc, index, &slot, esx_major);
  *ip_slot = slot.ip;
  *mac_slot = slot.mac;
}

bool CScaner::lease_matches(const std::string& lease, const std::string& ifname,
                            const std::string& ip) {
  return lease_matches_at(lease, ifname, ip, host);
}

void CScaner::scan_firewall(zXML* doc) {
  collect_firewall(context(), doc);
}

void CScaner::scan_storage(zXML* doc, double& physical_gb, double& fs_size_gb, double& fs_free_gb) {
  ScanContext& ctx = context();
  collect_storage(ctx, doc);
  physical_gb = ctx.physical_gb;
  fs_size_gb = ctx.fs_size_gb;
  fs_free_gb = ctx.fs_free_gb;
}

void CScaner::scan_filesystem_line(const std::string& line, zXML* doc, int line_number,
                                   float& free_gb, float& size_gb) {
  storage::scan_filesystem_line(line, doc, line_number, free_gb, size_gb);
}

void CScaner::scan_vms(zXML* doc) {
  collect_vms(context(), doc);
}

void CScaner::record_vms(const std::string& listing, zXML* doc) {
  storage::record_vms(context(), listing, doc);
}

void CScaner::process_vm(const std::string& vmx_path, ztag* machine, uint64_t datastore_free) {
  storage::process_vm(context(), vmx_path, machine, datastore_free);
}

void CScaner::scan_vm_cdroms(ztag* devices, const std::string& vmx_text, const char* prefix,
                             int& cd_counter) {
  storage::scan_vm_cdroms(devices, vmx_text, prefix, cd_counter);
}

void CScaner::scan_vm_disks(ztag* devices, const std::string& vmx_text, const char* prefix,
                            const std::string& vmx_dir, uint64_t datastore_free,
                            int& disk_counter) {
  storage::scan_vm_disks(context(), devices, vmx_text, prefix, vmx_dir, datastore_free,
                         disk_counter);
}

void CScaner::read_vmdk(const std::string& path, ztag* disk, bool top_level, int depth) {
  storage::read_vmdk(context(), path, disk, top_level, depth);
}

uint64_t CScaner::extent_bytes(const std::string& descriptor, const std::string& dir,
                               bool provisioned) {
  return storage::extent_bytes(context(), descriptor, dir, provisioned);
}

zXML* CScaner::collect_asset_info(const char* ip, const char* physical, const char* fs_size,
                                  const char* fs_free, const char* mac, const char* login, int& out,
                                  zXML* snapshot) {
  return ::collect_asset_info(context(), doc_flag, ip, physical, fs_size, fs_free, mac, login, out,
                              snapshot);
}

namespace {

// Progress for the program that started a silent run; it reads standard
// output line by line.
void progress(bool silent, const char* line) {
  if (silent) print_message("%s", line);
}

// Copies attribute `name` of `from` onto `to`; a missing attribute (or
// element) gives the empty text.
void copy_attr(const ztag* from, const char* name, ztag* to) {
  const zattr* attr = from != nullptr ? from->find_attr(name) : nullptr;
  to->set_attr(name, attr != nullptr ? attr->value : zvalue(""));
}

// Writes the container to the first free file name and reports where.
void write_inventory(InvFile* file, bool write_flag, bool silent, const OutputDirectory& dir,
                     const std::string& short_name, const std::string& mac) {
  std::string file_name;
  const bool saved = save_inventory(file, write_flag, dir, short_name, mac, &file_name);
  const std::string path = dir.path() + "/" + file_name;
  if (!saved) {
    fprintf(stderr, "Cannot create file :%s\n", path.c_str());
    fflush(stderr);
    return;
  }
  if (silent) {
    print_message(">>>%s\n", file_name.c_str());
  } else {
    print_message("\nScan finished. Results saved to file \"%s\"\n", path.c_str());
  }
}

}  // namespace

ScanDocuments scan_documents(CScaner* scanner, bool silent, const char* ip_option,
                             const char* login, bool log) {
  scanner->log = log;
  HostAccess& host = scanner->host;
  const time_t start = host.wall_time();
  if (log) print_message("Agent version: %s.%s\n", kVersionMajor, kVersionBuild);
  zXML* doc = new zXML(scanner->doc_flag, "Snapshot");

  int esx_major = -1;
  int esx_minor = -1;
  double physical_gb = 0;
  double fs_size_gb = 0;
  double fs_free_gb = 0;
  collect_os(scanner->context(), doc, &esx_major, &esx_minor, false);
  progress(silent, "5%\n");
  collect_smbios(scanner->context(), doc);
  progress(silent, "10%\n");
  collect_processors(scanner->context(), doc);
  progress(silent, "15%\n");
  scanner->scan_storage(doc, physical_gb, fs_size_gb, fs_free_gb);
  progress(silent, "20%\n");
  scanner->scan_firewall(doc);
  progress(silent, "25%\n");
  scanner->scan_network(doc, esx_major, esx_minor);
  progress(silent, "30%\n");
  collect_pci(scanner->context(), doc);
  progress(silent, "35%\n");
  collect_usb(scanner->context(), doc);
  progress(silent, "40%\n");
  collect_memory(scanner->context(), doc);
  progress(silent, "45%\n");
  collect_software(scanner->context(), doc, esx_major);
  progress(silent, "50%\n");
  collect_user_accounts(scanner->context(), doc);
  progress(silent, "60%\n");
  scanner->scan_vms(doc);
  // The launching program expects 70% and 80% here, one after the other.
  progress(silent, "70%\n");
  progress(silent, "80%\n");
  collect_processes(scanner->context(), doc);
  progress(silent, "90%\n");
  collect_environment(scanner->context(), doc);
  progress(silent, "100%\n");
  const time_t end = host.wall_time();

  const std::string short_name =
      query_short_host_name(scanner->host, scanner->detector->tool_path("uname"));
  const std::string ip = choose_ip(scanner->addresses, ip_option);
  const std::string mac = choose_mac(scanner->addresses, ip);
  const std::string physical = format_string("%.1f", physical_gb);
  const std::string fs_size = format_string("%.1f", fs_size_gb);
  const std::string fs_free = format_string("%.1f", fs_free_gb);
  int out = 0;
  zXML* asset = scanner->collect_asset_info(ip.c_str(), physical.c_str(), fs_size.c_str(),
                                            fs_free.c_str(), mac.c_str(), login, out, doc);

  ztag* snapshot = doc->top();
  const ztag* summary = asset->top();
  if (log) print_message("test000\n");
  snapshot->set_attr("timestamp", zvalue(host_timestamp(host, host.wall_time())));
  snapshot->set_attr("scan-time", zvalue(static_cast<long long>(end - start) * 1000));
  snapshot->set_attr("snaptype", zvalue("esx:1"));
  snapshot->set_attr("client-version",
                     zvalue(format_string("%s.%s.0", kVersionMajor, kVersionBuild)));
  snapshot->set_attr("scan-subtype", zvalue("sstService"));
  copy_attr(summary, "hostname", snapshot);
  copy_attr(summary->child_at(0), "domain", snapshot);
  copy_attr(summary, "user-name", snapshot);
  copy_attr(summary, "ip-address", snapshot);
  if (log) print_message("test003\n");
  return ScanDocuments{doc, asset, short_name, mac};
}

namespace {

void run_normal_scan(CScaner* scanner, bool silent, const char* ip_option, const char* login,
                     bool log, const OutputDirectory& dir) {
  const ScanDocuments docs = scan_documents(scanner, silent, ip_option, login, log);
  InvFile* file = new InvFile(scanner->doc_flag);
  file->add_document(docs.snapshot, InvFile::kSnapshot, false, scanner->write_flag);
  file->add_document(docs.asset, InvFile::kAssetInfo, false, scanner->write_flag);
  write_inventory(file, scanner->write_flag, silent, dir, docs.short_name, docs.mac);
  delete file;  // also destroys both documents
}

void run_debug_scan(CScaner* scanner, bool silent, const char* ip_option, bool log,
                    const OutputDirectory& dir) {
  scanner->log = log;
  zXML* doc = new zXML(scanner->doc_flag, "Snapshot");
  int esx_major = -1;
  int esx_minor = -1;
  collect_os(scanner->context(), doc, &esx_major, &esx_minor, false);
  scanner->scan_network(doc, esx_major, esx_minor);
  unsigned long raw_length = 0;
  char* raw = collect_raw_data(scanner, &raw_length, silent, esx_major);

  const std::string short_name =
      query_short_host_name(scanner->host, scanner->detector->tool_path("uname"));
  const std::string ip = choose_ip(scanner->addresses, ip_option);
  const std::string mac = choose_mac(scanner->addresses, ip);
  InvFile* file = new InvFile(scanner->doc_flag);
  add_debug_records(file, short_name.c_str(), ip.c_str(), mac.c_str(), true, raw, raw_length);
  delete[] raw;  // the container keeps its own compressed copy
  write_inventory(file, true, silent, dir, short_name, mac);
  delete file;
  delete doc;  // not handed to the container in a debug run
}

}  // namespace

void run_scan(CScaner* scanner, bool silent, bool /*reserved*/, bool debug, const char* ip,
              const char* login, bool log) {
  // The file goes into the directory the scan started in, whatever happens
  // to its name meanwhile. Its absolute name, for the messages, is the
  // host's working directory ("." when it cannot be named).
  const OutputDirectory dir(".", scanner->host.working_directory());
  if (debug) {
    run_debug_scan(scanner, silent, ip, log, dir);
  } else {
    run_normal_scan(scanner, silent, ip, login, log, dir);
  }
}
