// The table definitions, the mapping of a decoded document to rows, and the
// conversions of text values to typed ones.
#include "tools/fleet_tables.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace invtab {
namespace {

// Shorthands for the definitions below.
Column T(const char* name, const char* source, const char* description = "") {
  return {name, Conv::kText, source, description};
}
Column I(const char* name, const char* source, const char* description = "") {
  return {name, Conv::kInt, source, description};
}
Column F(const char* name, const char* source, const char* description = "") {
  return {name, Conv::kFlag, source, description};
}
Column B(const char* name, const char* source, const char* description = "") {
  return {name, Conv::kBytes, source, description};
}
Column D(const char* name, const char* source, const char* description = "") {
  return {name, Conv::kTime, source, description};
}
Column Filled(const char* name, Conv conv, const char* description) {
  return {name, conv, "", description};
}

// Adds the columns every table starts with.
Table make(Table t) {
  std::vector<Column> cols;
  cols.push_back(Filled("scan_id", Conv::kText, "SHA-256 of the .inv file, lower-case hex"));
  if (!t.single) {
    cols.push_back(Filled("position", Conv::kInt, "1-based order of the row within its scan"));
  }
  cols.insert(cols.end(), t.columns.begin(), t.columns.end());
  t.columns = std::move(cols);
  return t;
}

std::vector<Table> define() {
  std::vector<Table> v;
  Table t;

  t = {};
  t.name = "scans";
  t.description = "One row per imported file.";
  t.path = {"Snapshot"};
  t.single = true;
  t.columns = {
      Filled("host_key", Conv::kText,
             "\"uuid:\" and the SMBIOS UUID, else \"mac:\" and the summary's MAC address, "
             "else \"name:\" and the host name"),
      Filled("file_name", Conv::kText, "the file's name without its directories"),
      Filled("file_size", Conv::kInt, "bytes"),
      D("scan_time", "@timestamp", "when the file was made, UTC"),
      T("scan_time_text", "@timestamp", "the timestamp as written (local time and offset)"),
      I("scan_duration_ms", "@scan-time"),
      T("snaptype", "@snaptype"),
      T("client_version", "@client-version"),
      T("scan_subtype", "@scan-subtype"),
      Filled("warnings_count", Conv::kInt, "number of rows in warnings (tools the host lacks)"),
  };
  t.volatile_columns = {"scan_time", "scan_time_text", "scan_duration_ms"};
  v.push_back(make(t));

  t = {};
  t.name = "hosts";
  t.description = "Identity of the scanned host: names, address, SMBIOS records, memory total.";
  t.path = {"Snapshot"};
  t.single = true;
  t.columns = {
      Filled("host_key", Conv::kText, "as in scans"),
      T("hostname", "@hostname"),
      T("domain", "@domain"),
      T("user_name", "@user-name"),
      T("ip_address", "@ip-address"),
      T("bios_vendor", "System/BIOS-Info@manuf"),
      T("bios_version", "System/BIOS-Info@smbios-version"),
      D("bios_release_date", "System/BIOS-Info@release-date", "NULL when not a full date"),
      T("bios_release_date_text", "System/BIOS-Info@release-date"),
      T("system_manuf", "System/Computer-system@manuf"),
      T("system_model", "System/Computer-system@model"),
      T("uuid", "System/Computer-system@uuid"),
      T("wake_up_type", "System/Computer-system@wake-up-type"),
      T("serial", "System/Computer-system@serial"),
      T("chassis_manuf", "System/Chassis@manuf"),
      I("chassis_type", "System/Chassis@case-type", "SMBIOS chassis type code"),
      T("chassis_serial", "System/Chassis@serial"),
      T("chassis_asset_tag", "System/Chassis@asset-tag"),
      T("chassis_boot_up_state", "System/Chassis@boot-up-state"),
      T("chassis_power_supply_state", "System/Chassis@power-supply-state"),
      T("chassis_thermal_state", "System/Chassis@thermal-state"),
      T("chassis_security_status", "System/Chassis@security-status"),
      T("board_manuf", "System/Motherboard@manuf"),
      T("board_product", "System/Motherboard@product-name"),
      T("board_version", "System/Motherboard@version"),
      T("board_serial", "System/Motherboard@serial"),
      I("physical_memory_mb", "Memory/General-Info@physical-memory"),
      B("physical_memory_bytes", "Memory/General-Info@physical-memory~base-value"),
  };
  v.push_back(make(t));

  t = {};
  t.name = "os";
  t.description = "Operating system and uptime.";
  t.path = {"Snapshot", "OS", "os:1"};
  t.columns = {
      T("product", "=", "product and version"),
      T("kind", "~kind"),
      T("name", "@name"),
      T("codename", "@codename"),
      T("service_pack", "@service-pack", "update level"),
      T("build", "@descr"),
      T("architecture", "@architecture"),
      {"uptime_seconds", Conv::kInterval, "@uptime", "seconds since boot"},
      T("uptime_text", "@uptime", "CIM interval as written"),
  };
  t.key = {{"position"}};
  t.volatile_columns = {"uptime_seconds", "uptime_text"};
  v.push_back(make(t));

  t = {};
  t.name = "processors";
  t.description = "Processor packages.";
  t.path = {"Snapshot", "Processors", "Processor:N"};
  t.columns = {
      I("number", "#"),
      T("model", "="),
      T("manuf", "@manuf"),
      I("max_clock_speed_mhz", "@max-clock-speed"),
      T("max_clock_speed_text", "@max-clock-speed"),
      I("current_clock_speed_mhz", "@current-clock-speed"),
      T("current_clock_speed_text", "@current-clock-speed"),
      I("voltage_decivolts", "@cpu-voltage"),
      T("voltage_text", "@cpu-voltage"),
      I("core_count", "@core-count", "cores per package"),
      I("thread_count", "@cpu-thread-count", "threads per package"),
      F("ht_enabled", "@ht-enabled"),
      F("multicore_or_ht", "@multicore-or-ht"),
      I("status", "@status"),
  };
  t.key = {{"number"}};
  v.push_back(make(t));

  t = {};
  t.name = "caches";
  t.description = "Processor caches.";
  t.path = {"Snapshot", "Processors", "Processor:N", "cache:N"};
  t.columns = {
      I("processor", "^1#", "number of the processor package"),
      I("number", "#"),
      T("designation", "="),
      I("size_kb", "@size"),
      T("size_text", "@size"),
      I("type", "@type", "3 instruction, 4 data, 5 unified, 1 unknown"),
      I("associativity", "@associativity", "SMBIOS associativity code"),
  };
  t.key = {{"processor"}, {"designation", "number"}};
  v.push_back(make(t));

  t = {};
  t.name = "smbios_memory_slots";
  t.description = "Every memory socket of the SMBIOS dump, empty ones included.";
  t.path = {"Snapshot", "System", "Mem-slots", "mem-slot:N"};
  t.columns = {
      I("number", "#"),
      F("used", "@used"),
      I("capacity_mb", "@capacity"),
  };
  t.key = {{"number"}};
  v.push_back(make(t));

  t = {};
  t.name = "memory_slots";
  t.description = "Populated memory devices.";
  t.path = {"Snapshot", "Memory", "Memory-slot:N"};
  t.columns = {
      I("number", "#"),
      F("used", "@used"),
      I("capacity_mb", "@capacity"),
      B("capacity_bytes", "@capacity~base-value"),
      I("form_factor", "@form-factor", "SMBIOS form factor code"),
      I("mem_type", "@mem-type", "SMBIOS memory type code"),
      T("bank_label", "@bank-label"),
      T("device_locator", "@device-locator"),
  };
  t.key = {{"device_locator", "bank_label", "number"}};
  v.push_back(make(t));

  t = {};
  t.name = "pci_devices";
  t.description = "PCI functions.";
  t.path = {"Snapshot", "Devices", "device:N"};
  t.columns = {
      I("number", "#"),       T("name", "="),       T("class", "@type"),
      T("vendor", "@vendor"), T("flags", "@flags"),
  };
  t.key = {{"name", "number"}};
  v.push_back(make(t));

  t = {};
  t.name = "usb_devices";
  t.description = "USB devices.";
  t.path = {"Snapshot", "Peripherals", "USB", "Device:N"};
  t.columns = {
      I("number", "#"),
      T("product", "="),
      I("speed_mbps", "@device-speed"),
      T("speed_text", "@device-speed"),
      T("manuf", "@manuf"),
      T("serial", "@serial"),
  };
  t.key = {{"serial", "product", "number"}};
  v.push_back(make(t));

  t = {};
  t.name = "network_adapters";
  t.description = "IPv4 interfaces of the host.";
  t.path = {"Snapshot", "Network", "Adapters", "net-adapter:N"};
  t.columns = {
      I("number", "#"),
      T("description", "="),
      T("adapter_name", "@adapter-name"),
      T("type", "@type"),
      T("mac_address", "@mac-address"),
      T("manuf_by_mac", "@manuf-by-mac"),
      T("device_name", "@bsd-device-name"),
      T("ip_address", "@ip-address"),
      T("ip_subnet", "@ip-subnet"),
      F("dhcp_enabled", "@dhcp-enabled"),
      T("default_gateway", "@default-gateway"),
  };
  t.key = {{"mac_address", "device_name"}};
  v.push_back(make(t));

  t = {};
  t.name = "dns_servers";
  t.description = "Name servers of /etc/resolv.conf.";
  t.path = {"Snapshot", "Network", "dns-servers"};
  t.row_attribute = "dns-server:N";
  t.columns = {
      I("number", "%#"),
      T("address", "%="),
  };
  t.key = {{"address"}};
  v.push_back(make(t));

  t = {};
  t.name = "firewall_rulesets";
  t.description = "Firewall rulesets.";
  t.path = {"Snapshot", "Security", "Firewall", "rule:N"};
  t.columns = {
      I("number", "#", "counts from 0"),
      T("name", "="),
      F("enabled", "@enabled"),
  };
  t.key = {{"name"}};
  v.push_back(make(t));

  t = {};
  t.name = "disks";
  t.description = "The VMFS extent's device.";
  t.path = {"Snapshot", "Storage", "Physical-disks", "HDD:1"};
  t.columns = {
      T("interface", "@interface"),   T("model", "@model"),
      T("fw_rev", "@fw-rev"),         I("size_gb", "@size", "whole gigabytes"),
      T("size_text", "@size"),        B("size_bytes", "@size~base-value"),
      T("partitions", "@partitions"), T("vmfs_uuid", "@vmfs-uuid"),
  };
  t.key = {{"vmfs_uuid", "model"}};
  v.push_back(make(t));

  t = {};
  t.name = "datastores";
  t.description = "File systems (VMFS, NFS, vfat) with sizes in bytes.";
  t.path = {"Snapshot", "Storage", "Logical-disks", "partition:N"};
  t.columns = {
      I("number", "#"),
      T("volume_name", "="),
      T("file_system", "@file-sys"),
      B("size_bytes", "@size~base-value"),
      T("size_text", "@size", "GB, or MB below 1 GB"),
      B("free_bytes", "@free~base-value"),
      T("free_text", "@free"),
      B("used_bytes", "@used~base-value"),
      T("used_text", "@used"),
      T("mount_point", "@mount-point", "/vmfs/volumes/UUID"),
      I("free_percent", "@free%"),
      I("used_percent", "@used%"),
  };
  t.key = {{"mount_point", "volume_name"}};
  v.push_back(make(t));

  t = {};
  t.name = "vms";
  t.description = "Registered virtual machines.";
  t.path = {"Snapshot", "VMs", "vm:N"};
  t.columns = {
      I("number", "#"),
      T("display_name", "="),
      T("guest_family", "~kind"),
      T("vm_id", "@vm-id"),
      T("conf_file", "@vm-conf-file"),
      I("hw_version", "@vm-version"),
      T("hw_version_text", "@vm-version"),
      T("guest_os", "@vm-guest-os-type"),
      B("storage_bytes", "@vm-current-stor-size~base-value", "size of the .vmdk files"),
      T("storage_text", "@vm-current-stor-size"),
      B("size_bytes", "@vm-current-size~base-value", "size of every file of the machine"),
      T("size_text", "@vm-current-size"),
      T("notes", "@vm-notes"),
      I("state", "@vm-state", "1 on, 0 off, 2 suspended, 3 configuration file not found"),
      I("memory_mb", "Devices@vm-memory-size"),
      T("memory_text", "Devices@vm-memory-size"),
      I("total_cores", "Devices/vm-processors@total-cores"),
      I("cpu_count", "Devices/vm-processors@cpu-count"),
      I("cores_per_cpu", "Devices/vm-processors@cores-per-cpu"),
  };
  t.key = {{"conf_file", "vm_id"}};
  v.push_back(make(t));

  t = {};
  t.name = "vm_disks";
  t.description = "Virtual disks of the machines.";
  t.path = {"Snapshot", "VMs", "vm:N", "Devices", "hdd:N"};
  t.columns = {
      I("vm_number", "^2#"),
      T("vm_conf_file", "^2@vm-conf-file"),
      I("number", "#"),
      T("interface", "@interface"),
      T("disk_file", "@disk-file", "as the .vmx names it (relative to the machine's folder)"),
      B("datastore_free_bytes", "@system-free~base-value"),
      T("datastore_free_text", "@system-free"),
      B("current_bytes", "@cur-size~base-value"),
      T("current_text", "@cur-size"),
      B("provisioned_bytes", "@max-size~base-value"),
      T("provisioned_text", "@max-size"),
      F("preallocated", "@preallocated", "0 for a thin (sparse) disk"),
      F("single_file", "@single-file"),
  };
  t.key = {{"vm_conf_file", "vm_number"}, {"disk_file", "number"}};
  v.push_back(make(t));

  t = {};
  t.name = "vm_nics";
  t.description = "Virtual network adapters of the machines.";
  t.path = {"Snapshot", "VMs", "vm:N", "Devices", "net:N"};
  t.columns = {
      I("vm_number", "^2#"),
      T("vm_conf_file", "^2@vm-conf-file"),
      I("number", "#"),
      T("conn_type", "@conn-type"),
      T("addr_type", "@addr-type"),
      T("mac_address", "@mac-address"),
      F("link_state_propagation", "@link-state-propagation"),
      T("vnet", "@vnet"),
  };
  t.key = {{"vm_conf_file", "vm_number"}, {"mac_address", "number"}};
  v.push_back(make(t));

  t = {};
  t.name = "vm_cdroms";
  t.description = "CD-ROM drives of the machines.";
  t.path = {"Snapshot", "VMs", "vm:N", "Devices", "cd:N"};
  t.columns = {
      I("vm_number", "^2#"),
      T("vm_conf_file", "^2@vm-conf-file"),
      I("number", "#"),
      T("interface", "@interface"),
      T("connection", "@connection", "image file, device, or \"auto detect\""),
  };
  t.key = {{"vm_conf_file", "vm_number"}, {"number"}};
  v.push_back(make(t));

  t = {};
  t.name = "software";
  t.description = "Installed packages (VIBs).";
  t.path = {"Snapshot", "Software", "Soft:*"};
  t.columns = {
      T("name", "=*"),
      T("version", "@version"),
      T("publisher", "@publisher"),
      T("architecture", "@architecture"),
      D("install_date", "@inst-date"),
      T("install_date_text", "@inst-date"),
  };
  t.key = {{"name"}};
  v.push_back(make(t));

  t = {};
  t.name = "accounts";
  t.description = "User accounts of /etc/passwd.";
  t.path = {"Snapshot", "User-accounts", "usr-acc:*"};
  t.columns = {
      T("name", "=*"),
      I("uid", "@id"),
      T("uid_text", "@id"),
      I("gid", "@group"),
      T("gid_text", "@group"),
      F("is_system_user", "@is-system-user"),
      T("full_name", "@fullname"),
      T("location", "@location"),
      T("work_phone", "@wphone"),
      T("home_phone", "@hphone"),
      T("home_dir", "@hdir"),
      T("shell", "@shell"),
  };
  t.key = {{"name"}};
  v.push_back(make(t));

  t = {};
  t.name = "processes";
  t.description = "Processes running during the scan.";
  t.path = {"Snapshot", "Processes", "process:N"};
  t.columns = {
      I("number", "#"), T("name", "="),        I("pid", "@pid"),           T("pid_text", "@pid"),
      I("cid", "@cid"), T("cid_text", "@cid"), T("cmd_line", "@cmd-line"),
  };
  t.key = {{"pid_text"}};
  t.volatile_rows = true;
  v.push_back(make(t));

  t = {};
  t.name = "environment";
  t.description = "The agent's environment variables.";
  t.path = {"Snapshot", "Environment", "env-var:*"};
  t.columns = {
      T("name", "=*"),
      T("value", "@value"),
      T("list_separator", "@value~split", "\":\" when the value is a list"),
      F("system", "@system"),
  };
  t.key = {{"name"}};
  t.volatile_rows = true;
  v.push_back(make(t));

  t = {};
  t.name = "warnings";
  t.description =
      "What could not be collected: a tool the host lacks and the section it leaves "
      "incomplete. An empty table with no warning row means \"collected, found nothing\".";
  t.path = {"Snapshot", "*"};
  t.row_attribute = "Warning:N";
  t.columns = {
      T("section", "!", "the element holding the warning (OS, Memory ...)"),
      I("number", "%#"),
      T("type", "%~type"),
      T("tool", "%~pkg_name", "the missing tool"),
      T("missing", "%~missing", "what is not collected"),
      T("incomplete", "%~more", "what is incomplete"),
  };
  t.key = {{"section"}, {"tool", "number"}};
  v.push_back(make(t));

  t = {};
  t.name = "asset_summary";
  t.description = "The flat asset summary record.";
  t.path = {"AssetInfo"};
  t.single = true;
  t.columns = {
      T("hostname", "@hostname"),
      T("ip_address", "@ip-address"),
      F("static_ip", "@static-ip"),
      T("int_name", "@int-name"),
      T("alias", "@alias"),
      T("description", "@description"),
      T("comment", "@comment"),
      T("inv_number", "@inv-number"),
      T("login", "@login"),
      T("user_name", "@user-name"),
      T("asset_type", "@asset-type"),
      T("virtual_type", "@virtual-type"),
      T("scan_type", "@scan-type"),
      T("scan_subtype", "@scan-subtype"),
      T("auto_icon_type", "@auto-icon-type"),
      T("icon_type", "@icon-type"),
      D("first_scan", "@first-scan"),
      D("last_scan", "@last-scan"),
      T("snapshot_list", "@snapshot-list"),
      T("snapshot_types", "@snapshot-types"),
      T("mac_address", "@mac-address"),
      T("uuid", "@uuid"),
      T("serial_number", "@serial-number"),
      T("asset_tag", "@asset-tag"),
      T("vm_kind", "@vm-kind"),
      T("domain_role", "@domain-role"),
      T("reg_user", "@reg-user"),
      T("reg_org", "@reg-org"),
      T("os_name", "@os-name"),
      T("os_sp", "@os-sp"),
      T("os_ver", "@os-ver"),
      T("os_manuf", "@os-manuf"),
      T("os_arch", "@os-arch"),
      I("cpu_count", "@cpu-count"),
      I("core_count", "@core-count"),
      I("cpu_count_virtual", "@cpu-count-virtual"),
      I("cpu_speed_mhz", "@cpu-speed"),
      T("cpu_model", "@cpu-model"),
      T("cpu_manuf", "@cpu-manuf"),
      T("system_model", "@system-model"),
      T("system_manuf", "@system-manuf"),
      T("chassis_manuf", "@chassis-manuf"),
      T("mb_manuf", "@mb-manuf"),
      I("phys_memory_mb", "@phys-memory"),
      T("video_ram", "@video-ram"),
      T("video_res", "@video-res"),
      T("monitor_count", "@monitor-count"),
      T("monitor_diag", "@monitor-diag"),
      T("hdd_capacity_gb", "@hdd-capacity", "one decimal"),
      I("used_percent", "@used%"),
      I("free_percent", "@free%"),
      I("fw_status", "@fw-status"),
      T("domain", "control@domain"),
      D("scan_attempt", "@scan-attempt", "debug run"),
      T("error_message", "@error-message", "debug run"),
  };
  t.volatile_columns = {"first_scan", "last_scan", "snapshot_list", "scan_attempt"};
  v.push_back(make(t));
  return v;
}

// A column source, parsed once.
struct Source {
  enum What {
    kNone,
    kNameValue,
    kAttr,
    kAttrMeta,
    kValue,
    kMeta,
    kSuffix,
    kName,
    kRowValue,
    kRowMeta,
    kRowSuffix
  };
  What what = kNone;
  int up = 0;
  std::vector<std::string> down;
  std::string attr;
  std::string key;
};

Source parse_source(const std::string& s) {
  Source src;
  if (s.empty()) return src;
  size_t p = 0;
  if (s[0] == '^') {
    p = 1;
    while (p < s.size() && s[p] >= '0' && s[p] <= '9') src.up = src.up * 10 + (s[p++] - '0');
  }
  if (s.compare(p, 1, "%") == 0) {
    const std::string rest = s.substr(p + 1);
    if (rest == "=") src.what = Source::kRowValue;
    if (rest == "#") src.what = Source::kRowSuffix;
    if (rest.compare(0, 1, "~") == 0) {
      src.what = Source::kRowMeta;
      src.key = rest.substr(1);
    }
    return src;
  }
  // Child names up to the first marker.
  size_t end = s.find_first_of("@=~#!", p);
  std::string names = s.substr(p, end == std::string::npos ? std::string::npos : end - p);
  size_t start = 0;
  while (!names.empty() && start <= names.size()) {
    size_t slash = names.find('/', start);
    src.down.push_back(names.substr(start, slash == std::string::npos ? slash : slash - start));
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  if (end == std::string::npos) return src;
  const std::string rest = s.substr(end);
  if (rest[0] == '@') {
    const size_t tilde = rest.find('~');
    src.attr = rest.substr(1, tilde == std::string::npos ? tilde : tilde - 1);
    src.what = tilde == std::string::npos ? Source::kAttr : Source::kAttrMeta;
    if (tilde != std::string::npos) src.key = rest.substr(tilde + 1);
  } else if (rest == "=") {
    src.what = Source::kValue;
  } else if (rest == "=*") {
    src.what = Source::kNameValue;
  } else if (rest[0] == '~') {
    src.what = Source::kMeta;
    src.key = rest.substr(1);
  } else if (rest == "#") {
    src.what = Source::kSuffix;
  } else if (rest == "!") {
    src.what = Source::kName;
  }
  return src;
}

// The columns the exporter fills itself.
enum class Fill { kNone, kScanId, kPosition, kHostKey, kFileName, kFileSize, kWarnings };

Fill filled_kind(const std::string& name) {
  if (name == "scan_id") return Fill::kScanId;
  if (name == "position") return Fill::kPosition;
  if (name == "host_key") return Fill::kHostKey;
  if (name == "file_name") return Fill::kFileName;
  if (name == "file_size") return Fill::kFileSize;
  if (name == "warnings_count") return Fill::kWarnings;
  return Fill::kNone;
}

bool all_digits(std::string_view s, size_t from) {
  if (from >= s.size()) return false;
  for (size_t i = from; i < s.size(); ++i) {
    if (s[i] < '0' || s[i] > '9') return false;
  }
  return true;
}

// A path pattern ("vm:N", "Soft:*", "*", "OS"), parsed once: the mapper
// tries one against every element below the path's last match.
struct Pattern {
  enum Kind { kAny, kExact, kNumber, kAnySuffix, kSomeSuffix } kind = kExact;
  std::string text;  // the whole name, or the prefix up to and with the colon

  explicit Pattern(const std::string& p) : text(p) {
    const size_t colon = p.find(':');
    if (p == "*") {
      kind = kAny;
    } else if (colon != std::string::npos) {
      const std::string what = p.substr(colon + 1);
      kind = what == "N" ? kNumber : what == "*" ? kAnySuffix : kSomeSuffix;
      text = p.substr(0, colon + 1);
    }
  }
  bool matches(std::string_view name) const {
    if (kind == kAny) return true;
    if (kind == kExact) return name == text;
    if (name.size() < text.size() || name.compare(0, text.size(), text) != 0) return false;
    if (kind == kNumber) return all_digits(name, text.size());
    return kind == kAnySuffix || name.size() > text.size();
  }
};

// How the rows are made while a document is parsed.
//
// The tables' paths form a tree of nodes ("Snapshot" > "VMs" > "vm:N" ...).
// Each open element knows the nodes it matches. A node sits at a fixed
// depth, so at most one element per node is open at a time, and the values
// a node keeps of its current element can live in the node's state. A row
// is made when its element ends. What it takes from elements around it is
// there by then: an ancestor's attributes come before its children, and
// what a row takes from inside its element ("Devices/vm-processors@...")
// is caught on the way by capture nodes, which match only the first child
// of their name within each element of their parent (the lookup by name
// the columns define).

// The attributes of one name a node keeps: the first one's value and the
// first of each wanted annotation of it.
struct AttrWant {
  std::string name;
  int value_slot = -1;
  std::vector<std::pair<std::string, int>> metas;  // annotation key, slot
};

struct Node {
  explicit Node(const std::string& p) : pattern(p), pattern_text(p) {}
  Pattern pattern;
  std::string pattern_text;
  bool capture = false;  // matches pattern_text exactly, first child only
  std::vector<int> children;
  std::vector<int> captures_below;  // cleared when this node's element starts
  std::vector<AttrWant> attrs;
  std::vector<std::vector<int>> attrs_by_length;   // indices into attrs
  std::vector<std::pair<std::string, int>> metas;  // the element's annotations
  int slots = 0;
  std::vector<int> row_tables;       // one row per element
  std::vector<int> attr_row_tables;  // one row per matching attribute

  int find_attr(std::string_view name) const {
    if (name.size() >= attrs_by_length.size()) return -1;
    for (int i : attrs_by_length[name.size()]) {
      if (name == attrs[i].name) return i;
    }
    return -1;
  }
};

// Where a column's value comes from at the moment its row is made.
struct ColumnRef {
  enum How {
    kNull,
    kFill,
    kSlot,
    kValue,
    kName,
    kSuffix,
    kNameValue,
    kRowValue,
    kRowSuffix,
    kRowMeta
  } how = kNull;
  Fill fill = Fill::kNone;
  int node = -1;
  int slot = -1;    // kSlot; for kNameValue, the first "version" attribute
  std::string key;  // kRowMeta
};

constexpr int kSnapshotNode = 0;
constexpr int kAssetNode = 1;

struct Plan {
  std::vector<Node> nodes;
  std::vector<std::vector<ColumnRef>> columns;  // per table
  std::vector<Pattern> row_attributes;          // per table
  int warnings_table = -1;
  // The host key: the first non-empty "uuid" of a Computer-system, else the
  // summary's MAC address, else a host name.
  int uuid_node = -1, uuid_slot = -1;
  int snapshot_hostname = -1, asset_mac = -1, asset_hostname = -1;

  int path_child(int parent, const std::string& pattern) {
    for (int c : nodes[parent].children) {
      if (!nodes[c].capture && nodes[c].pattern_text == pattern) return c;
    }
    nodes.emplace_back(pattern);
    nodes[parent].children.push_back(static_cast<int>(nodes.size()) - 1);
    return static_cast<int>(nodes.size()) - 1;
  }
  int capture_child(int parent, const std::string& name) {
    for (int c : nodes[parent].children) {
      if (nodes[c].capture && nodes[c].pattern_text == name) return c;
    }
    nodes.emplace_back(name);
    nodes.back().capture = true;
    nodes[parent].children.push_back(static_cast<int>(nodes.size()) - 1);
    return static_cast<int>(nodes.size()) - 1;
  }
  AttrWant& want(int node, const std::string& attr) {
    Node& n = nodes[node];
    for (AttrWant& w : n.attrs) {
      if (w.name == attr) return w;
    }
    n.attrs.push_back(AttrWant{attr, -1, {}});
    if (n.attrs_by_length.size() <= attr.size()) n.attrs_by_length.resize(attr.size() + 1);
    n.attrs_by_length[attr.size()].push_back(static_cast<int>(n.attrs.size()) - 1);
    return n.attrs.back();
  }
  int attr_slot(int node, const std::string& attr) {
    AttrWant& w = want(node, attr);
    if (w.value_slot < 0) w.value_slot = nodes[node].slots++;
    return w.value_slot;
  }
  static int meta_slot(std::vector<std::pair<std::string, int>>* metas, const std::string& key,
                       int* slots) {
    for (const auto& m : *metas) {
      if (m.first == key) return m.second;
    }
    metas->emplace_back(key, (*slots)++);
    return metas->back().second;
  }
  int attr_meta_slot(int node, const std::string& attr, const std::string& key) {
    return meta_slot(&want(node, attr).metas, key, &nodes[node].slots);
  }
  int element_meta_slot(int node, const std::string& key) {
    return meta_slot(&nodes[node].metas, key, &nodes[node].slots);
  }
  void collect_captures(int node, std::vector<int>* out) const {
    for (int c : nodes[node].children) {
      if (!nodes[c].capture) continue;
      out->push_back(c);
      collect_captures(c, out);
    }
  }

  ColumnRef column(const Table& t, const std::vector<int>& chain, const Column& col) {
    ColumnRef ref;
    if (col.source.empty()) {
      ref.how = ColumnRef::kFill;
      ref.fill = filled_kind(col.name);
      return ref;
    }
    const Source src = parse_source(col.source);
    switch (src.what) {
      case Source::kRowValue:
      case Source::kRowSuffix:
      case Source::kRowMeta:
        if (t.row_attribute.empty()) return ref;
        ref.how = src.what == Source::kRowValue    ? ColumnRef::kRowValue
                  : src.what == Source::kRowSuffix ? ColumnRef::kRowSuffix
                                                   : ColumnRef::kRowMeta;
        ref.key = src.key;
        return ref;
      case Source::kNone:
        return ref;
      default:
        break;
    }
    if (static_cast<size_t>(src.up) >= chain.size()) return ref;
    // Going up and then down would need elements not parsed yet.
    if (src.up > 0 && !src.down.empty()) {
      std::fprintf(stderr, "table %s, column %s: a source cannot go up and then down\n",
                   t.name.c_str(), col.name.c_str());
      std::abort();
    }
    int node = chain[chain.size() - 1 - src.up];
    for (const std::string& name : src.down) node = capture_child(node, name);
    ref.node = node;
    ref.how = ColumnRef::kSlot;
    switch (src.what) {
      case Source::kAttr:
        ref.slot = attr_slot(node, src.attr);
        break;
      case Source::kAttrMeta:
        ref.slot = attr_meta_slot(node, src.attr, src.key);
        break;
      case Source::kMeta:
        ref.slot = element_meta_slot(node, src.key);
        break;
      case Source::kValue:
        ref.how = ColumnRef::kValue;
        break;
      case Source::kName:
        ref.how = ColumnRef::kName;
        break;
      case Source::kSuffix:
        ref.how = ColumnRef::kSuffix;
        break;
      case Source::kNameValue:
        ref.how = ColumnRef::kNameValue;
        ref.slot = attr_slot(node, "version");
        break;
      default:
        ref.how = ColumnRef::kNull;
    }
    return ref;
  }
};

Plan make_plan() {
  Plan p;
  p.nodes.emplace_back("Snapshot");
  p.nodes.emplace_back("AssetInfo");
  const std::vector<Table>& all = tables();
  for (size_t i = 0; i < all.size(); ++i) {
    const Table& t = all[i];
    const int ti = static_cast<int>(i);
    std::vector<int> chain{t.path.empty() || t.path[0] == "Snapshot" ? kSnapshotNode : kAssetNode};
    for (size_t d = 1; d < t.path.size(); ++d)
      chain.push_back(p.path_child(chain.back(), t.path[d]));
    // Single tables (one row per scan, of a top element) are made at the
    // end of the file.
    if (t.single && t.path.size() != 1) {
      std::fprintf(stderr, "table %s: one row per scan must come from a top element\n",
                   t.name.c_str());
      std::abort();
    }
    if (!t.single) {
      (t.row_attribute.empty() ? p.nodes[chain.back()].row_tables
                               : p.nodes[chain.back()].attr_row_tables)
          .push_back(ti);
    }
    std::vector<ColumnRef> cols;
    for (const Column& c : t.columns) cols.push_back(p.column(t, chain, c));
    p.columns.push_back(std::move(cols));
    p.row_attributes.emplace_back(t.row_attribute);
    if (t.name == "warnings") p.warnings_table = ti;
  }
  const int system = p.path_child(kSnapshotNode, "System");
  p.uuid_node = p.path_child(system, "Computer-system");
  p.uuid_slot = p.attr_slot(p.uuid_node, "uuid");
  p.snapshot_hostname = p.attr_slot(kSnapshotNode, "hostname");
  p.asset_mac = p.attr_slot(kAssetNode, "mac-address");
  p.asset_hostname = p.attr_slot(kAssetNode, "hostname");
  for (size_t n = 0; n < p.nodes.size(); ++n) {
    p.collect_captures(static_cast<int>(n), &p.nodes[n].captures_below);
  }
  return p;
}

const Plan& plan() {
  static const Plan p = make_plan();
  return p;
}

// The value of an element named "prefix:NAME" (or "prefix:NAME VERSION")
// whose value is NAME again. The line is split at its first "=", so a NAME
// holding "=" leaves part of itself in the element's name; the split where
// the name part repeats the value (and the "version" attribute) is the one
// the agent wrote.
std::string_view recovered_value(std::string_view name, std::string_view value,
                                 const std::string_view* version, std::string* scratch) {
  const size_t colon = name.find(':');
  if (colon == std::string_view::npos) return value;
  std::string& line = *scratch;
  line.assign(name.substr(colon + 1));
  line += '=';
  line += value;
  for (size_t p = line.find('='); p != std::string::npos; p = line.find('=', p + 1)) {
    const std::string_view head(line.data(), p), tail(line.data() + p + 1, line.size() - p - 1);
    if (head == tail || (version != nullptr && head.size() == tail.size() + 1 + version->size() &&
                         head.compare(0, tail.size(), tail) == 0 && head[tail.size()] == ' ' &&
                         head.substr(tail.size() + 1) == *version)) {
      return tail;
    }
  }
  return value;
}

// What a node keeps of its current element: views into the document text,
// which stays in place until the file's rows are done.
struct NodeState {
  bool present = false;  // an element matched since the node was last cleared
  bool matched = false;  // a capture: its element has been seen in the parent's
  std::string_view name, value;
  std::vector<std::string_view> slot;
  std::vector<char> has, seen;
  // Attributes that make rows (warnings, name servers), with their annotations.
  struct RowAttribute {
    std::string_view name, value;
    std::vector<std::pair<std::string_view, std::string_view>> metas;
  };
  std::vector<RowAttribute> row_attributes;
  size_t row_attribute_count = 0;

  void clear() {
    present = matched = false;
    std::fill(has.begin(), has.end(), 0);
    std::fill(seen.begin(), seen.end(), 0);
    row_attribute_count = 0;
  }
};

}  // namespace

class RowMapper::Impl : public invread::DocumentHandler {
 public:
  Impl(const ScanFile& file, RowSink* sink) : file_(file), sink_(sink), plan_(plan()) {
    state_.resize(plan_.nodes.size());
    for (size_t n = 0; n < plan_.nodes.size(); ++n) {
      state_[n].slot.resize(plan_.nodes[n].slots);
      state_[n].has.assign(plan_.nodes[n].slots, 0);
      state_[n].seen.assign(plan_.nodes[n].attrs.size(), 0);
    }
    rows_.resize(tables().size());
    for (size_t t = 0; t < tables().size(); ++t) rows_[t].resize(tables()[t].columns.size());
    positions_.assign(tables().size(), 0);
  }

