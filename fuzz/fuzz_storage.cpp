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
  fuzz::allowing_substr_out_of_range([&] {
    for (const std::string& line : storage::table_lines(in[0])) {
      if (line.empty()) continue;
      const storage::ExtentColumns col = storage::extent_columns(line);
      ztag* disk = doc.top()->child("Storage")->child("Physical-disks")->child("HDD:1");
      disk->set_attr("partitions", zvalue(col.partition));
      disk->set_attr("vmfs-uuid", zvalue(col.uuid));
    }
  });
  // The device list's fields as the collector reads them.
  const int64_t mb = storage::read_decimal(text_between(in[1], "Size: ", "\n"));
  storage::truncate_to_int64(static_cast<long double>(mb) * 0.0009765625L);
  int number = 0;
  for (const std::string& line : storage::table_lines(in[2])) {
    if (line.empty()) continue;
    float free_gb = 0;
    float size_gb = 0;
    fuzz::scanner().scan_filesystem_line(line, &doc, ++number, free_gb, size_gb);
  }
  // The asset summary reads the file systems back.
  asset_storage(doc.top()->child("AssetInfo"), doc.top());
  fuzz::check_document(doc);
  return 0;
}
