// Virtual disk descriptors: plain descriptor files and descriptors embedded
// in sparse extents, with parent chains (which may loop). Input: the disk
// "disk.vmdk", then a second file "parent.vmdk" it may name as its parent.
#include "collectors/storage/storage.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_vm_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string> in = fuzz::split(data, size, 2);
  const std::string path = fuzz::write_scratch("disk.vmdk", in[0]);
  fuzz::write_scratch("parent.vmdk", in[1]);
  zXML doc(true, "Snapshot");
  ztag* disk = doc.top()->child("Devices")->child("hdd:1");
  fuzz::scanner().read_vmdk(path, disk, true);
  // The same text as a descriptor read directly.
  const std::string dir = fuzz::scratch_dir() + "/";
  fuzz::scanner().extent_bytes(in[0], dir, true);
  fuzz::scanner().extent_bytes(in[0], dir, false);
  storage::embedded_descriptor(in[0]);
  fuzz::check_document(doc);
  return 0;
}
