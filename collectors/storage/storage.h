// Text helpers of the storage, virtual-machine and virtual-disk collectors:
// field splitting, number reading, the size texts with their annotations,
// .vmx key lookup and the .vmdk descriptor rules. None of them runs a
// command; the collectors in storage.cpp, vms.cpp and vmdk.cpp do, and hand
// the text they get to these functions.
#ifndef QUILLSCAN_COLLECTORS_STORAGE_STORAGE_H_
#define QUILLSCAN_COLLECTORS_STORAGE_STORAGE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/reading.h"

class HostAccess;
struct ScanContext;
class zXML;
class ztag;

// Size of a file in bytes: opened for reading and measured by seeking to its
// end. 0 when it cannot be opened or is a directory.
uint64_t file_size(HostAccess& host, const std::string& path);

namespace storage {

// A text read as a decimal 64-bit integer: leading blanks, an optional sign
// and the digits that follow; 0 when there are none. Values beyond the 64-bit
// range stop at the nearest limit.
int64_t read_decimal(const std::string& text);

// True when path can be opened for reading.
bool can_open(HostAccess& host, const std::string& path);

// The lines of a tool's table: every text between one "\n" and the next,
// starting at the "\n" that ends the dashed line under the header. Text after
// the last "\n" is not a line. Empty when there is no "--" or no "\n" after it.
std::vector<std::string> table_lines(const std::string& output);

// The columns of one VMFS extent line: volume name, VMFS UUID, extent number,
// device name, and the rest of the line (the partition). A line with fewer
// columns makes std::string::substr throw std::out_of_range.
struct ExtentColumns {
  std::string volume;
  std::string uuid;
  std::string extent;
  std::string device;
  std::string partition;
};
ExtentColumns extent_columns(const std::string& line);

// One VMFS extent and what the device list says of its device.
struct ExtentRecord {
  ExtentColumns columns;
  std::string size_text;  // megabytes, as printed
  std::string model;
  std::string revision;
};
// The fields of "esxcli storage core device list -d" output an extent keeps.
void read_device(const std::string& device_output, ExtentRecord* extent);
// The extents of "esxcli storage vmfs extent list" output, each with what
// lookup(device name) printed for its device ("" when nothing). With
// `skipped`, a line shorter than its columns is left out and counted there
// instead of ending the scan.
std::vector<ExtentRecord> read_extents(const std::string& listing,
                                       const std::function<std::string(const std::string&)>& lookup,
                                       int* skipped = nullptr);
// Storage / Physical-disks from the extents, in order; returns the physical
// capacity in GB.
double record_physical_disks(ztag* top, const std::vector<ExtentRecord>& extents);
// Storage / Logical-disks from "esxcli storage filesystem list" output;
// adds each file system's size and free space (GB) to the totals.
void record_filesystems(const std::string& listing, zXML* doc, double* size_gb, double* free_gb);

// Rounds to single precision, also where the compiler would otherwise keep
// extended precision.
float to_float(long double value);

// Converts a float (or wider) value to a 64-bit integer the way the x87 unit
// stores it: truncated toward zero, and the most negative 64-bit value for
// NaN and for results outside the signed range.
int64_t truncate_to_int64(long double value);
// Rounds to the nearest integer, ties to even, with the same out-of-range
// result as truncate_to_int64.
int64_t round_to_int64(long double value);

// File-system sizes: "%.2f" of the GB amount, or "%.1f" MB below 1 GB. The
// attribute carries "base-value" = base_value and then, for MB, "units".
void set_fs_size_attr(ztag* node, const char* name, float gb, const std::string& base_value);

// Used percentage of a file system, rounded ties-to-even. A size of 0 (or any
// quotient that is not a representable integer) gives the most negative
// 64-bit value.
int64_t used_percent(float used_gb, float size_gb);
// 100 minus used%, wrapping like 64-bit two's complement arithmetic.
int64_t free_percent(int64_t used_pct);

// Byte counts of machines and disks: "%.2f" GB, or "%.1f" MB below 1 GB with
// "units" = "MB"; then "base-value" = the byte count.
void set_byte_size_attr(ztag* node, const char* name, uint64_t bytes);

// The value of a .vmx key: the text after the first occurrence of
// key + " = \"" anywhere in the file, up to the next double quote; "" when
// the key does not occur. Matches inside longer keys that end the same way.
std::string vmx_value(const std::string& vmx, const std::string& key);

// The presence key of controller prefix + number ("scsi0.present").
std::string controller_present(const std::string& vmx, const char* prefix, int number);

// Whether any key of a unit of controller prefix + number ("ide1:") occurs.
// When none does, every unit key of that controller reads as "", so the
// walks over its 15 units can be skipped without changing what they find.
bool mentions_controller(const std::string& vmx, const char* prefix, int number);

// The value of a numbered device's key: device name followed directly by
// suffix (".present = \"", ".fileName = \"", ...), up to the next quote.
std::string device_value(const std::string& vmx, const std::string& device, const char* suffix);

// "00:0c:29:ab" -> "00-0C-29-AB": colons become dashes, the rest upper case.
std::string mac_text(const std::string& mac);

// "annotation" text with every "|0A" replaced by one blank.
std::string notes_text(const std::string& annotation);

// Machines per socket: total / per_socket. A per_socket of 0 (an invalid
// setting) ends the process with an arithmetic fault (SIGFPE), as the
// division would; the single overflowing case (most negative / -1) wraps
// to the most negative.
int64_t cpu_count(int64_t total_cores, int64_t cores_per_socket);

// vm-state from "vim-cmd vmsvc/power.getstate" output: 1 on, 0 off (any
// other "Powered " word), 2 suspended, -1 when the output says neither.
int power_state(const std::string& output);

// One line of the getallvms listing.
struct VmListing {
  enum Kind { kMachine, kContinuation, kEnd } kind = kEnd;
  std::string id;         // first column
  std::string datastore;  // text between "[" and "]"
  std::string relative;   // from the first non-blank after "]" through ".vmx"
};
// Without "]" the path starts at the line's first non-blank; with only
// blanks after "]" std::string::substr throws std::out_of_range.
VmListing parse_vm_line(const std::string& line);

// preallocated / single-file from a createType value (any case); -1 where no
// rule applies and the attribute is not written.
struct DiskFlags {
  int preallocated = -1;
  int single_file = -1;
};
DiskFlags create_type_flags(const std::string& create_type);

// Size of the buffer read from the start of a .vmdk file.
constexpr size_t kVmdkHead = 8192;
// Where a sparse extent ("KDMV") keeps its embedded descriptor.
constexpr size_t kEmbeddedDescriptorOffset = 512;

// Whether the first bytes of a .vmdk are a sparse extent header.
bool is_sparse_extent(const std::string& head);
// The descriptor embedded in a sparse extent whose first bytes are head: the
// bytes from offset 512 to the first zero byte (or the end of the 8192-byte
// head), or "" when offset 512 does not hold "#".
std::string embedded_descriptor(const std::string& head);

// Directory part of a path, up to and including its last "/" ("" when there
// is none).
std::string directory_of(const std::string& path);

// Longest chain of parent disks followed from one disk. A longer chain (or a
// chain that loops back on itself) stops there; the disk then gets no
// "max-size" and no createType flags.
constexpr int kMaxParentDepth = 32;

// ---------------------------------------------------------- virtual disks

// One extent line of a .vmdk descriptor ("RW 41943040 VMFS "x-flat.vmdk"").
struct VmdkExtent {
  int64_t sectors = 0;
  std::string file;  // relative to the descriptor's directory
};
// What the agent reads of a .vmdk descriptor.
struct VmdkDescriptor {
  std::string parent_hint;  // parentFileNameHint: set for a delta disk
  std::string create_type;
  std::vector<VmdkExtent> extents;  // RW/RDONLY lines that name a .vmdk
  bool thin = false;                // ddb.thinProvisioned = "1"
};
VmdkDescriptor parse_descriptor(const std::string& text);
// Sectors of all extents, in bytes.
uint64_t provisioned_bytes(const VmdkDescriptor& descriptor);
// Sizes of the extents' files in `dir` (ending in "/"): their apparent
// sizes, or with `allocated` the space they take (allocated blocks).
uint64_t occupied_bytes(HostAccess& host, const VmdkDescriptor& descriptor, const std::string& dir,
                        bool allocated = false);

// What one disk's descriptor chain says: the space its own files take (only
// asked of the disk a machine names), the provisioned size and allocation
// of the base disk at the end of the chain (absent when the chain is too
// long or loops).
struct DiskSizes {
  bool has_cur = false;
  uint64_t cur = 0;
  bool has_max = false;
  uint64_t max = 0;
  DiskFlags flags;
};
// The thin_disks and allocated_disk_size switches of `reading` apply.
DiskSizes read_disk(HostAccess& host, const std::string& path, bool top_level, int depth,
                    const ReadingSwitches& reading = ReadingSwitches());
// cur-size, max-size, preallocated, single-file: those the sizes hold.
void record_disk_sizes(ztag* disk, const DiskSizes& sizes);

// ------------------------------------------------------- virtual machines

struct VmDisk {
  std::string interface;  // "SCSI" or "IDE"
  std::string file;       // as the .vmx names it
};
struct VmCdrom {
  std::string interface;
  std::string connection;  // the image, or "auto detect"
};
struct VmAdapter {
  std::string conn_type;
  std::string addr_type;
  std::string mac;      // dashed, upper case
  int link_state = -1;  // bridged adapters only: 0 or 1
  std::string vnet;     // custom adapters only
};
// What the agent reads of a .vmx configuration.
struct VmConfig {
  std::string name;
  std::string hw_version;
  std::string guest_os;
  std::string notes;
  std::string memory;
  int64_t total_cores = 1;
  int64_t cores_per_cpu = 1;
  bool cores_corrected = false;  // coresPerSocket below 1, read as 1 (skip_malformed)
  std::vector<VmDisk> disks;     // present units naming a .vmdk, SCSI then IDE
  std::vector<VmCdrom> cdroms;
  std::vector<VmAdapter> adapters;  // slots 0 to 14
};
// The vmx_keys_any_case, sata_nvme_disks and skip_malformed switches of
// `reading` apply.
VmConfig parse_vmx(const std::string& vmx, const ReadingSwitches& reading = ReadingSwitches());
// The disk units and CD-ROM drives of one controller kind ("scsi", "ide",
// and with the switch "sata", "nvme"), keys read from `keys`.
class VmxKeys;
std::vector<VmDisk> vm_disks(const VmxKeys& keys, const char* prefix);
std::vector<VmCdrom> vm_cdroms(const VmxKeys& keys, const char* prefix);
std::vector<VmDisk> vm_disks(const std::string& vmx, const char* prefix);
std::vector<VmCdrom> vm_cdroms(const std::string& vmx, const char* prefix);

// A disk the configuration names that exists, with its chain's sizes.
struct FoundDisk {
  VmDisk entry;
  DiskSizes sizes;
};
std::vector<FoundDisk> find_disks(HostAccess& host, const std::vector<VmDisk>& disks,
                                  const std::string& vmx_dir,
                                  const ReadingSwitches& reading = ReadingSwitches());
// What the host adds to a machine's configuration.
struct VmFiles {
  std::string family;  // guest family ("kind"), "" when unknown
  uint64_t all_bytes = 0;
  uint64_t disk_bytes = 0;
  uint64_t datastore_free = 0;
  std::vector<FoundDisk> disks;
};
// Writes one machine: its value, attributes and "Devices".
void record_vm(ztag* machine, const VmConfig& config, const VmFiles& files);

// One line of "esxcli storage filesystem list": Logical-disks /
// partition:N, and the line's free and size amounts in GB.
void scan_filesystem_line(const std::string& line, zXML* doc, int line_number, float& free_gb,
                          float& size_gb);

// Records the machines of a "vim-cmd vmsvc/getallvms" listing.
void record_vms(ScanContext& ctx, const std::string& listing, zXML* doc);
// One machine: its .vmx configuration, files, disks, drives and adapters.
void process_vm(ScanContext& ctx, const std::string& vmx_path, ztag* machine,
                uint64_t datastore_free);
void scan_vm_cdroms(ztag* devices, const std::string& vmx_text, const char* prefix,
                    int& cd_counter);
void scan_vm_disks(ScanContext& ctx, ztag* devices, const std::string& vmx_text, const char* prefix,
                   const std::string& vmx_dir, uint64_t datastore_free, int& disk_counter);
// depth counts the parent disks followed so far (a chain stops after
// kMaxParentDepth).
void read_vmdk(ScanContext& ctx, const std::string& path, ztag* disk, bool top_level,
               int depth = 0);
uint64_t extent_bytes(ScanContext& ctx, const std::string& descriptor, const std::string& dir,
                      bool provisioned);

}  // namespace storage

#endif  // QUILLSCAN_COLLECTORS_STORAGE_STORAGE_H_