  void start_document() {
    top_seen_ = leaf_open_ = false;
    depth_ = 0;
    clear_targets();
  }

  void element(bool parent, std::string_view name, std::string_view value, size_t depth) override {
    if (leaf_open_) end_element();
    clear_targets();
    if (frames_.size() <= depth) frames_.resize(depth + 1);
    frames_[depth].clear();
    depth_ = depth + 1;
    leaf_open_ = !parent;
    if (depth == 0) {
      // Only the first top element of a document counts, and only the
      // first document of each kind.
      if (top_seen_) return;
      top_seen_ = true;
      if (name == "Snapshot" && !state_[kSnapshotNode].present) {
        activate(kSnapshotNode, name, value);
      } else if (name == "AssetInfo" && !state_[kAssetNode].present) {
        activate(kAssetNode, name, value);
      }
      return;
    }
    for (int outer : frames_[depth - 1]) {
      for (int c : plan_.nodes[outer].children) {
        const Node& n = plan_.nodes[c];
        if (n.capture) {
          if (state_[c].matched || name != n.pattern_text) continue;
          state_[c].matched = true;
        } else if (!n.pattern.matches(name)) {
          continue;
        }
        activate(c, name, value);
      }
    }
  }

  void attribute(std::string_view name, std::string_view value) override {
    clear_targets();
    if (depth_ == 0) return;
    for (int n : frames_[depth_ - 1]) {
      const Node& node = plan_.nodes[n];
      NodeState& s = state_[n];
      const int w = node.find_attr(name);
      if (w >= 0 && !s.seen[w]) {
        s.seen[w] = 1;
        const AttrWant& want = node.attrs[w];
        if (want.value_slot >= 0) {
          s.slot[want.value_slot] = value;
          s.has[want.value_slot] = 1;
        }
        if (!want.metas.empty()) meta_targets_.emplace_back(&s, &want.metas);
      }
      for (int t : node.attr_row_tables) {
        if (!plan_.row_attributes[t].matches(name)) continue;
        if (s.row_attribute_count == s.row_attributes.size()) s.row_attributes.emplace_back();
        NodeState::RowAttribute& a = s.row_attributes[s.row_attribute_count++];
        a.name = name;
        a.value = value;
        a.metas.clear();
        row_attribute_targets_.push_back(&a);
        break;
      }
    }
  }

