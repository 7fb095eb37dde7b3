// Virtual-machine collector: the registered machines ("VMs" / vm:N), each
// one's .vmx configuration (name, guest, notes, memory, processors, network
// adapters, CD-ROM drives), the space its directory takes and its power
// state. The disks are read in vmdk.cpp.
#include <cctype>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <unordered_set>

#include "collectors/collectors.h"
#include "collectors/scan_context.h"
#include "collectors/storage/storage.h"
#include "collectors/storage/storage_current.h"
#include "host/command.h"
#include "host/input_warning.h"
#include "host/text.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

// Ends the process with the arithmetic fault an integer division by zero
// raises, on purpose instead of by dividing. The default action is restored
// and the signal unblocked first, so that the process ends by the signal
// whatever an embedding runtime installed.
[[noreturn]] void end_with_arithmetic_fault() {
  std::signal(SIGFPE, SIG_DFL);
  sigset_t fpe;
  sigemptyset(&fpe);
  sigaddset(&fpe, SIGFPE);
  sigprocmask(SIG_UNBLOCK, &fpe, nullptr);
  std::raise(SIGFPE);
  std::abort();  // not reached: the signal ends the process
}

}  // namespace

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
  // Compat: the count is not guarded against a cores-per-socket of 0 ("0",
  // or text that reads as 0): the division faults and ends the process
  // before any file is written (pinned by
  // StorageVmConfig.CoresPerSocketOfZeroFaults and the end-to-end
  // UnguardedInputTest.test_zero_cores_per_socket_and_raw_host_name).
  if (cores_per_socket == 0) end_with_arithmetic_fault();
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
  // Compat: the path starts at the first non-blank after "]", and the
  // search is not checked: with no "]" the position after the not-found
  // result wraps to 0, so the path starts at the line's first non-blank
  // (pinned by StorageListing.MachineLines and the end-to-end
  // UnguardedInputTest.test_machine_line_without_bracket_is_read_from_its_start).
  // With nothing but blanks after "]" the start is npos and substr throws,
  // which ends the scan.
  const size_t bracket = line.find(']');
  const size_t start = line.find_first_not_of(' ', bracket + 1);
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
    const size_t blank = line.find(' ');
    if (ctx.reading.skip_malformed && blank != std::string::npos &&
        storage::read_decimal(line.substr(0, blank)) != 0 && !storage::vm_line_has_path(line)) {
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

std::vector<storage::VmDisk> storage::vm_disks(const VmxKeys& keys, const char* prefix) {
  std::vector<VmDisk> disks;
  // Only controllers marked present count, IDE ones included.
  for (int k = 0; k < 15; ++k) {
    if (keys.value(format_string("%s%d.present", prefix, k)) != "TRUE") continue;
    if (!keys.mentions_controller(prefix, k)) continue;
    for (int unit = 0; unit < 15; ++unit) {
      const std::string device = format_string("%s%d:%d", prefix, k, unit);
      const std::string file = keys.value(device + ".fileName");
      if (keys.value(device + ".present") != "TRUE") continue;
      const size_t dot = file.rfind('.');
      if (dot == std::string::npos || file.compare(dot, std::string::npos, ".vmdk") != 0) continue;
      disks.push_back(VmDisk{text::upper_ascii(prefix), file});
    }
  }
  return disks;
}

std::vector<storage::VmCdrom> storage::vm_cdroms(const VmxKeys& keys, const char* prefix) {
  std::vector<VmCdrom> drives;
  // IDE controllers are walked even without a presence key.
  const bool ide = std::string(prefix) == "ide";
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
      drives.push_back(VmCdrom{text::upper_ascii(prefix), file.empty() ? "auto detect" : file});
    }
  }
  return drives;
}

std::vector<storage::VmDisk> storage::vm_disks(const std::string& vmx, const char* prefix) {
  return vm_disks(VmxKeys(vmx, false), prefix);
}

