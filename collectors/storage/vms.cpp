// Virtual-machine collector: the registered machines ("VMs" / vm:N), each
// one's .vmx configuration (name, guest, notes, memory, processors, network
// adapters, CD-ROM drives), the space its directory takes and its power
// state. The disks are read in vmdk.cpp.
#include <dirent.h>

#include <cctype>
#include <cstdint>
#include <memory>
#include <unordered_set>

#include "app/scanner.h"
#include "collectors/storage/storage.h"
#include "collectors/storage/storage_current.h"
#include "host/command.h"
#include "host/input_warning.h"
#include "zxml/tag.h"

namespace storage {

std::string vmx_value(const std::string& vmx, const std::string& key) {
  return text_between(vmx, key + " = \"", "\"");
}

std::string mac_text(const std::string& mac) {
  std::string out = mac;
  for (char& c : out) {
    c = c == ':' ? '-' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
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

std::string upper_text(const std::string& text) {
  std::string out = text;
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
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
void directory_totals(const std::string& dir, uint64_t& all_files, uint64_t& disk_files) {
  all_files = 0;
  disk_files = 0;
  DIR* d = opendir(dir.c_str());
  if (d == nullptr) return;
  while (const dirent* e = readdir(d)) {
    if (e->d_type == DT_DIR) continue;
    const std::string path = dir + "/" + e->d_name;
    const uint64_t size = file_size(path);
    all_files += size;
    const size_t dot = path.rfind('.');
    if (dot != std::string::npos && path.compare(dot + 1, std::string::npos, "vmdk") == 0) {
      disk_files += size;
    }
  }
  closedir(d);
}

}  // namespace

void CScaner::scan_vms(zXML* doc) {
  // The machine list node exists even when the host lists no machines.
  doc->top()->child("VMs");
  record_vms(run_command("vim-cmd vmsvc/getallvms"), doc);
}

void CScaner::record_vms(const std::string& listing, zXML* doc) {
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
    if (reading.skip_malformed && line.find(' ') != std::string::npos &&
        storage::read_decimal(line.substr(0, line.find(' '))) != 0 &&
        !storage::vm_line_has_path(line)) {
      add_input_warning(vms, "vim-cmd vmsvc/getallvms", "machine line without its path");
      continue;
    }
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

    if (!storage::can_open(vmx_path)) {
      machine->set_attr("vm-state", zvalue(3));
      continue;
    }
    process_vm(vmx_path, machine, datastore_free);
    const int state =
        storage::power_state(run_command("vim-cmd vmsvc/power.getstate " + shell_quote(entry.id)));
    if (state >= 0) machine->set_attr("vm-state", zvalue(state));
  }
}

void CScaner::process_vm(const std::string& vmx_path, ztag* machine, uint64_t datastore_free) {
  print_message("ProcessVM start\n");
  const std::string vmx = read_file(vmx_path);
  if (vmx.empty()) return;

  const storage::VmxKeys keys(vmx, reading.vmx_keys_any_case);
  machine->set_value(zvalue(keys.value("displayName")));
  machine->set_attr("vm-version", zvalue(keys.value("virtualHW.version")));
  const std::string guest = keys.value("guestOS");
  print_message("GuestOS = %s\n", guest.c_str());
  machine->set_attr("vm-guest-os-type", zvalue(guest));
  const std::string family = dictionary->guest_family(guest);
  if (!family.empty()) machine->add_meta("kind", family);

  const size_t slash = vmx_path.rfind('/');
  const std::string dir = vmx_path.substr(0, slash);
  uint64_t all_files = 0;
  uint64_t disk_files = 0;
  directory_totals(dir, all_files, disk_files);
  storage::set_byte_size_attr(machine, "vm-current-stor-size", disk_files);
  storage::set_byte_size_attr(machine, "vm-current-size", all_files);

  const std::string notes = storage::notes_text(keys.value("annotation"));
  if (!notes.empty()) machine->set_attr("vm-notes", zvalue(notes));

  ztag* devices = machine->child("Devices");
  devices->set_attr("vm-memory-size", zvalue(keys.value("memsize")));
  const std::string vcpus = keys.value("numvcpus");
  const std::string per_socket = keys.value("cpuid.coresPerSocket");
  const int64_t total_cores = vcpus.empty() ? 1 : storage::read_decimal(vcpus);
  bool corrected = false;
  const int64_t cores_per_cpu = !reading.skip_malformed
                                    ? (per_socket.empty() ? 1 : storage::read_decimal(per_socket))
                                    : storage::cores_per_socket(per_socket, &corrected);
  devices->set_attr("vm-processors", zvalue(""), "complex", "");
  ztag* processors = devices->child("vm-processors");
  processors->add_meta("field-source", "");
  processors->set_attr("total-cores", zvalue(total_cores));
  processors->set_attr("cpu-count", zvalue(storage::cpu_count(total_cores, cores_per_cpu)));
  processors->set_attr("cores-per-cpu", zvalue(cores_per_cpu));
  if (corrected) {
    add_input_warning(processors, vmx_path, "cpuid.coresPerSocket below 1: one core per socket");
  }

  // Disks and CD-ROM drives, SCSI controllers before IDE ones; the disk and
  // the drive numbers each run on across both kinds.
  const std::string vmx_dir = vmx_path.substr(0, slash == std::string::npos ? 0 : slash + 1);
  int disks = 0;
  print_message("~2.\n");
  scan_vm_disks(devices, vmx, "scsi", vmx_dir, datastore_free, disks);
  print_message("~3.\n");
  scan_vm_disks(devices, vmx, "ide", vmx_dir, datastore_free, disks);
  if (reading.sata_nvme_disks) {
    scan_vm_disks(devices, vmx, "sata", vmx_dir, datastore_free, disks);
    scan_vm_disks(devices, vmx, "nvme", vmx_dir, datastore_free, disks);
  }
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
    if (keys.value(adapter + ".present") != "TRUE") continue;
    ztag* net = devices->child(format_string("net:%d", ++adapters));
    std::string conn = keys.value(adapter + ".connectionType");
    if (conn.empty()) conn = "bridged";
    net->set_attr("conn-type", zvalue(conn));
    net->set_attr("addr-type", zvalue(keys.value(adapter + ".addressType")));
    std::string mac = keys.value(adapter + ".generatedAddress");
    if (mac.empty()) mac = keys.value(adapter + ".address");
    net->set_attr("mac-address", zvalue(storage::mac_text(mac)));
    if (conn == "bridged") {
      const bool lsp = keys.value(adapter + ".linkStatePropagation.enable") == "TRUE";
      net->set_attr("link-state-propagation", zvalue(lsp ? 1 : 0));
    }
    if (conn == "custom") net->set_attr("vnet", zvalue(keys.value(adapter + ".vnet")));
  }
}

void CScaner::scan_vm_cdroms(ztag* devices, const std::string& vmx, const char* prefix,
                             int& cd_counter) {
  // IDE controllers are walked even without a presence key.
  const bool ide = std::string(prefix) == "ide";
  const storage::VmxKeys keys(vmx, reading.vmx_keys_any_case);
  for (int k = 0; k < 15; ++k) {
    if (!ide && keys.value(format_string("%s%d.present", prefix, k)) != "TRUE") continue;
    if (!keys.mentions_controller(prefix, k)) continue;
    for (int unit = 0; unit < 15; ++unit) {
      const std::string device = format_string("%s%d:%d", prefix, k, unit);
      const std::string file = keys.value(device + ".fileName");
      if (keys.value(device + ".present") != "TRUE") continue;
      if (keys.value(device + ".deviceType").find("cdrom") == std::string::npos) continue;
      const bool autodetect = keys.value(device + ".autodetect") == "TRUE";
      if (file.empty() && !autodetect) continue;
      ztag* cd = devices->child(format_string("cd:%d", ++cd_counter));
      cd->set_attr("interface", zvalue(storage::upper_text(prefix)));
      cd->set_attr("connection", zvalue(file.empty() ? std::string("auto detect") : file));
    }
  }
}
