// Virtual-machine collector: the registered machines ("VMs" / vm:N), each
// one's .vmx configuration (name, guest, notes, memory, processors, network
// adapters, CD-ROM drives), the space its directory takes and its power
// state. The disks are read in vmdk.cpp.
#include <cctype>
#include <cstdint>
#include <memory>
#include <unordered_set>

#include "collectors/collectors.h"
#include "collectors/scan_context.h"
#include "collectors/storage/storage.h"
#include "host/command.h"
#include "host/text.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace storage {

std::string vmx_value(const std::string& vmx, const std::string& key) {
  return text_between(vmx, key + " = \"", "\"");
}

std::string mac_text(const std::string& mac) {
  std::string out = text::upper_ascii(mac);
  for (char& c : out) {
    if (c == ':') c = '-';
  }
  return out;
}

std::string notes_text(const std::string& annotation) {
  // A blank cannot complete a new "|0A", so one left-to-right pass replaces
  // every occurrence. The text is copied piece by piece rather than edited
  // in place, which would move the rest of a long text once per occurrence.
  std::string out;
  out.reserve(annotation.size());
  size_t from = 0;
  for (size_t at = annotation.find("|0A"); at != std::string::npos;
       at = annotation.find("|0A", from)) {
    out.append(annotation, from, at - from);
    out += ' ';
    from = at + 3;
  }
  out.append(annotation, from, std::string::npos);
  return out;
}

bool mentions_controller(const std::string& vmx, const char* prefix, int number) {
  return vmx.find(format_string("%s%d:", prefix, number)) != std::string::npos;
}

std::string controller_present(const std::string& vmx, const char* prefix, int number) {
  return text_between(vmx, format_string("%s%d.present = \"", prefix, number), "\"");
}

int64_t cpu_count(int64_t total_cores, int64_t cores_per_socket) {
  if (cores_per_socket == 0) return total_cores;
  if (cores_per_socket == -1)
    return static_cast<int64_t>(0ULL - static_cast<uint64_t>(total_cores));
  return total_cores / cores_per_socket;
}

int power_state(const std::string& output) {
  const std::string word = text_between(output, "Powered ", "\n");
  if (!word.empty()) return word == "on" ? 1 : 0;
  if (output.find("Suspended") != std::string::npos) return 2;
  return -1;
}

VmListing parse_vm_line(const std::string& line) {
  VmListing vm;
  const size_t blank = line.find(' ');
  if (blank == std::string::npos) return vm;  // kEnd
  vm.id = line.substr(0, blank);
  if (read_decimal(vm.id) == 0) {
    vm.kind = VmListing::kContinuation;
    return vm;
  }
  vm.kind = VmListing::kMachine;
  vm.datastore = text_between(line, "[", "]");
  // The path starts at the first non-blank after "]"; with no "]", or nothing
  // after it, the start is npos and substr throws, which ends the scan.
  const size_t bracket = line.find(']');
  const size_t start =
      bracket == std::string::npos ? std::string::npos : line.find_first_not_of(' ', bracket + 1);
  const size_t vmx = line.find(".vmx");
  // Without ".vmx" (or with it before the path) the path runs to the end of
  // the line: the unsigned length wraps past the end and substr clamps it.
  const size_t end = vmx == std::string::npos ? std::string::npos : vmx + 4;
  vm.relative = line.substr(start, end - start);
  return vm;
}

}  // namespace storage

namespace {

// Names the machine nodes vm:N with the smallest N not in use, as
// ztag::next_index does, without rescanning the growing list of machines for
// every new one (a host may list a thousand).
class MachineNumbers {
 public:
  explicit MachineNumbers(const ztag* vms) {
    for (const auto& c : vms->children()) used_.insert(c->name());
  }
  ztag* add(ztag* vms) {
    std::string name = format_string("vm:%d", next_);
    while (used_.count(name) != 0) name = format_string("vm:%d", ++next_);
    used_.insert(name);
    ++next_;
    return vms->append_child(std::unique_ptr<ztag>(new ztag(name)));
  }

 private:
  std::unordered_set<std::string> used_;
  int next_ = 1;
};

// Sizes of the files in a directory: all of them and the ".vmdk" ones. An
// entry whose type the file system does not report is measured too; one
// that turns out to be a directory counts 0, like a file that cannot be
// opened.
void directory_totals(HostAccess& host, const std::string& dir, uint64_t& all_files,
                      uint64_t& disk_files) {
  all_files = 0;
  disk_files = 0;
  std::vector<HostRecord::DirEntry> entries;
  if (!host.list_dir(dir, &entries)) return;
  for (const HostRecord::DirEntry& e : entries) {
    if (e.type == 'd') continue;
    const std::string path = dir + "/" + e.name;
    const uint64_t size = file_size(host, path);
    all_files += size;
    const size_t dot = path.rfind('.');
    if (dot != std::string::npos && path.compare(dot + 1, std::string::npos, "vmdk") == 0) {
      disk_files += size;
    }
  }
}

}  // namespace

