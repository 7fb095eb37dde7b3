// The scanner object and the scan driver: collectors in their fixed order,
// progress lines, host identity, the inventory file and its name.
#include "app/scanner.h"

#include <cstdio>
#include <ctime>
#include <vector>

#include "app/identity.h"
#include "collectors/collectors.h"
#include "host/command.h"
#include "host/raw_data.h"
#include "zxml/INVfile.h"

const char* const kVersionMajor = "15.10";
const char* const kVersionBuild = "19";

CScaner::CScaner() : detector(new PKGDetector()), dictionary(new PortsDictionary()) {}

CScaner::CScaner(PKGDetector* detector_in, PortsDictionary* dictionary_in)
    : detector(detector_in), dictionary(dictionary_in) {}

CScaner::~CScaner() {
  delete detector;
  delete dictionary;
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

void run_normal_scan(CScaner* scanner, bool silent, const char* ip_option, const char* login,
                     bool log, const OutputDirectory& dir) {
  scanner->log = log;
  const time_t start = time(nullptr);
  if (log) print_message("Agent version: %s.%s\n", kVersionMajor, kVersionBuild);
  zXML* doc = new zXML(scanner->doc_flag, "Snapshot");

  int esx_major = -1;
  int esx_minor = -1;
  double physical_gb = 0;
  double fs_size_gb = 0;
  double fs_free_gb = 0;
  collect_os(scanner, doc, &esx_major, &esx_minor, false);
  progress(silent, "5%\n");
  collect_smbios(scanner, doc);
  progress(silent, "10%\n");
  collect_processors(scanner, doc);
  progress(silent, "15%\n");
  scanner->scan_storage(doc, physical_gb, fs_size_gb, fs_free_gb);
  progress(silent, "20%\n");
  scanner->scan_firewall(doc);
  progress(silent, "25%\n");
  scanner->scan_network(doc, esx_major, esx_minor);
  progress(silent, "30%\n");
  collect_pci(scanner, doc);
  progress(silent, "35%\n");
  collect_usb(scanner, doc);
  progress(silent, "40%\n");
  collect_memory(scanner, doc);
  progress(silent, "45%\n");
  collect_software(scanner, doc, esx_major);
  progress(silent, "50%\n");
  collect_user_accounts(scanner, doc);
  progress(silent, "60%\n");
  scanner->scan_vms(doc);
  // The launching program expects 70% and 80% here, one after the other.
  progress(silent, "70%\n");
  progress(silent, "80%\n");
  collect_processes(scanner, doc);
  progress(silent, "90%\n");
  collect_environment(scanner, doc);
  progress(silent, "100%\n");
  const time_t end = time(nullptr);

  const std::string short_name = query_short_host_name(scanner->detector->tool_path("uname"));
  const std::string ip = choose_ip(scanner->addresses, ip_option);
  const std::string mac = choose_mac(scanner->addresses, ip);
  const std::string physical = format_string("%.1f", physical_gb);
  const std::string fs_size = format_string("%.1f", fs_size_gb);
  const std::string fs_free = format_string("%.1f", fs_free_gb);
  int out = 0;
  zXML* asset = scanner->collect_asset_info(ip.c_str(), physical.c_str(), fs_size.c_str(),
                                            fs_free.c_str(), mac.c_str(), login, out, doc);

  InvFile* file = new InvFile(scanner->doc_flag);
  ztag* snapshot = doc->top();
  const ztag* summary = asset->top();
  if (log) print_message("test000\n");
  snapshot->set_attr("timestamp", zvalue(format_timestamp(time(nullptr))));
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

  file->add_document(doc, InvFile::kSnapshot, false, scanner->write_flag);
  file->add_document(asset, InvFile::kAssetInfo, false, scanner->write_flag);
  write_inventory(file, scanner->write_flag, silent, dir, short_name, mac);
  delete file;  // also destroys both documents
}

void run_debug_scan(CScaner* scanner, bool silent, const char* ip_option, bool log,
                    const OutputDirectory& dir) {
  scanner->log = log;
  zXML* doc = new zXML(scanner->doc_flag, "Snapshot");
  int esx_major = -1;
  int esx_minor = -1;
  collect_os(scanner, doc, &esx_major, &esx_minor, false);
  scanner->scan_network(doc, esx_major, esx_minor);
  unsigned long raw_length = 0;
  char* raw = collect_raw_data(scanner, &raw_length, silent, esx_major);

  const std::string short_name = query_short_host_name(scanner->detector->tool_path("uname"));
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
  // to its name meanwhile.
  const OutputDirectory dir;
  if (debug) {
    run_debug_scan(scanner, silent, ip, log, dir);
  } else {
    run_normal_scan(scanner, silent, ip, login, log, dir);
  }
}