  void annotation(bool on_attribute, std::string_view key, std::string_view text) override {
    if (depth_ == 0) return;
    if (on_attribute) {
      for (const auto& t : meta_targets_) set_meta(t.first, *t.second, key, text);
      for (NodeState::RowAttribute* a : row_attribute_targets_) a->metas.emplace_back(key, text);
      return;
    }
    for (int n : frames_[depth_ - 1]) set_meta(&state_[n], plan_.nodes[n].metas, key, text);
  }

  void close() override {
    if (leaf_open_) end_element();
    end_element();
  }

  void end() override {
    if (leaf_open_) end_element();
  }

  bool found() const { return state_[kSnapshotNode].present || state_[kAssetNode].present; }

  bool finish(std::string* error) {
    if (ok_) {
      host_key_ = host_key();
      const std::vector<Table>& all = tables();
      for (size_t t = 0; t < all.size(); ++t) {
        if (!all[t].single) continue;
        const int top = all[t].path[0] == "Snapshot" ? kSnapshotNode : kAssetNode;
        // Every file gets its scans row, documents or not.
        if (state_[top].present || all[t].name == "scans") emit(static_cast<int>(t), nullptr);
      }
    }
    if (!ok_) *error = error_;
    return ok_;
  }

  bool ok() const { return ok_; }
  const std::string& error() const { return error_; }

