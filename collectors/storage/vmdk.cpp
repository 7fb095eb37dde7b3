// Virtual disks of a machine: which SCSI and IDE units hold an existing
// .vmdk, and from each disk's descriptor (a descriptor file, or the one
// embedded in a sparse extent) the space its files take, its provisioned
// size and how it is allocated. Delta disks lead to their parent through
// "parentFileNameHint"; the provisioned size and the allocation come from
// the base disk at the end of that chain.
#include <algorithm>
#include <cctype>
#include <cstdio>

#include "collectors/scan_context.h"
#include "collectors/storage/storage.h"
#include "host/command.h"
#include "host/text.h"
#include "zxml/tag.h"

namespace {

// A descriptor is a few kilobytes of text. A file that is not a sparse
// extent is read as text, but never more than this, so that a flat extent
// named where a descriptor belongs cannot take the scan's memory.
constexpr size_t kMaxDescriptorBytes = 16u << 20;

// Up to max bytes from the start of a file ("" when it cannot be opened).
std::string read_head(HostAccess& host, const std::string& path, size_t max) {
  std::string data;
  host.read(path, max, &data);
  return data;
}

}  // namespace

namespace storage {

std::string device_value(const std::string& vmx, const std::string& device, const char* suffix) {
  return text_between(vmx, device + suffix, "\"");
}

DiskFlags create_type_flags(const std::string& create_type) {
  DiskFlags flags;
  const std::string type = text::lower_ascii(create_type);
  // A sparse delta on VMFS counts as preallocated: its space is taken from
  // the datastore as the guest writes, block by block.
  if (type == "vmfs") return {1, 1};
  if (type == "vmfssparse") return {1, 0};
  if (type.find("sparse") != std::string::npos) {
    flags.preallocated = 0;
  } else if (type.find("flat") != std::string::npos) {
    flags.preallocated = 1;
  } else {
    return flags;
  }
  if (type.find("monolithic") != std::string::npos) {
    flags.single_file = 1;
  } else if (type.find("twogbmaxextent") != std::string::npos ||
             type.find("2gbmaxextent") != std::string::npos) {
    flags.single_file = 0;
  }
  return flags;
}

bool is_sparse_extent(const std::string& head) {
  return head.compare(0, 4, "KDMV") == 0;
}

std::string embedded_descriptor(const std::string& head) {
  if (head.size() <= kEmbeddedDescriptorOffset || head[kEmbeddedDescriptorOffset] != '#') {
    return std::string();
  }
  const size_t end = std::min(head.find('\0', kEmbeddedDescriptorOffset), kVmdkHead);
  return head.substr(kEmbeddedDescriptorOffset, end - kEmbeddedDescriptorOffset);
}

std::string directory_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

}  // namespace storage

void storage::scan_vm_disks(ScanContext& ctx, ztag* devices, const std::string& vmx,
                            const char* prefix, const std::string& vmx_dir, uint64_t datastore_free,
                            int& disk_counter) {
  const std::string interface_name = text::upper_ascii(prefix);
  // Only controllers marked present count, IDE ones included.
  for (int k = 0; k < 15; ++k) {
    if (storage::controller_present(vmx, prefix, k) != "TRUE") continue;
    if (!storage::mentions_controller(vmx, prefix, k)) continue;
    for (int unit = 0; unit < 15; ++unit) {
      const std::string device = format_string("%s%d:%d", prefix, k, unit);
      const std::string file = storage::device_value(vmx, device, ".fileName = \"");
      if (storage::device_value(vmx, device, ".present = \"") != "TRUE") continue;
      const size_t dot = file.rfind('.');
      if (dot == std::string::npos || file.compare(dot, std::string::npos, ".vmdk") != 0) continue;
      // The name is always taken relative to the machine's directory; an
      // absolute name therefore does not lead to a file.
      const std::string path = vmx_dir + file;
      if (!storage::can_open(ctx.host, path)) continue;
      ztag* disk = devices->child(format_string("hdd:%d", ++disk_counter));
      disk->set_attr("interface", zvalue(interface_name));
      disk->set_attr("disk-file", zvalue(file));
      storage::set_byte_size_attr(disk, "system-free", datastore_free);
      read_vmdk(ctx, path, disk, true);
    }
  }
}

void storage::read_vmdk(ScanContext& ctx, const std::string& path, ztag* disk, bool top_level,
                        int depth) {
  // A chain longer than this (a loop, for instance) is not followed further.
  if (depth > storage::kMaxParentDepth) return;

  std::string descriptor;
  {
    const std::string head = read_head(ctx.host, path, storage::kVmdkHead);
    // Otherwise the whole file is the descriptor (already read when short).
    if (storage::is_sparse_extent(head)) {
      descriptor = storage::embedded_descriptor(head);
    } else {
      descriptor =
          head.size() < storage::kVmdkHead ? head : read_head(ctx.host, path, kMaxDescriptorBytes);
    }
  }
  const std::string dir = storage::directory_of(path);

  const std::string parent = text_between(descriptor, "parentFileNameHint=\"", "\"");
  if (!parent.empty()) {
    // A delta disk: its own extents are what it occupies; the size and the
    // allocation are those of the base disk.
    if (top_level) {
      storage::set_byte_size_attr(disk, "cur-size", extent_bytes(ctx, descriptor, dir, false));
    }
    // Only one descriptor is held at a time, however long the chain.
    std::string().swap(descriptor);
    read_vmdk(ctx, dir + parent, disk, false, depth + 1);
    return;
  }
  if (top_level) {
    storage::set_byte_size_attr(disk, "cur-size", extent_bytes(ctx, descriptor, dir, false));
  }
  storage::set_byte_size_attr(disk, "max-size", extent_bytes(ctx, descriptor, dir, true));
  const storage::DiskFlags flags =
      storage::create_type_flags(text_between(descriptor, "createType=\"", "\""));
  if (flags.preallocated >= 0) disk->set_attr("preallocated", zvalue(flags.preallocated));
  if (flags.single_file >= 0) disk->set_attr("single-file", zvalue(flags.single_file));
}

uint64_t storage::extent_bytes(ScanContext& ctx, const std::string& descriptor,
                               const std::string& dir, bool provisioned) {
  const size_t section = descriptor.find("# Extent description");
  if (section == std::string::npos) return 0;
  uint64_t total = 0;
  size_t nl = descriptor.find('\n', section);
  while (nl != std::string::npos) {
    const size_t next = descriptor.find('\n', nl + 1);
    if (next == std::string::npos) break;
    const std::string line = descriptor.substr(nl + 1, next - nl - 1);
    if (line.empty() || line[0] == '#') break;
    nl = next;
    // RW 41943040 VMFS "name-flat.vmdk" [offset]
    if (line.find(".vmdk") == std::string::npos) continue;
    const std::vector<std::string> fields = text::split_fields(line, ' ');
    if (fields.empty() || (fields[0] != "RW" && fields[0] != "RDONLY")) continue;
    if (provisioned) {
      const int64_t sectors = fields.size() > 1 ? storage::read_decimal(fields[1]) : 0;
      total += static_cast<uint64_t>(sectors) * 512u;
    } else {
      total += file_size(ctx.host, dir + text_between(line, "\"", "\""));
    }
  }
  return total;
}
