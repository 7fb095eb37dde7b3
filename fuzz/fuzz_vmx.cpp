// A machine's .vmx configuration: name, guest, notes, memory, processors,
// disks, CD-ROM drives and network adapters, read from a file the way the
// machine collector reads it. Input: the .vmx text.
#include "collectors/storage/storage.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_vm_files.h"
#include "host/command.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::silence_stdout();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string vmx(reinterpret_cast<const char*>(data), size);
  // A cores-per-socket that reads as 0 ends the process on purpose (an
  // arithmetic fault); such inputs have nothing else to show.
  if (storage::parse_vmx(vmx).cores_per_cpu == 0) return 0;
  const std::string path = fuzz::write_scratch("machine.vmx", vmx);
  zXML doc(true, "Snapshot");
  ztag* machine = doc.top()->child("VMs")->child("vm:1");
  fuzz::scanner().process_vm(path, machine, 556500254720ull);
  fuzz::check_document(doc);
  return 0;
}