std::vector<storage::VmCdrom> storage::vm_cdroms(const std::string& vmx, const char* prefix) {
  return vm_cdroms(VmxKeys(vmx, false), prefix);
}

storage::VmConfig storage::parse_vmx(const std::string& vmx, const ReadingSwitches& reading) {
  const VmxKeys keys(vmx, reading.vmx_keys_any_case);
  VmConfig c;
  c.name = keys.value("displayName");
  c.hw_version = keys.value("virtualHW.version");
  c.guest_os = keys.value("guestOS");
  c.notes = notes_text(keys.value("annotation"));
  c.memory = keys.value("memsize");
  const std::string vcpus = keys.value("numvcpus");
  const std::string per_socket = keys.value("cpuid.coresPerSocket");
  c.total_cores = vcpus.empty() ? 1 : read_decimal(vcpus);
  if (reading.skip_malformed) {
    c.cores_per_cpu = cores_per_socket(per_socket, &c.cores_corrected);
  } else {
    c.cores_per_cpu = per_socket.empty() ? 1 : read_decimal(per_socket);
  }
  // Disks and CD-ROM drives, SCSI controllers before IDE ones.
  for (const char* prefix : disk_controllers(reading.sata_nvme_disks)) {
    for (VmDisk& d : vm_disks(keys, prefix)) c.disks.push_back(d);
  }
  c.cdroms = vm_cdroms(keys, "scsi");
  for (VmCdrom& d : vm_cdroms(keys, "ide")) c.cdroms.push_back(d);
  // Compat: network adapters in slots 0 to 14, not 15
  // (StorageVmConfig.ProcessorsAndAdapterSlots).
  for (int slot = 0; slot < 15; ++slot) {
    const std::string adapter = format_string("ethernet%d", slot);
    if (keys.value(adapter + ".present") != "TRUE") continue;
    VmAdapter a;
    a.conn_type = keys.value(adapter + ".connectionType");
    if (a.conn_type.empty()) a.conn_type = "bridged";
    a.addr_type = keys.value(adapter + ".addressType");
    std::string mac = keys.value(adapter + ".generatedAddress");
    if (mac.empty()) mac = keys.value(adapter + ".address");
    a.mac = mac_text(mac);
    if (a.conn_type == "bridged") {
      a.link_state = keys.value(adapter + ".linkStatePropagation.enable") == "TRUE";
    }
    if (a.conn_type == "custom") a.vnet = keys.value(adapter + ".vnet");
    c.adapters.push_back(a);
  }
  return c;
}

void storage::record_vm(ztag* machine, const VmConfig& c, const VmFiles& files) {
  machine->set_value(zvalue(c.name));
  machine->set_attr("vm-version", zvalue(c.hw_version));
  machine->set_attr("vm-guest-os-type", zvalue(c.guest_os));
  if (!files.family.empty()) machine->add_meta("kind", files.family);
  set_byte_size_attr(machine, "vm-current-stor-size", files.disk_bytes);
  set_byte_size_attr(machine, "vm-current-size", files.all_bytes);
  if (!c.notes.empty()) machine->set_attr("vm-notes", zvalue(c.notes));

  ztag* devices = machine->child("Devices");
  devices->set_attr("vm-memory-size", zvalue(c.memory));
  devices->set_attr("vm-processors", zvalue(""), "complex", "");
  ztag* processors = devices->child("vm-processors");
  processors->add_meta("field-source", "");
  processors->set_attr("total-cores", zvalue(c.total_cores));
  processors->set_attr("cpu-count", zvalue(cpu_count(c.total_cores, c.cores_per_cpu)));
  processors->set_attr("cores-per-cpu", zvalue(c.cores_per_cpu));

  // The disk and the drive numbers each run on across SCSI and IDE.
  int number = 0;
  for (const FoundDisk& d : files.disks) {
    ztag* disk = devices->child(format_string("hdd:%d", ++number));
    disk->set_attr("interface", zvalue(d.entry.interface));
    disk->set_attr("disk-file", zvalue(d.entry.file));
    set_byte_size_attr(disk, "system-free", files.datastore_free);
    record_disk_sizes(disk, d.sizes);
  }
  number = 0;
  for (const VmCdrom& d : c.cdroms) {
    ztag* cd = devices->child(format_string("cd:%d", ++number));
    cd->set_attr("interface", zvalue(d.interface));
    cd->set_attr("connection", zvalue(d.connection));
  }
  number = 0;
  for (const VmAdapter& a : c.adapters) {
    ztag* net = devices->child(format_string("net:%d", ++number));
    net->set_attr("conn-type", zvalue(a.conn_type));
    net->set_attr("addr-type", zvalue(a.addr_type));
    net->set_attr("mac-address", zvalue(a.mac));
    if (a.link_state >= 0) net->set_attr("link-state-propagation", zvalue(a.link_state));
    if (a.conn_type == "custom") net->set_attr("vnet", zvalue(a.vnet));
  }
}

