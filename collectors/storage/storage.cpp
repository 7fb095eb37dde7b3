// Storage collector: the disk devices behind the VMFS extents ("Storage" /
// "Physical-disks") and the mounted file systems ("Storage" /
// "Logical-disks"), plus the capacity totals the asset summary reports.
#include "collectors/storage/storage.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "collectors/collectors.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "host/text.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

// ------------------------------------------------------------- helpers

uint64_t file_size(HostAccess& host, const std::string& path) {
  // A directory opens for reading too, but its "end" is not a byte count.
  const HostRecord::PathInfo info = host.path_info(path);
  return info.openable && !info.is_dir ? info.size : 0;
}

namespace storage {

int64_t read_decimal(const std::string& text) {
  return text::read_decimal(text, 0, text::Overflow::kSaturate64);
}

bool can_open(HostAccess& host, const std::string& path) {
  return host.path_info(path).openable;
}

std::vector<std::string> table_lines(const std::string& output) {
  return text::lines_after(output, text::kTwoDashes, text::NoMarker::kNoLines,
                           text::LastLine::kIgnored);
}

ExtentColumns extent_columns(const std::string& line) {
  // Columns are cut at single blanks with runs skipped. A start position of
  // npos (a missing column) makes substr throw, which ends the scan.
  ExtentColumns c;
  const size_t e1 = line.find(' ');
  c.volume = line.substr(0, e1);
  const size_t s2 = line.find_first_not_of(' ', e1);
  const size_t e2 = line.find(' ', s2);
  c.uuid = line.substr(s2, e2 - s2);
  const size_t s3 = line.find_first_not_of(' ', e2);
  const size_t e3 = line.find(' ', s3);
  c.extent = line.substr(s3, e3 - s3);
  const size_t s4 = line.find_first_not_of(' ', e3);
  const size_t e4 = line.find(' ', s4);
  c.device = line.substr(s4, e4 - s4);
  c.partition = line.substr(line.find_first_not_of(' ', e4));
  return c;
}

float to_float(long double value) {
  // A volatile store drops any excess precision the compiler keeps in
  // registers (x87 builds evaluate float expressions in extended precision).
  volatile float rounded = static_cast<float>(value);
  return rounded;
}

int64_t truncate_to_int64(long double value) {
  // 2^63 is exact in long double; the x87 store gives 0x8000000000000000 for
  // anything it cannot represent.
  const long double limit = 9223372036854775808.0L;
  if (std::isnan(value) || value >= limit || value < -limit) return INT64_MIN;
  return static_cast<int64_t>(value);
}

int64_t round_to_int64(long double value) {
  if (std::isnan(value) || std::isinf(value)) return INT64_MIN;
  // nearbyint rounds ties to even in the default rounding mode.
  return truncate_to_int64(std::nearbyint(value));
}

void set_fs_size_attr(ztag* node, const char* name, float gb, const std::string& base_value) {
  if (gb < 1.0f) {
    zattr* a = node->set_attr(name, zvalue(format_string("%.1f", static_cast<double>(gb) * 1024.0)),
                              "base-value", base_value.c_str());
    a->add_meta("units", "MB");
  } else {
    node->set_attr(name, zvalue(format_string("%.2f", static_cast<double>(gb))), "base-value",
                   base_value.c_str());
  }
}

int64_t used_percent(float used_gb, float size_gb) {
  // A zero size has no defined quotient; the result is what the x87 unit
  // stores for it. Computed in extended precision like the sizes.
  if (size_gb == 0.0f) return INT64_MIN;
  const long double q = static_cast<long double>(used_gb) / static_cast<long double>(size_gb);
  return round_to_int64(q * 100.0L);
}

int64_t free_percent(int64_t used_pct) {
  return static_cast<int64_t>(100ULL - static_cast<uint64_t>(used_pct));
}

void set_byte_size_attr(ztag* node, const char* name, uint64_t bytes) {
  const long double gb =
      static_cast<long double>(bytes) * 0.0009765625L * 0.0009765625L * 0.0009765625L;
  const std::string base = format_string("%lld", static_cast<long long>(bytes));
  zattr* a;
  if (gb >= 1.0L) {
    a = node->set_attr(name, zvalue(format_string("%.2Lf", gb)));
  } else {
    a = node->set_attr(name, zvalue(format_string("%.1Lf", gb * 1024.0L)), "units", "MB");
  }
  a->add_meta("base-value", base);
}

}  // namespace storage

// ----------------------------------------------------------- collector

void storage::read_device(const std::string& device_output, ExtentRecord* extent) {
  extent->size_text = text_between(device_output, "Size: ", "\n");
  extent->model = text_between(device_output, "Model: ", "\n");
  extent->revision = text_between(device_output, "Revision: ", "\n");
}

std::vector<storage::ExtentRecord> storage::read_extents(
    const std::string& listing, const std::function<std::string(const std::string&)>& lookup) {
  // Each line is cut, then its device looked up, before the next line is
  // cut: a line that cannot be cut ends the scan after the lookups of the
  // lines before it.
  std::vector<ExtentRecord> extents;
  for (const std::string& line : table_lines(listing)) {
    if (line.empty()) continue;
    ExtentRecord extent{extent_columns(line), "", "", ""};
    if (!extent.columns.device.empty()) read_device(lookup(extent.columns.device), &extent);
    extents.push_back(extent);
  }
  return extents;
}