 private:
  void clear_targets() {
    meta_targets_.clear();
    row_attribute_targets_.clear();
  }

  static void set_meta(NodeState* s, const std::vector<std::pair<std::string, int>>& metas,
                       std::string_view key, std::string_view text) {
    for (const auto& m : metas) {
      if (m.first == key && !s->has[m.second]) {
        s->slot[m.second] = text;
        s->has[m.second] = 1;
      }
    }
  }

  void activate(int node, std::string_view name, std::string_view value) {
    NodeState& s = state_[node];
    const bool matched = s.matched;
    s.clear();
    s.matched = matched;
    s.present = true;
    s.name = name;
    s.value = value;
    for (int c : plan_.nodes[node].captures_below) state_[c].clear();
    frames_[depth_ - 1].push_back(node);
  }

  // The innermost element has ended: its rows are complete.
  void end_element() {
    leaf_open_ = false;
    clear_targets();
    if (depth_ == 0) return;
    for (int n : frames_[depth_ - 1]) {
      const Node& node = plan_.nodes[n];
      NodeState& s = state_[n];
      for (int t : node.row_tables) emit(t, nullptr);
      for (int t : node.attr_row_tables) {
        for (size_t i = 0; i < s.row_attribute_count; ++i) {
          if (plan_.row_attributes[t].matches(s.row_attributes[i].name)) {
            emit(t, &s.row_attributes[i]);
          }
        }
      }
      if (n == plan_.uuid_node && uuid_.empty() && s.has[plan_.uuid_slot]) {
        uuid_ = std::string(s.slot[plan_.uuid_slot]);
      }
    }
    --depth_;
  }

