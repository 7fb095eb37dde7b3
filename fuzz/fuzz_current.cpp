// The reading of current releases: the header-based NIC and VIB tables,
// resolv.conf, firewall lines, .vmx keys in any case, VMFS extent lines and
// processor records, each read the safe way and written to a tree. Input:
// the NIC listing, the VIB list, resolv.conf, the firewall listing, a .vmx
// file, an extent listing and an SMBIOS dump.
#include "collectors/hardware/ports_dictionary.h"
#include "collectors/hardware/processors_current.h"
#include "collectors/network/network_current.h"
#include "collectors/storage/storage_current.h"
#include "collectors/system/software_current.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const PortsDictionary dictionary;
  const std::vector<std::string> in = fuzz::split(data, size, 7);
  zXML doc(true, "Snapshot");
  ztag* top = doc.top();

  nic_description_by_header(in[0], "00:50:56:b3:b9:89");
  std::vector<int> skipped;
  record_vib_table(top, parse_vib_table(in[1], &skipped), skipped);
  record_nameservers(parse_nameservers(in[2]), top);
  skipped.clear();
  record_firewall_rules(parse_firewall_rules(in[3], &skipped), skipped, top);

  const storage::VmxKeys keys(in[4], true);
  keys.value("memSize");
  keys.mentions_controller("nvme", 0);
  bool corrected = false;
  storage::cores_per_socket(keys.value("cpuid.coresPerSocket"), &corrected);
  storage::is_thin_descriptor(in[4]);

  for (const std::string& line : storage::table_lines(in[5])) {
    storage::ExtentColumns columns;
    storage::extent_columns_safe(line, &columns);
    storage::vm_line_has_path(line);
  }
  record_processors_safe(in[6], CpuCounts{2, 8, 16}, top, dictionary);
  fuzz::check_document(doc);
  return 0;
}
