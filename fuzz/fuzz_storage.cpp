// VMFS extents and file systems. Input: the output of "esxcli storage vmfs
// extent list", then one device's "esxcli storage core device list -d"
// output, then "esxcli storage filesystem list".
//
// An extent line with fewer columns than expected ends the program with
// std::string::substr's out-of-range error; that end is let through.
#include "collectors/storage/storage.h"
#include "fuzz/fuzz_support.h"
#include "summary/asset_stages.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string> in = fuzz::split(data, size, 3);
  zXML doc(true, "Snapshot");
  std::vector<storage::ExtentRecord> extents;
  fuzz::allowing_substr_out_of_range(
      [&] { extents = storage::read_extents(in[0], [&in](const std::string&) { return in[1]; }); });
  storage::record_physical_disks(doc.top(), extents);
  double size_gb = 0;
  double free_gb = 0;
  storage::record_filesystems(in[2], &doc, &size_gb, &free_gb);
  // The asset summary reads the file systems back.
  asset_storage(doc.top()->child("AssetInfo"), doc.top());
  fuzz::check_document(doc);
  return 0;
}