  const std::string_view* slot(int node, int slot) const {
    const NodeState& s = state_[node];
    return s.has[slot] ? &s.slot[slot] : nullptr;
  }

  // "uuid:" and the SMBIOS UUID, else "mac:" and the summary's MAC address,
  // else "name:" and the host name.
  std::string host_key() const {
    if (!uuid_.empty()) return "uuid:" + uuid_;
    const std::string_view* mac = slot(kAssetNode, plan_.asset_mac);
    if (mac != nullptr && !mac->empty() && *mac != "00-00-00-00-00") {
      return "mac:" + std::string(*mac);
    }
    const std::string_view* name = slot(kAssetNode, plan_.asset_hostname);
    if (name == nullptr) name = slot(kSnapshotNode, plan_.snapshot_hostname);
    return "name:" + (name ? std::string(*name) : std::string());
  }

  // The text of a column into *out; false when the document does not have it.
  bool text(const ColumnRef& c, const NodeState::RowAttribute* ra, std::string_view* out) {
    if (c.how >= ColumnRef::kRowValue) {
      if (ra == nullptr) return false;
      if (c.how == ColumnRef::kRowValue) {
        *out = ra->value;
      } else if (c.how == ColumnRef::kRowSuffix) {
        *out = suffix(ra->name);
      } else {
        for (const auto& m : ra->metas) {
          if (m.first == c.key) {
            *out = m.second;
            return true;
          }
        }
        return false;
      }
      return true;
    }
    const NodeState& s = state_[c.node];
    if (!s.present) return false;
    switch (c.how) {
      case ColumnRef::kSlot:
        *out = s.slot[c.slot];
        return s.has[c.slot] != 0;
      case ColumnRef::kValue:
        *out = s.value;
        return true;
      case ColumnRef::kName:
        *out = s.name;
        return true;
      case ColumnRef::kSuffix:
        *out = suffix(s.name);
        return true;
      case ColumnRef::kNameValue:
        *out =
            recovered_value(s.name, s.value, s.has[c.slot] ? &s.slot[c.slot] : nullptr, &scratch_);
        return true;
      default:
        return false;
    }
  }

