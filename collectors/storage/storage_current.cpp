// Storage and virtual-machine readings for current releases.
#include "collectors/storage/storage_current.h"

#include <cctype>

#include "host/header_table.h"
#include "host/text.h"
#include "zxml/tag.h"

namespace storage {

namespace {

const size_t npos = std::string::npos;

std::string lower_ascii(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace

VmxKeys::VmxKeys(const std::string& vmx, bool any_case) : vmx_(vmx), any_case_(any_case) {
  if (!any_case_) return;
  text::for_each_line(vmx, text::LastLine::kCounted, [this](const std::string& line) {
    const size_t equals = line.find('=');
    if (equals == npos) return;
    const std::string key = lower_ascii(trim_space(line.substr(0, equals)));
    const size_t quote = line.find_first_not_of(" \t", equals + 1);
    if (key.empty() || quote == npos || line[quote] != '"') return;
    const size_t close = line.find('"', quote + 1);
    keys_.emplace(key, line.substr(quote + 1, close == npos ? npos : close - quote - 1));
    const size_t colon = key.find(':');
    if (colon != npos) unit_prefixes_.insert(key.substr(0, colon + 1));
  });
}

std::string VmxKeys::value(const std::string& key) const {
  if (!any_case_) return vmx_value(vmx_, key);
  const auto it = keys_.find(lower_ascii(key));
  return it == keys_.end() ? std::string() : it->second;
}

bool VmxKeys::mentions_controller(const char* prefix, int number) const {
  if (!any_case_) return storage::mentions_controller(vmx_, prefix, number);
  return unit_prefixes_.count(lower_ascii(format_string("%s%d:", prefix, number))) != 0;
}

std::vector<const char*> disk_controllers(bool sata_nvme) {
  if (sata_nvme) return {"scsi", "ide", "sata", "nvme"};
  return {"scsi", "ide"};
}

bool is_thin_descriptor(const std::string& descriptor) {
  return text_between(descriptor, "ddb.thinProvisioned = \"", "\"") == "1";
}

DiskFlags disk_flags(const std::string& create_type, bool thin) {
  DiskFlags flags = create_type_flags(create_type);
  if (thin && flags.preallocated >= 0) flags.preallocated = 0;
  return flags;
}

uint64_t allocated_bytes(HostAccess& host, const std::string& path) {
  const HostRecord::PathInfo info = host.path_info(path);
  return info.exists && !info.is_dir ? info.allocated : 0;
}

bool extent_columns_safe(const std::string& line, ExtentColumns* out) {
  // Four blank-separated columns, then the rest of the line.
  std::string cols[4];
  size_t pos = 0;
  for (int i = 0; i < 4; ++i) {
    const size_t start = i == 0 ? 0 : line.find_first_not_of(' ', pos);
    if (start == npos || start >= line.size()) return false;
    pos = line.find(' ', start);
    if (pos == npos) return false;
    cols[i] = line.substr(start, pos - start);
  }
  const size_t rest = line.find_first_not_of(' ', pos);
  if (rest == npos) return false;
  *out = ExtentColumns{cols[0], cols[1], cols[2], cols[3], line.substr(rest)};
  return true;
}

bool vm_line_has_path(const std::string& line) {
  const size_t bracket = line.find(']');
  return bracket != npos && line.find_first_not_of(' ', bracket + 1) != npos;
}

int64_t cores_per_socket(const std::string& text, bool* corrected) {
  *corrected = false;
  if (text.empty()) return 1;
  const int64_t value = read_decimal(text);
  if (value >= 1) return value;
  *corrected = true;
  return 1;
}

}  // namespace storage
