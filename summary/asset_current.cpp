// Summary values for current releases.
#include "summary/asset_current.h"

#include <cmath>
#include <cstdlib>

#include "zxml/tag.h"

namespace {

// The "base-value" annotation of attribute `name`, as bytes.
bool bytes_of(const ztag* node, const char* name, double* bytes) {
  const zattr* attr = node->find_attr(name);
  const std::string* base = attr != nullptr ? attr->meta.find("base-value") : nullptr;
  if (base == nullptr || base->empty()) return false;
  char* end = nullptr;
  const double value = std::strtod(base->c_str(), &end);
  if (end == base->c_str() || !std::isfinite(value) || value < 0) return false;
  *bytes = value;
  return true;
}

}  // namespace

bool filesystem_usage(const ztag* snapshot, int* used_percent, int* free_percent) {
  const ztag* storage = snapshot != nullptr ? snapshot->find_child("Storage") : nullptr;
  const ztag* disks = storage != nullptr ? storage->find_child("Logical-disks") : nullptr;
  if (disks == nullptr) return false;
  double size_total = 0;
  double free_total = 0;
  for (const auto& disk : disks->children()) {
    double size = 0;
    double free = 0;
    if (!bytes_of(disk.get(), "size", &size) || !bytes_of(disk.get(), "free", &free)) continue;
    size_total += size;
    free_total += free < size ? free : size;
  }
  if (!(size_total > 0) || !std::isfinite(size_total)) return false;
  const double share = free_total / size_total * 100.0;
  *free_percent = share <= 0 ? 0 : share >= 100 ? 100 : static_cast<int>(share);
  *used_percent = 100 - *free_percent;
  return true;
}

void asset_filesystem_usage(ztag* asset, const ztag* snapshot) {
  int used = 0;
  int free = 0;
  if (!filesystem_usage(snapshot, &used, &free)) return;
  asset->set_attr("used%", zvalue(format_string("%d", used)));
  asset->set_attr("free%", zvalue(format_string("%d", free)));
}
