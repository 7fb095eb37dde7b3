// Asset summary stages that read the finished snapshot.
#include "summary/asset_stages.h"

#include <cctype>
#include <cmath>
#include <cstdlib>

#include "collectors/hardware/ports_dictionary.h"
#include "collectors/hardware/processors.h"
#include "collectors/hardware/smbios.h"
#include "host/text.h"
#include "zxml/tag.h"

namespace {

using text::contains;
using text::set_text;

// Follows a path of child names from node; null as soon as one is missing.
const ztag* find_path(const ztag* node, std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (node == nullptr) return nullptr;
    node = node->find_child(name);
  }
  return node;
}

// Text value of an attribute; missing and non-text attributes count as "".
std::string attr_plain_text(const ztag* node, const char* name) {
  if (node == nullptr) return std::string();
  const zattr* attr = node->find_attr(name);
  if (attr == nullptr || attr->value.kind() != zvalue::kText) return std::string();
  return attr->value.as_text();
}

std::string node_text(const ztag* node) {
  if (node == nullptr || node->value() == nullptr) return std::string();
  return node->value()->printed();
}

// The "base-value" annotation of an attribute, read as a byte count; false
// when there is none or it is not a number.
bool base_value(const ztag* node, const char* name, double* bytes) {
  const zattr* attr = node->find_attr(name);
  if (attr == nullptr) return false;
  const std::string* text = attr->meta.find("base-value");
  if (text == nullptr || text->empty()) return false;
  char* end = nullptr;
  double value = std::strtod(text->c_str(), &end);
  if (end == text->c_str() || !std::isfinite(value)) return false;
  *bytes = value;
  return true;
}

// The diagonal of a monitor in whole inches. The monitor record's own
// "diagonal" is taken when it has one; otherwise it is worked out from the
// visible image size, "W x H" in centimetres as the monitor reports it.
std::string monitor_diagonal(const ztag* monitor) {
  std::string diagonal = asset_attr_text(monitor, "diagonal");
  if (!diagonal.empty()) return diagonal;
  std::string size = asset_attr_text(monitor, "max-visible-image-size");
  const char* p = size.c_str();
  char* end = nullptr;
  double width = std::strtod(p, &end);
  if (end == p) return std::string();
  p = end;
  while (*p == ' ' || *p == 'x' || *p == 'X') ++p;
  double height = std::strtod(p, &end);
  if (end == p) return std::string();
  if (!(width > 0 && height > 0 && width < 1e6 && height < 1e6)) return std::string();
  double inches = std::sqrt(width * width + height * height) / 2.54;
  return format_string("%d", static_cast<int>(std::lround(inches)));
}

}  // namespace

std::string asset_attr_text(const ztag* node, const char* name) {
  if (node == nullptr) return std::string();
  const zattr* attr = node->find_attr(name);
  return attr == nullptr ? std::string() : attr->value.printed();
}

SmbiosIdentity read_smbios_identity(const std::string& dump) {
  SmbiosIdentity identity;
  identity.system_serial = text_between(smbios_record(dump, "System Info: #"), "Serial: \"", "\"");
  identity.board_manuf =
      text_between(smbios_record(dump, "Board Info: #"), "Manufacturer: \"", "\"");
  identity.chassis_manuf =
      text_between(smbios_record(dump, "Chassis Info: #"), "Manufacturer: \"", "\"");
  return identity;
}

std::string virtual_type(const std::string& model, const std::string& manuf, bool xen_guest) {
  const std::string m = text::lower_ascii(model);
  const std::string v = text::lower_ascii(manuf);
  if (contains(m, "vmware") && contains(v, "vmware")) return "nvtVMware";
  if (contains(m, "virtual") && contains(v, "microsoft")) return "nvtVirtualPC";
  if (contains(m, "virtualbox") && contains(v, "innotek")) return "nvtVirtualBox";
  if (contains(m, "parallels") && contains(v, "parallels")) return "nvtParallels";
  return xen_guest ? "nvtXen" : "nvtPhysical";
}

void asset_classification(ztag* asset, const ztag* snapshot, bool has_smbios, bool xen_guest) {
  set_text(asset, "asset-type", "natESX");
  const ztag* system = find_path(snapshot, {"System", "Computer-system"});
  if (has_smbios && system != nullptr) {
    set_text(asset, "virtual-type",
             virtual_type(attr_plain_text(system, "model"), attr_plain_text(system, "manuf"),
                          xen_guest));
  } else {
    set_text(asset, "virtual-type", xen_guest ? "nvtXen" : "nvtPhysical");
  }
}

void asset_scan_types(ztag* asset, const std::string& scan_time) {
  set_text(asset, "scan-type", "nstSSH");
  set_text(asset, "scan-subtype", "sstService");
  set_text(asset, "auto-icon-type", "nitESXServer");
  set_text(asset, "icon-type", "nitESXServer");
  set_text(asset, "first-scan", scan_time);
  set_text(asset, "last-scan", scan_time);
  set_text(asset, "snapshot-list", scan_time);
  set_text(asset, "snapshot-types", "esx:1");
}

void asset_uuid(ztag* asset, const ztag* snapshot) {
  set_text(asset, "uuid",
           asset_attr_text(find_path(snapshot, {"System", "Computer-system"}), "uuid"));
}

void asset_serial(ztag* asset, const SmbiosIdentity& identity) {
  set_text(asset, "serial-number", identity.system_serial);
}

