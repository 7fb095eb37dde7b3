// The table definitions, the mapping of a decoded document to rows, and the
// conversions of text values to typed ones.
#include "tools/fleet_tables.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace invtab {
namespace {

using invread::Attribute;
using invread::Element;

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

struct Compiled {
  std::vector<std::vector<Source>> sources;  // per table, per column
};

const Compiled& compiled() {
  static const Compiled c = [] {
    Compiled out;
    for (const Table& t : tables()) {
      std::vector<Source> s;
      for (const Column& col : t.columns) s.push_back(parse_source(col.source));
      out.sources.push_back(std::move(s));
    }
    return out;
  }();
  return c;
}

bool all_digits(const std::string& s, size_t from) {
  if (from >= s.size()) return false;
  for (size_t i = from; i < s.size(); ++i) {
    if (s[i] < '0' || s[i] > '9') return false;
  }
  return true;
}

// Whether a name matches a path pattern ("vm:N", "Soft:*", "*", "OS").
bool name_matches(const std::string& pattern, const std::string& name) {
  if (pattern == "*") return true;
  const size_t colon = pattern.find(':');
  if (colon == std::string::npos) return pattern == name;
  if (name.compare(0, colon + 1, pattern, 0, colon + 1) != 0) return false;
  const std::string what = pattern.substr(colon + 1);
  if (what == "N") return all_digits(name, colon + 1);
  return name.size() > colon + 1 || what == "*";
}

std::string suffix(const std::string& name) {
  const size_t colon = name.find(':');
  return colon == std::string::npos ? std::string() : name.substr(colon + 1);
}

const Attribute* find_attr(const Element& e, const std::string& name) {
  for (const Attribute& a : e.attrs) {
    if (a.name == name) return &a;
  }
  return nullptr;
}

const std::string* find_meta(const invread::Annotations& meta, const std::string& key) {
  for (const auto& m : meta) {
    if (m.first == key) return &m.second;
  }
  return nullptr;
}

// The value of an element named "prefix:NAME" (or "prefix:NAME VERSION")
// whose value is NAME again. The line is split at its first "=", so a NAME
// holding "=" leaves part of itself in the element's name; the split where
// the name part repeats the value (and the "version" attribute) is the one
// the agent wrote.
std::string recovered_value(const Element& e) {
  const size_t colon = e.name.find(':');
  if (colon == std::string::npos) return e.value;
  const std::string line = e.name.substr(colon + 1) + "=" + e.value;
  const Attribute* version = find_attr(e, "version");
  for (size_t p = line.find('='); p != std::string::npos; p = line.find('=', p + 1)) {
    const std::string value = line.substr(p + 1), name = line.substr(0, p);
    if (name == value || (version != nullptr && name == value + " " + version->value)) return value;
  }
  return e.value;
}

// The text a source names, or null when it is absent.
const std::string* resolve(const Source& src, const std::vector<const Element*>& chain,
                           const Attribute* row_attr, std::string* scratch) {
  switch (src.what) {
    case Source::kRowValue:
      return row_attr ? &row_attr->value : nullptr;
    case Source::kRowMeta:
      return row_attr ? find_meta(row_attr->meta, src.key) : nullptr;
    case Source::kRowSuffix:
      if (!row_attr) return nullptr;
      *scratch = suffix(row_attr->name);
      return scratch;
    default:
      break;
  }
  if (src.what == Source::kNone || static_cast<size_t>(src.up) >= chain.size()) return nullptr;
  const Element* e = chain[chain.size() - 1 - src.up];
  for (const std::string& name : src.down) {
    const Element* next = nullptr;
    for (const Element& c : e->children) {
      if (c.name == name) {
        next = &c;
        break;
      }
    }
    if (next == nullptr) return nullptr;
    e = next;
  }
  switch (src.what) {
    case Source::kAttr: {
      const Attribute* a = find_attr(*e, src.attr);
      return a ? &a->value : nullptr;
    }
    case Source::kAttrMeta: {
      const Attribute* a = find_attr(*e, src.attr);
      return a ? find_meta(a->meta, src.key) : nullptr;
    }
    case Source::kValue:
      return &e->value;
    case Source::kNameValue:
      *scratch = recovered_value(*e);
      return scratch;
    case Source::kMeta:
      return find_meta(e->meta, src.key);
    case Source::kSuffix:
      *scratch = suffix(e->name);
      return scratch;
    case Source::kName:
      return &e->name;
    default:
      return nullptr;
  }
}

class Mapper {
 public:
  Mapper(const ScanFile& file, const Documents& docs, RowSink* sink)
      : file_(file), docs_(docs), sink_(sink), host_key_(host_key(docs)) {}