  // The part of a name after its colon ("" without one).
  static std::string_view suffix(std::string_view name) {
    const size_t colon = name.find(':');
    return colon == std::string_view::npos ? std::string_view() : name.substr(colon + 1);
  }

  void emit(int t, const NodeState::RowAttribute* ra) {
    if (!ok_) return;
    const Table& table = tables()[t];
    const std::vector<ColumnRef>& cols = plan_.columns[t];
    Row& row = rows_[t];
    const int64_t position = ++positions_[t];
    for (size_t c = 0; c < cols.size(); ++c) {
      Value& v = row[c];
      if (cols[c].how == ColumnRef::kFill) {
        fill(cols[c].fill, position, &v);
        continue;
      }
      std::string_view s;
      if (cols[c].how != ColumnRef::kNull && text(cols[c], ra, &s)) {
        convert_into(table.columns[c].conv, s, &v);
      } else {
        v.kind = Value::kNull;
      }
    }
    if (t == plan_.warnings_table) ++warnings_;
    ok_ = sink_->row(table, row, &error_);
  }

  void fill(Fill what, int64_t position, Value* v) const {
    const std::string* text = nullptr;
    int64_t n = 0;
    switch (what) {
      case Fill::kScanId:
        text = &file_.scan_id;
        break;
      case Fill::kHostKey:
        text = &host_key_;
        break;
      case Fill::kFileName:
        text = &file_.file_name;
        break;
      case Fill::kPosition:
        n = position;
        break;
      case Fill::kFileSize:
        n = static_cast<int64_t>(file_.size);
        break;
      case Fill::kWarnings:
        n = warnings_;
        break;
      case Fill::kNone:
        v->kind = Value::kNull;
        return;
    }
    if (text != nullptr) {
      v->kind = Value::kText;
      v->s.assign(*text);
    } else {
      v->kind = Value::kInt;
      v->i = n;
    }
  }