void asset_os(ztag* asset, const ztag* snapshot) {
  set_text(asset, "asset-tag", "");
  set_text(asset, "vm-kind", "vmware");
  set_text(asset, "domain-role", "");
  set_text(asset, "reg-user", "");
  set_text(asset, "reg-org", "");
  const ztag* os = find_path(snapshot, {"OS", "os:1"});
  set_text(asset, "os-name", node_text(os));
  set_text(asset, "os-sp", asset_attr_text(os, "service-pack"));
  // The OS record carries the version inside its name; a separate "version"
  // attribute is taken when a record has one.
  set_text(asset, "os-ver", asset_attr_text(os, "version"));
  set_text(asset, "os-manuf", "VMware, Inc.");
  set_text(asset, "os-arch", asset_attr_text(os, "architecture"));
}

void asset_processor(ztag* asset, const ztag* snapshot, const PortsDictionary& dictionary) {
  const ztag* processors = find_path(snapshot, {"Processors"});
  // A snapshot without processor records (no element, or an empty one)
  // still describes a machine with one processor.
  size_t count = processors == nullptr ? 0 : processors->children().size();
  asset->set_attr("cpu-count", zvalue(static_cast<long long>(count == 0 ? 1 : count)));
  const ztag* first = processors == nullptr ? nullptr : processors->find_child("Processor:1");
  set_text(asset, "core-count", asset_attr_text(first, "core-count"));
  set_text(asset, "cpu-count-virtual", "0");
  set_text(asset, "cpu-speed", asset_attr_text(first, "current-clock-speed"));
  const std::string model = clean_cpu_name(node_text(first));
  if (dictionary.is_mobile_cpu(model)) {
    set_text(asset, "auto-icon-type", "nitLinLaptop");
    set_text(asset, "icon-type", "nitLinLaptop");
  }
  set_text(asset, "cpu-model", model);
  set_text(asset, "cpu-manuf", asset_attr_text(first, "manuf"));
}

void asset_system(ztag* asset, const ztag* snapshot, bool has_smbios,
                  const SmbiosIdentity& identity) {
  const ztag* system = has_smbios ? find_path(snapshot, {"System", "Computer-system"}) : nullptr;
  set_text(asset, "system-model", asset_attr_text(system, "model"));
  set_text(asset, "system-manuf", asset_attr_text(system, "manuf"));
  set_text(asset, "chassis-manuf", identity.chassis_manuf);
  set_text(asset, "mb-manuf", identity.board_manuf);
  set_text(asset, "phys-memory",
           asset_attr_text(find_path(snapshot, {"Memory", "General-Info"}), "physical-memory"));
}

void asset_video(ztag* asset, const ztag* snapshot) {
  set_text(
      asset, "video-ram",
      asset_attr_text(find_path(snapshot, {"Video", "Video-devices", "Video-adapter:1"}), "ram"));
}

void asset_monitor_and_capacity(ztag* asset, const ztag* snapshot, const std::string& physical) {
  const ztag* monitor = find_path(snapshot, {"Video", "Monitors", "Monitor:1"});
  set_text(asset, "video-res", asset_attr_text(monitor, "max-resolution"));
  set_text(asset, "monitor-count", monitor == nullptr ? "" : "1");
  set_text(asset, "monitor-diag", monitor == nullptr ? "" : monitor_diagonal(monitor));
  set_text(asset, "hdd-capacity", physical);
}

void asset_storage(ztag* asset, ztag* snapshot) {
  // The file systems are looked up as disk:1, disk:2, ... up to the first
  // number that is missing; the one mounted on "/" is the system disk.
  ztag* disks = snapshot == nullptr ? nullptr : snapshot->find_child("Storage");
  disks = disks == nullptr ? nullptr : disks->find_child("Logical-disks");
  int used_percent = 0;
  int free_percent = 0;
  for (int n = 1; disks != nullptr; ++n) {
    ztag* disk = disks->find_child(format_string("disk:%d", n));
    if (disk == nullptr) break;
    if (asset_attr_text(disk, "mount-point") != "/") continue;
    double size = 0;
    double free = 0;
    if (base_value(disk, "size", &size) && base_value(disk, "free", &free) && size > 0) {
      // Whole percent of free space (bounded, since the two numbers come
      // from separate tool columns), the rest is used.
      double share = free / size * 100.0;
      free_percent = share <= 0 ? 0 : share >= 100 ? 100 : static_cast<int>(share);
      used_percent = 100 - free_percent;
    }
    // The root file system is the only change the summary makes to the
    // snapshot: the mark tells the reader which disk the figures describe.
    disk->set_attr("sys", zvalue("1"));
    break;
  }
  set_text(asset, "used%", format_string("%d", used_percent));
  set_text(asset, "free%", format_string("%d", free_percent));
}

void asset_firewall(ztag* asset, bool has_iptables) {
  asset->set_attr("fw-status", zvalue(has_iptables ? 5 : 1));
}

void asset_hostname_fallback(ztag* asset, const std::function<std::string()>& kernel_hostname) {
  if (!asset_attr_text(asset, "hostname").empty()) return;
  std::string name = kernel_hostname();
  size_t dot = name.find('.');
  set_text(asset, "hostname", name.substr(0, dot != std::string::npos ? dot : name.find('\n')));
}