  bool run(std::string* error) {
    warnings_ = count_warnings();
    const std::vector<Table>& all = tables();
    for (size_t i = 0; i < all.size(); ++i) {
      table_ = &all[i];
      sources_ = &compiled().sources[i];
      position_ = 0;
      const Element* top = table_->path[0] == "Snapshot" ? docs_.snapshot : docs_.assetinfo;
      if (top == nullptr) {
        // Every file gets its scans row, documents or not.
        if (table_->name == "scans" && !emit({}, nullptr, error)) return false;
        continue;
      }
      std::vector<const Element*> chain{top};
      if (!walk(chain, 1, error)) return false;
    }
    return true;
  }

 private:
  int64_t count_warnings() const {
    int64_t n = 0;
    if (docs_.snapshot == nullptr) return 0;
    for (const Element& c : docs_.snapshot->children) {
      for (const Attribute& a : c.attrs) {
        if (name_matches("Warning:N", a.name)) ++n;
      }
    }
    return n;
  }

  bool walk(std::vector<const Element*>& chain, size_t depth, std::string* error) {
    if (depth == table_->path.size()) {
      if (table_->row_attribute.empty()) return emit(chain, nullptr, error);
      for (const Attribute& a : chain.back()->attrs) {
        if (name_matches(table_->row_attribute, a.name) && !emit(chain, &a, error)) return false;
      }
      return true;
    }
    for (const Element& c : chain.back()->children) {
      if (!name_matches(table_->path[depth], c.name)) continue;
      chain.push_back(&c);
      const bool ok = walk(chain, depth + 1, error);
      chain.pop_back();
      if (!ok) return false;
      if (table_->single) break;
    }
    return true;
  }

  bool emit(const std::vector<const Element*>& chain, const Attribute* row_attr,
            std::string* error) {
    // One row buffer for the whole file: its strings keep their capacity,
    // so a row costs no allocation once the longest values have been seen.
    row_.resize(table_->columns.size());
    ++position_;
    for (size_t c = 0; c < table_->columns.size(); ++c) {
      const Column& col = table_->columns[c];
      Value& v = row_[c];
      if (col.source.empty()) {
        fill(col.name, &v);
        continue;
      }
      const std::string* text = resolve((*sources_)[c], chain, row_attr, &scratch_);
      if (text == nullptr) {
        v.kind = Value::kNull;
      } else if (col.conv == Conv::kText) {
        v.kind = Value::kText;
        v.s.assign(*text);
      } else {
        v = convert(col.conv, *text);
      }
    }
    return sink_->row(*table_, row_, error);
  }

  void fill(const std::string& name, Value* v) const {
    const std::string* text = name == "scan_id"     ? &file_.scan_id
                              : name == "host_key"  ? &host_key_
                              : name == "file_name" ? &file_.file_name
                                                    : nullptr;
    if (text != nullptr) {
      v->kind = Value::kText;
      v->s.assign(*text);
    } else {
      *v = filled(name);
    }
  }

  Value filled(const std::string& name) const {
    if (name == "scan_id") return Value::text(file_.scan_id);
    if (name == "position") return Value::integer(position_);
    if (name == "host_key") return Value::text(host_key_);
    if (name == "file_name") return Value::text(file_.file_name);
    if (name == "file_size") return Value::integer(static_cast<int64_t>(file_.size));
    if (name == "warnings_count") return Value::integer(warnings_);
    return Value();
  }