double storage::record_physical_disks(ztag* top, const std::vector<ExtentRecord>& extents) {
  // Every extent writes the same node HDD:1, so it ends up describing the
  // last extent; the total counts all.
  double physical_gb = 0;
  for (const ExtentRecord& e : extents) {
    const int64_t mb = read_decimal(e.size_text);
    const long double gb = static_cast<long double>(mb) * 0.0009765625L;
    physical_gb = static_cast<double>(static_cast<long double>(physical_gb) + gb);
    const int64_t whole_gb = truncate_to_int64(gb);
    const int64_t bytes = static_cast<int64_t>(static_cast<uint64_t>(mb) << 20);

    // Compat: "size" set again keeps the "base-value" of the first extent
    // while its value follows the last (pinned by the esxi67 whole-document
    // golden, InProcessScan).
    ztag* disk = top->child("Storage")->child("Physical-disks")->child(format_string("HDD:%d", 1));
    disk->set_attr("interface", zvalue("SCSI"));
    disk->set_attr("model", zvalue(e.model));
    disk->set_attr("fw-rev", zvalue(e.revision));
    disk->set_attr("size", zvalue(format_string("%lld", static_cast<long long>(whole_gb))),
                   "base-value", format_string("%lld", static_cast<long long>(bytes)).c_str());
    disk->set_attr("partitions", zvalue(e.columns.partition));
    disk->set_attr("vmfs-uuid", zvalue(e.columns.uuid));
  }
  return physical_gb;
}

void storage::record_filesystems(const std::string& listing, zXML* doc, double* size_gb,
                                 double* free_gb) {
  int number = 0;
  for (const std::string& line : table_lines(listing)) {
    if (line.empty()) continue;
    float line_free = 0;
    float line_size = 0;
    scan_filesystem_line(line, doc, ++number, line_free, line_size);
    *size_gb += line_size;
    *free_gb += line_free;
  }
}

void collect_storage(ScanContext& ctx, zXML* doc) {
  ctx.physical_gb = 0;
  ctx.fs_size_gb = 0;
  ctx.fs_free_gb = 0;
  const std::vector<storage::ExtentRecord> extents = storage::read_extents(
      run_command(ctx.host, "esxcli storage vmfs extent list"), [&ctx](const std::string& name) {
        const std::string device_arg = shell_quote(name);
        const std::string device =
            run_command(ctx.host, "esxcli storage core device list -d " + device_arg);
        // The path list's adapter identifier has no place in the output;
        // the command still runs so that the device is looked up the same
        // way.
        if (!device.empty())
          run_command(ctx.host, "esxcli storage core path list -d " + device_arg);
        return device;
      });
  ctx.physical_gb = storage::record_physical_disks(doc->top(), extents);
  storage::record_filesystems(run_command(ctx.host, "esxcli storage filesystem list"), doc,
                              &ctx.fs_size_gb, &ctx.fs_free_gb);
}

void storage::scan_filesystem_line(const std::string& line, zXML* doc, int /*line_number*/,
                                   float& free_gb, float& size_gb) {
  // Mount point, volume name, UUID, mounted flag, type, size, free. A volume
  // name that is empty or holds a blank changes the count: such lines are
  // left out.
  const std::vector<std::string> f = text::split_fields(line, ' ');
  if (f.size() != 7) return;

  float size_bytes = 0;
  float free_bytes = 0;
  std::sscanf(f[5].c_str(), "%f", &size_bytes);
  std::sscanf(f[6].c_str(), "%f", &free_bytes);
  // Single-precision amounts; the scaling by 2^-10 is exact, the
  // subtractions round to single precision.
  const long double kK = 0.0009765625L;
  size_gb = storage::to_float(static_cast<long double>(size_bytes) * kK * kK * kK);
  free_gb = storage::to_float(static_cast<long double>(free_bytes) * kK * kK * kK);
  const float used_gb = storage::to_float(static_cast<long double>(size_gb) - free_gb);
  const float used_bytes_f = storage::to_float(static_cast<long double>(size_bytes) -
                                               static_cast<long double>(free_bytes));
  const int64_t used_bytes = storage::truncate_to_int64(used_bytes_f);

  ztag* disks = doc->top()->child("Storage")->child("Logical-disks");
  const int n = disks->next_index("partition:", true);
  ztag* part = disks->child(format_string("partition:%d", n), zvalue(f[1]));
  part->set_attr("file-sys", zvalue(f[4]));
  storage::set_fs_size_attr(part, "size", size_gb, f[5]);
  storage::set_fs_size_attr(part, "free", free_gb, f[6]);
  storage::set_fs_size_attr(part, "used", used_gb,
                            format_string("%lld", static_cast<long long>(used_bytes)));
  part->set_attr("mount-point", zvalue(f[0]));
  const int64_t used_pct = storage::used_percent(used_gb, size_gb);
  part->set_attr("free%", zvalue(storage::free_percent(used_pct)));
  zattr* pct = part->set_attr("used%", zvalue(used_pct), "pos",
                              format_string("%.2f", static_cast<double>(used_gb)).c_str());
  pct->add_meta("max", format_string("%.2f", static_cast<double>(size_gb)));
  pct->add_meta("val-units", "GB");
}