std::vector<storage::FoundDisk> storage::find_disks(HostAccess& host,
                                                    const std::vector<VmDisk>& disks,
                                                    const std::string& vmx_dir,
                                                    const ReadingSwitches& reading) {
  std::vector<FoundDisk> found;
  for (const VmDisk& d : disks) {
    // The name is always taken relative to the machine's directory; an
    // absolute name therefore does not lead to a file.
    const std::string path = vmx_dir + d.file;
    if (!can_open(host, path)) continue;
    found.push_back(FoundDisk{d, read_disk(host, path, true, 0, reading)});
  }
  return found;
}

void storage::process_vm(ScanContext& ctx, const std::string& vmx_path, ztag* machine,
                         uint64_t datastore_free) {
  print_message("ProcessVM start\n");
  const std::string vmx = read_file(ctx.host, vmx_path);
  if (vmx.empty()) return;
  const VmConfig config = parse_vmx(vmx, ctx.reading);
  print_message("GuestOS = %s\n", config.guest_os.c_str());

  VmFiles files;
  files.family = ctx.dictionary.guest_family(config.guest_os);
  files.datastore_free = datastore_free;
  const size_t slash = vmx_path.rfind('/');
  directory_totals(ctx.host, vmx_path.substr(0, slash), files.all_bytes, files.disk_bytes);
  // The processors are counted at this point of the reading, before the
  // disks: a cores-per-socket of 0 faults here, with "~2." not printed.
  cpu_count(config.total_cores, config.cores_per_cpu);
  const std::string vmx_dir = vmx_path.substr(0, slash == std::string::npos ? 0 : slash + 1);
  // The configuration lists SCSI disks first, then IDE ones (then SATA and
  // NVMe ones when those are read).
  std::vector<VmDisk> scsi;
  std::vector<VmDisk> others;
  for (const VmDisk& d : config.disks) (d.interface == "SCSI" ? scsi : others).push_back(d);
  print_message("~2.\n");
  files.disks = find_disks(ctx.host, scsi, vmx_dir, ctx.reading);
  print_message("~3.\n");
  for (FoundDisk& d : find_disks(ctx.host, others, vmx_dir, ctx.reading)) {
    files.disks.push_back(d);
  }
  print_message("~4.\n");
  print_message("~5.\n");
  print_message("~6.\n");
  record_vm(machine, config, files);
  if (config.cores_corrected) {
    add_input_warning(machine->child("Devices")->child("vm-processors"), vmx_path,
                      "cpuid.coresPerSocket below 1: one core per socket");
  }
}

void storage::scan_vm_cdroms(ztag* devices, const std::string& vmx, const char* prefix,
                             int& cd_counter) {
  for (const VmCdrom& d : vm_cdroms(vmx, prefix)) {
    ztag* cd = devices->child(format_string("cd:%d", ++cd_counter));
    cd->set_attr("interface", zvalue(d.interface));
    cd->set_attr("connection", zvalue(d.connection));
  }
}
