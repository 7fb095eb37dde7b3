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
  for (const FoundDisk& d : find_disks(ctx.host, vm_disks(vmx, prefix), vmx_dir)) {
    ztag* disk = devices->child(format_string("hdd:%d", ++disk_counter));
    disk->set_attr("interface", zvalue(d.entry.interface));
    disk->set_attr("disk-file", zvalue(d.entry.file));
    set_byte_size_attr(disk, "system-free", datastore_free);
    record_disk_sizes(disk, d.sizes);
  }
}

storage::VmdkDescriptor storage::parse_descriptor(const std::string& text) {
  VmdkDescriptor d;
  d.parent_hint = text_between(text, "parentFileNameHint=\"", "\"");
  d.create_type = text_between(text, "createType=\"", "\"");
  // The extent lines follow the section title, up to an empty line or a
  // comment; a last line without a line end is not read.
  const size_t section = text.find("# Extent description");
  if (section == std::string::npos) return d;
  for (const std::string& line : text::lines_after(
           text.substr(section), "", text::NoMarker::kNoLines, text::LastLine::kIgnored)) {
    if (line.empty() || line[0] == '#') break;
    // RW 41943040 VMFS "name-flat.vmdk" [offset]
    if (line.find(".vmdk") == std::string::npos) continue;
    const std::vector<std::string> fields = text::split_fields(line, ' ');
    if (fields.empty() || (fields[0] != "RW" && fields[0] != "RDONLY")) continue;
    d.extents.push_back(VmdkExtent{fields.size() > 1 ? read_decimal(fields[1]) : 0,
                                   text_between(line, "\"", "\"")});
  }
  return d;
}

uint64_t storage::provisioned_bytes(const VmdkDescriptor& descriptor) {
  uint64_t total = 0;
  for (const VmdkExtent& e : descriptor.extents) total += static_cast<uint64_t>(e.sectors) * 512u;
  return total;
}

uint64_t storage::occupied_bytes(HostAccess& host, const VmdkDescriptor& descriptor,
                                 const std::string& dir) {
  uint64_t total = 0;
  for (const VmdkExtent& e : descriptor.extents) total += file_size(host, dir + e.file);
  return total;
}

storage::DiskSizes storage::read_disk(HostAccess& host, const std::string& path, bool top_level,
                                      int depth) {
  DiskSizes sizes;
  // A chain longer than this (a loop, for instance) is not followed further.
  if (depth > kMaxParentDepth) return sizes;
  VmdkDescriptor descriptor;
  {
    const std::string head = read_head(host, path, kVmdkHead);
    // Otherwise the whole file is the descriptor (already read when short).
    if (is_sparse_extent(head)) {
      descriptor = parse_descriptor(embedded_descriptor(head));
    } else {
      descriptor = parse_descriptor(
          head.size() < kVmdkHead ? head : read_head(host, path, kMaxDescriptorBytes));
    }
  }
  const std::string dir = directory_of(path);
  if (top_level) {
    sizes.has_cur = true;
    sizes.cur = occupied_bytes(host, descriptor, dir);
  }
  if (!descriptor.parent_hint.empty()) {
    // A delta disk: its own extents are what it occupies; the size and the
    // allocation are those of the base disk. Only one descriptor is held at
    // a time, however long the chain.
    const std::string parent = dir + descriptor.parent_hint;
    descriptor = VmdkDescriptor();
    const DiskSizes base = read_disk(host, parent, false, depth + 1);
    sizes.has_max = base.has_max;
    sizes.max = base.max;
    sizes.flags = base.flags;
    return sizes;
  }
  sizes.has_max = true;
  sizes.max = provisioned_bytes(descriptor);
  sizes.flags = create_type_flags(descriptor.create_type);
  return sizes;
}

void storage::record_disk_sizes(ztag* disk, const DiskSizes& sizes) {
  if (sizes.has_cur) set_byte_size_attr(disk, "cur-size", sizes.cur);
  if (sizes.has_max) set_byte_size_attr(disk, "max-size", sizes.max);
  if (sizes.flags.preallocated >= 0)
    disk->set_attr("preallocated", zvalue(sizes.flags.preallocated));
  if (sizes.flags.single_file >= 0) disk->set_attr("single-file", zvalue(sizes.flags.single_file));
}

void storage::read_vmdk(ScanContext& ctx, const std::string& path, ztag* disk, bool top_level,
                        int depth) {
  record_disk_sizes(disk, read_disk(ctx.host, path, top_level, depth));
}

uint64_t storage::extent_bytes(ScanContext& ctx, const std::string& descriptor,
                               const std::string& dir, bool provisioned) {
  const VmdkDescriptor d = parse_descriptor(descriptor);
  return provisioned ? provisioned_bytes(d) : occupied_bytes(ctx.host, d, dir);
}