void collect_vms(ScanContext& ctx, zXML* doc) {
  // The machine list node exists even when the host lists no machines.
  doc->top()->child("VMs");
  storage::record_vms(ctx, run_command(ctx.host, "vim-cmd vmsvc/getallvms"), doc);
}

void storage::record_vms(ScanContext& ctx, const std::string& listing, zXML* doc) {
  ztag* top = doc->top();
  ztag* vms = top->child("VMs");
  size_t nl = listing.find('\n');
  if (listing.empty() || nl == std::string::npos) return;

  // The file systems the storage collector recorded earlier name the
  // datastores and where they are mounted.
  ztag* storage_node = top->find_child("Storage");
  ztag* logical = storage_node != nullptr ? storage_node->find_child("Logical-disks") : nullptr;

  MachineNumbers numbers(vms);

  // The header line is skipped; the text after the last "\n" is not a line.
  for (size_t next = listing.find('\n', nl + 1); next != std::string::npos;
       nl = next, next = listing.find('\n', nl + 1)) {
    const std::string line = listing.substr(nl + 1, next - nl - 1);
    const storage::VmListing entry = storage::parse_vm_line(line);
    if (entry.kind == storage::VmListing::kEnd) break;
    if (entry.kind == storage::VmListing::kContinuation) continue;

    ztag* machine = numbers.add(vms);
    machine->set_attr("vm-id", zvalue(entry.id));

    std::string vmx_path;
    uint64_t datastore_free = 0;
    const ztag* datastore = nullptr;
    if (logical != nullptr) {
      for (const auto& disk : logical->children()) {
        const zvalue* v = disk->value();
        if (v != nullptr && v->kind() == zvalue::kText && v->as_text() == entry.datastore) {
          datastore = disk.get();
          break;
        }
      }
    }
    if (datastore != nullptr) {
      const zattr* mount = datastore->find_attr("mount-point");
      const std::string mount_point =
          mount != nullptr && mount->value.kind() == zvalue::kText ? mount->value.as_text() : "";
      vmx_path = mount_point + "/" + entry.relative;
      machine->set_attr("vm-conf-file", zvalue(vmx_path));
      const zattr* free_attr = datastore->find_attr("free");
      const std::string* base = free_attr != nullptr ? free_attr->meta.find("base-value") : nullptr;
      if (base != nullptr) datastore_free = static_cast<uint64_t>(storage::read_decimal(*base));
    }

    if (!storage::can_open(ctx.host, vmx_path)) {
      machine->set_attr("vm-state", zvalue(3));
      continue;
    }
    process_vm(ctx, vmx_path, machine, datastore_free);
    const int state = storage::power_state(
        run_command(ctx.host, "vim-cmd vmsvc/power.getstate " + shell_quote(entry.id)));
    if (state >= 0) machine->set_attr("vm-state", zvalue(state));
  }
}