  const ScanFile& file_;
  const Documents& docs_;
  RowSink* sink_;
  std::string host_key_;
  const Table* table_ = nullptr;
  const std::vector<Source>* sources_ = nullptr;
  Row row_;
  std::string scratch_;
  int64_t position_ = 0;
  int64_t warnings_ = 0;
};

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

int digits(const std::string& s, size_t at, size_t n) {
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
  std::vector<std::string> names(path.begin(), path.end() - std::min<size_t>(s.up, path.size()));
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

bool parse_int(const std::string& s, int64_t* out) {
  const size_t start = !s.empty() && s[0] == '-' ? 1 : 0;
  if (!all_digits(s, start) || s.size() - start > 19) return false;
  errno = 0;
  char* end = nullptr;
  const long long v = std::strtoll(s.c_str(), &end, 10);
  if (errno != 0 || end != s.c_str() + s.size()) return false;
  *out = v;
  return true;
}

bool timestamp_to_utc(const std::string& s, std::string* out) {
  // YYYYMMDDhhmmss.000000 then a sign and the offset in minutes.
  if (s.size() < 23 || !all_digits(s.substr(0, 14), 0) || s.compare(14, 7, ".000000") != 0 ||
      (s[21] != '+' && s[21] != '-') || !all_digits(s, 22) || s.size() > 27) {
    return false;
  }
  const int y = digits(s, 0, 4), mo = digits(s, 4, 2), d = digits(s, 6, 2);
  const int h = digits(s, 8, 2), mi = digits(s, 10, 2), sec = digits(s, 12, 2);
  if (!days_from_civil_ok(y, mo, d) || h > 23 || mi > 59 || sec > 60) return false;
  const int64_t offset = std::strtoll(s.c_str() + 22, nullptr, 10) * (s[21] == '-' ? -1 : 1);
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
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02dZ", static_cast<int>(yy), mm, dd,
                static_cast<int>(rem / 3600), static_cast<int>(rem / 60 % 60),
                static_cast<int>(rem % 60));
  *out = buf;
  return true;
}

bool interval_to_seconds(const std::string& s, int64_t* out) {
  // DDDDDDDDhhmmss.000000:000
  if (s.size() != 25 || !all_digits(s.substr(0, 14), 0) || s.compare(14, 11, ".000000:000") != 0) {
    return false;
  }
  *out = static_cast<int64_t>(digits(s, 0, 8)) * 86400 + digits(s, 8, 2) * 3600 +
         digits(s, 10, 2) * 60 + digits(s, 12, 2);
  return true;
}

Value convert(Conv c, const std::string& text) {
  int64_t n = 0;
  switch (c) {
    case Conv::kText:
      return Value::text(text);
    case Conv::kInt:
      return parse_int(text, &n) ? Value::integer(n) : Value();
    case Conv::kFlag:
      if (text == "1" || text == "true") return Value::integer(1);
      if (text == "0" || text == "false") return Value::integer(0);
      return Value();
    case Conv::kBytes:
      return parse_int(text, &n) && n >= 0 ? Value::integer(n) : Value();
    case Conv::kTime: {
      std::string iso;
      return timestamp_to_utc(text, &iso) ? Value::text(iso) : Value();
    }
    case Conv::kInterval:
      return interval_to_seconds(text, &n) ? Value::integer(n) : Value();
  }
  return Value();
}

std::string host_key(const Documents& docs) {
  if (docs.snapshot != nullptr) {
    for (const Element& sys : docs.snapshot->children) {
      if (sys.name != "System") continue;
      for (const Element& cs : sys.children) {
        const Attribute* uuid = cs.name == "Computer-system" ? find_attr(cs, "uuid") : nullptr;
        if (uuid != nullptr && !uuid->value.empty()) return "uuid:" + uuid->value;
      }
    }
  }
  const Element* a = docs.assetinfo;
  const Attribute* mac = a ? find_attr(*a, "mac-address") : nullptr;
  if (mac != nullptr && !mac->value.empty() && mac->value != "00-00-00-00-00") {
    return "mac:" + mac->value;
  }
  const Attribute* name = a ? find_attr(*a, "hostname") : nullptr;
  if (name == nullptr && docs.snapshot != nullptr) name = find_attr(*docs.snapshot, "hostname");
  return "name:" + (name ? name->value : std::string());
}

bool map_rows(const ScanFile& file, const Documents& docs, RowSink* sink, std::string* error) {
  return Mapper(file, docs, sink).run(error);
}

}  // namespace invtab