  const ScanFile& file_;
  RowSink* sink_;
  const Plan& plan_;
  std::vector<NodeState> state_;
  // The nodes each open element matches (the elements' depth is the index;
  // depth_ of them are in use). The vectors keep their capacity.
  std::vector<std::vector<int>> frames_;
  size_t depth_ = 0;
  bool leaf_open_ = false;  // the innermost element is a "*" line, ended by the next line
  bool top_seen_ = false;
  // Where annotations of the latest attribute go.
  std::vector<std::pair<NodeState*, const std::vector<std::pair<std::string, int>>*>> meta_targets_;
  std::vector<NodeState::RowAttribute*> row_attribute_targets_;
  // One row buffer per table: its strings keep their capacity, so a row
  // costs no allocation once the longest values have been seen.
  std::vector<Row> rows_;
  std::vector<int64_t> positions_;
  int64_t warnings_ = 0;
  std::string uuid_, host_key_, scratch_;
  bool ok_ = true;
  std::string error_;
};

RowMapper::RowMapper(const ScanFile& file, RowSink* sink) : impl_(new Impl(file, sink)) {}
RowMapper::~RowMapper() = default;
invread::DocumentHandler* RowMapper::document() {
  impl_->start_document();
  return impl_.get();
}
bool RowMapper::found() const {
  return impl_->found();
}
bool RowMapper::ok() const {
  return impl_->ok();
}
const std::string& RowMapper::error() const {
  return impl_->error();
}
bool RowMapper::finish(std::string* error) {
  return impl_->finish(error);
}

bool map_documents(const ScanFile& file, const std::vector<std::string>& texts, RowSink* sink,
                   std::string* error) {
  RowMapper mapper(file, sink);
  for (const std::string& text : texts) {
    invread::DocumentParser parser(mapper.document(), true);
    if (!parser.feed(text.data(), text.size()) || !parser.finish()) {
      *error = parser.error();
      return false;
    }
    if (!mapper.ok()) {
      *error = mapper.error();
      return false;
    }
  }
  return mapper.finish(error);
}

namespace {

bool days_from_civil_ok(int y, int m, int d) {
  static const int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return y >= 1 && m >= 1 && m <= 12 && d >= 1 && d <= kDays[m - 1] &&
         !(m == 2 && d == 29 && !((y % 4 == 0 && y % 100 != 0) || y % 400 == 0));
}

// Days since 1970-01-01 of a civil date (proleptic Gregorian).
int64_t days_from_civil(int64_t y, int64_t m, int64_t d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

void civil_from_days(int64_t z, int64_t* y, int* m, int* d) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  *d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  *m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  *y = yoe + era * 400 + (*m <= 2);
}

int digits(std::string_view s, size_t at, size_t n) {
  int v = 0;
  for (size_t i = at; i < at + n; ++i) v = v * 10 + (s[i] - '0');
  return v;
}

}  // namespace

const std::vector<Table>& tables() {
  static const std::vector<Table> all = define();
  return all;
}

const Table* find_table(const std::string& name) {
  for (const Table& t : tables()) {
    if (t.name == name) return &t;
  }
  return nullptr;
}

int Table::column_index(const std::string& n) const {
  for (size_t i = 0; i < columns.size(); ++i) {
    if (columns[i].name == n) return static_cast<int>(i);
  }
  return -1;
}

std::string Table::source_path(const Column& c) const {
  if (c.source.empty()) return "";
  const Source s = parse_source(c.source);
  const auto keep = static_cast<std::ptrdiff_t>(path.size() - std::min<size_t>(s.up, path.size()));
  std::vector<std::string> names(path.begin(), path.begin() + keep);
  names.insert(names.end(), s.down.begin(), s.down.end());
  std::string out;
  for (const std::string& n : names) {
    if (!out.empty()) out += " / ";
    // "Soft:*" is written as the format reference names it.
    if (n == "Soft:*") {
      out += "Soft:NAME VERSION";
    } else if (n.size() > 2 && n.compare(n.size() - 2, 2, ":*") == 0) {
      out += n.substr(0, n.size() - 1) + "NAME";
    } else {
      out += n;
    }
  }
  switch (s.what) {
    case Source::kAttr:
      return out + " @" + s.attr;
    case Source::kAttrMeta:
      return out + " @" + s.attr + " ~" + s.key;
    case Source::kMeta:
      return out + " ~" + s.key;
    case Source::kRowValue:
    case Source::kRowSuffix:
      return out + " @" + row_attribute;
    case Source::kRowMeta:
      return out + " @" + row_attribute + " ~" + s.key;
    default:
      return out;
  }
}

std::string Value::display() const {
  switch (kind) {
    case kInt:
      return std::to_string(i);
    case kText:
      return s;
    default:
      return "NULL";
  }
}

bool parse_int(std::string_view s, int64_t* out) {
  const bool negative = !s.empty() && s[0] == '-';
  const size_t start = negative ? 1 : 0;
  if (s.size() == start || s.size() - start > 19) return false;
  // Nineteen digits always fit in 64 unsigned bits; the sign's range is
  // checked after.
  uint64_t v = 0;
  for (size_t i = start; i < s.size(); ++i) {
    const unsigned d = static_cast<unsigned char>(s[i]) - static_cast<unsigned>('0');
    if (d > 9) return false;
    v = v * 10 + d;
  }
  constexpr uint64_t kMax = static_cast<uint64_t>(INT64_MAX);
  if (v > kMax + (negative ? 1 : 0)) return false;
  if (!negative) {
    *out = static_cast<int64_t>(v);
  } else {
    *out = v == kMax + 1 ? INT64_MIN : -static_cast<int64_t>(v);
  }
  return true;
}

bool timestamp_to_utc(std::string_view s, std::string* out) {
  // YYYYMMDDhhmmss.000000 then a sign and the offset in minutes.
  if (s.size() < 23 || !all_digits(s.substr(0, 14), 0) || s.compare(14, 7, ".000000") != 0 ||
      (s[21] != '+' && s[21] != '-') || !all_digits(s, 22) || s.size() > 27) {
    return false;
  }
  const int y = digits(s, 0, 4), mo = digits(s, 4, 2), d = digits(s, 6, 2);
  const int64_t h = digits(s, 8, 2), mi = digits(s, 10, 2), sec = digits(s, 12, 2);
  if (!days_from_civil_ok(y, mo, d) || h > 23 || mi > 59 || sec > 60) return false;
  const int64_t offset =
      static_cast<int64_t>(digits(s, 22, s.size() - 22)) * (s[21] == '-' ? -1 : 1);
  const int64_t t = days_from_civil(y, mo, d) * 86400 + h * 3600 + mi * 60 + sec - offset * 60;
  int64_t days = t / 86400, rem = t % 86400;
  if (rem < 0) {
    rem += 86400;
    --days;
  }
  int64_t yy;
  int mm, dd;
  civil_from_days(days, &yy, &mm, &dd);
  if (yy < 0 || yy > 9999) return false;
  // YYYY-MM-DDThh:mm:ssZ, every field in range and of fixed width.
  char buf[] = "0000-00-00T00:00:00Z";
  const int64_t fields[] = {yy, mm, dd, rem / 3600, rem / 60 % 60, rem % 60};
  const int ends[] = {3, 6, 9, 12, 15, 18};  // the last digit of each field
  for (int f = 0; f < 6; ++f) {
    int64_t v = fields[f];
    for (int at = ends[f]; v > 0; --at, v /= 10) buf[at] = static_cast<char>('0' + v % 10);
  }
  out->assign(buf, sizeof buf - 1);
  return true;
}

bool interval_to_seconds(std::string_view s, int64_t* out) {
  // DDDDDDDDhhmmss.000000:000
  if (s.size() != 25 || !all_digits(s.substr(0, 14), 0) || s.compare(14, 11, ".000000:000") != 0) {
    return false;
  }
  *out = static_cast<int64_t>(digits(s, 0, 8)) * 86400 +
         static_cast<int64_t>(digits(s, 8, 2)) * 3600 +
         static_cast<int64_t>(digits(s, 10, 2)) * 60 + digits(s, 12, 2);
  return true;
}

void convert_into(Conv c, std::string_view text, Value* v) {
  int64_t n = 0;
  bool ok = false;
  switch (c) {
    case Conv::kText:
      v->kind = Value::kText;
      v->s.assign(text);
      return;
    case Conv::kTime:
      // Written into the value's own string, which keeps its capacity.
      ok = timestamp_to_utc(text, &v->s);
      v->kind = ok ? Value::kText : Value::kNull;
      return;
    case Conv::kInt:
      ok = parse_int(text, &n);
      break;
    case Conv::kFlag:
      n = text == "1" || text == "true" ? 1 : 0;
      ok = n == 1 || text == "0" || text == "false";
      break;
    case Conv::kBytes:
      ok = parse_int(text, &n) && n >= 0;
      break;
    case Conv::kInterval:
      ok = interval_to_seconds(text, &n);
      break;
  }
  v->kind = ok ? Value::kInt : Value::kNull;
  v->i = ok ? n : 0;
}

Value convert(Conv c, std::string_view text) {
  Value v;
  convert_into(c, text, &v);
  if (v.kind != Value::kText) v.s.clear();
  return v;
}

}  // namespace invtab