void storage::process_vm(ScanContext& ctx, const std::string& vmx_path, ztag* machine,
                         uint64_t datastore_free) {
  print_message("ProcessVM start\n");
  const std::string vmx = read_file(ctx.host, vmx_path);
  if (vmx.empty()) return;

  machine->set_value(zvalue(storage::vmx_value(vmx, "displayName")));
  machine->set_attr("vm-version", zvalue(storage::vmx_value(vmx, "virtualHW.version")));
  const std::string guest = storage::vmx_value(vmx, "guestOS");
  print_message("GuestOS = %s\n", guest.c_str());
  machine->set_attr("vm-guest-os-type", zvalue(guest));
  const std::string family = ctx.dictionary.guest_family(guest);
  if (!family.empty()) machine->add_meta("kind", family);

  const size_t slash = vmx_path.rfind('/');
  const std::string dir = vmx_path.substr(0, slash);
  uint64_t all_files = 0;
  uint64_t disk_files = 0;
  directory_totals(ctx.host, dir, all_files, disk_files);
  storage::set_byte_size_attr(machine, "vm-current-stor-size", disk_files);
  storage::set_byte_size_attr(machine, "vm-current-size", all_files);

  const std::string notes = storage::notes_text(storage::vmx_value(vmx, "annotation"));
  if (!notes.empty()) machine->set_attr("vm-notes", zvalue(notes));

  ztag* devices = machine->child("Devices");
  devices->set_attr("vm-memory-size", zvalue(storage::vmx_value(vmx, "memsize")));
  const std::string vcpus = storage::vmx_value(vmx, "numvcpus");
  const std::string per_socket = storage::vmx_value(vmx, "cpuid.coresPerSocket");
  const int64_t total_cores = vcpus.empty() ? 1 : storage::read_decimal(vcpus);
  const int64_t cores_per_cpu = per_socket.empty() ? 1 : storage::read_decimal(per_socket);
  devices->set_attr("vm-processors", zvalue(""), "complex", "");
  ztag* processors = devices->child("vm-processors");
  processors->add_meta("field-source", "");
  processors->set_attr("total-cores", zvalue(total_cores));
  processors->set_attr("cpu-count", zvalue(storage::cpu_count(total_cores, cores_per_cpu)));
  processors->set_attr("cores-per-cpu", zvalue(cores_per_cpu));

  // Disks and CD-ROM drives, SCSI controllers before IDE ones; the disk and
  // the drive numbers each run on across both kinds.
  const std::string vmx_dir = vmx_path.substr(0, slash == std::string::npos ? 0 : slash + 1);
  int disks = 0;
  print_message("~2.\n");
  scan_vm_disks(ctx, devices, vmx, "scsi", vmx_dir, datastore_free, disks);
  print_message("~3.\n");
  scan_vm_disks(ctx, devices, vmx, "ide", vmx_dir, datastore_free, disks);
  print_message("~4.\n");
  int cdroms = 0;
  scan_vm_cdroms(devices, vmx, "scsi", cdroms);
  print_message("~5.\n");
  scan_vm_cdroms(devices, vmx, "ide", cdroms);
  print_message("~6.\n");

  // Network adapters in slots 0 to 14.
  int adapters = 0;
  for (int slot = 0; slot < 15; ++slot) {
    const std::string adapter = format_string("ethernet%d", slot);
    if (storage::device_value(vmx, adapter, ".present = \"") != "TRUE") continue;
    ztag* net = devices->child(format_string("net:%d", ++adapters));
    std::string conn = storage::device_value(vmx, adapter, ".connectionType = \"");
    if (conn.empty()) conn = "bridged";
    net->set_attr("conn-type", zvalue(conn));
    net->set_attr("addr-type", zvalue(storage::device_value(vmx, adapter, ".addressType = \"")));
    std::string mac = storage::device_value(vmx, adapter, ".generatedAddress = \"");
    if (mac.empty()) mac = storage::device_value(vmx, adapter, ".address = \"");
    net->set_attr("mac-address", zvalue(storage::mac_text(mac)));
    if (conn == "bridged") {
      const bool lsp =
          storage::device_value(vmx, adapter, ".linkStatePropagation.enable = \"") == "TRUE";
      net->set_attr("link-state-propagation", zvalue(lsp ? 1 : 0));
    }
    if (conn == "custom")
      net->set_attr("vnet", zvalue(storage::device_value(vmx, adapter, ".vnet = \"")));
  }
}

void storage::scan_vm_cdroms(ztag* devices, const std::string& vmx, const char* prefix,
                             int& cd_counter) {
  // IDE controllers are walked even without a presence key.
  const bool ide = std::string(prefix) == "ide";
  for (int k = 0; k < 15; ++k) {
    if (!ide && storage::controller_present(vmx, prefix, k) != "TRUE") continue;
    if (!storage::mentions_controller(vmx, prefix, k)) continue;
    for (int unit = 0; unit < 15; ++unit) {
      const std::string device = format_string("%s%d:%d", prefix, k, unit);
      const std::string file = storage::device_value(vmx, device, ".fileName = \"");
      if (storage::device_value(vmx, device, ".present = \"") != "TRUE") continue;
      if (storage::device_value(vmx, device, ".deviceType = \"").find("cdrom") == std::string::npos)
        continue;
      const bool autodetect = storage::device_value(vmx, device, ".autodetect = \"") == "TRUE";
      if (file.empty() && !autodetect) continue;
      ztag* cd = devices->child(format_string("cd:%d", ++cd_counter));
      cd->set_attr("interface", zvalue(text::upper_ascii(prefix)));
      cd->set_attr("connection", zvalue(file.empty() ? std::string("auto detect") : file));
    }
  }
}
