// Readings of the virtual-machine, virtual-disk and storage collectors for
// current releases: .vmx keys in any letter case, SATA and NVMe disks, thin
// disks and the space extents really take, and listing lines that are read
// safely instead of ending the scan.
#ifndef QUILLSCAN_COLLECTORS_STORAGE_STORAGE_CURRENT_H_
#define QUILLSCAN_COLLECTORS_STORAGE_STORAGE_CURRENT_H_

#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "collectors/storage/storage.h"
#include "host/host_access.h"

namespace storage {

// Key lookup in a .vmx text. The default reading (any_case false) finds the
// first "KEY = \"" anywhere in the text, with its letter case, as
// vmx_value does. With any_case, keys are whole keys at the start of a line
// ("KEY = \"value\""), compared without regard to letter case; the first
// line of a key counts. The text is not copied: it must outlive the lookup.
class VmxKeys {
 public:
  VmxKeys(const std::string& vmx, bool any_case);
  // Value of `key` ("memSize", "scsi0:1.fileName"); "" when absent.
  std::string value(const std::string& key) const;
  // Whether any key of a unit of controller prefix + number ("sata0:")
  // occurs; when none does, the controller's units need no walk.
  bool mentions_controller(const char* prefix, int number) const;

 private:
  const std::string& vmx_;
  bool any_case_;
  std::unordered_map<std::string, std::string> keys_;  // lower-case key -> value
  std::unordered_set<std::string> unit_prefixes_;      // lower-case "sata0:"
};

// Controller kinds whose units are searched for disks, in order: "scsi" and
// "ide", then "sata" and "nvme" when those are read too.
std::vector<const char*> disk_controllers(bool sata_nvme);

// Whether a descriptor marks its disk thin: ddb.thinProvisioned = "1".
bool is_thin_descriptor(const std::string& descriptor);

// The createType flags of a disk; a thin disk is not preallocated (where the
// createType gives the flag at all).
DiskFlags disk_flags(const std::string& create_type, bool thin);

// Space a file takes on its file system: its allocated blocks times 512.
// 0 when it cannot be examined or is a directory.
uint64_t allocated_bytes(HostAccess& host, const std::string& path);

// The columns of a VMFS extent line when it has all five; false (and no
// columns) for a line shorter than its columns.
bool extent_columns_safe(const std::string& line, ExtentColumns* out);

// Whether a machine line of the getallvms listing has its path: a "]" with
// text after it. The default reading ends the scan on a line with nothing
// after its "]", and cuts the path of a line without "]" from its start.
bool vm_line_has_path(const std::string& line);

// cpuid.coresPerSocket read safely: absent gives 1, and so does a value
// below 1 (an invalid setting: one core per socket), with *corrected set.
int64_t cores_per_socket(const std::string& text, bool* corrected);

}  // namespace storage

#endif  // QUILLSCAN_COLLECTORS_STORAGE_STORAGE_CURRENT_H_
