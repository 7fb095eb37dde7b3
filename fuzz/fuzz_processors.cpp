// Processor packages, records and caches. Input: the output of "vim-cmd
// hostsvc/hosthardware", then the SMBIOS dump.
//
// A dump with fewer processor records than packages and no cache record
// after them ends the program with std::string::substr's out-of-range error;
// that end is let through.
#include "collectors/hardware/processors.h"
#include "fuzz/fuzz_support.h"
#include "summary/asset_stages.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string> in = fuzz::split(data, size, 2);
  const PortsDictionary& dictionary = *fuzz::scanner().dictionary;
  zXML doc(true, "Snapshot");
  CpuCounts counts;
  if (parse_cpu_counts(in[0], &counts) && counts.packages > 0) {
    fuzz::allowing_substr_out_of_range(
        [&] { record_processors(in[1], counts, doc.top(), dictionary); });
  }
  // The asset summary reads the first processor back.
  asset_processor(doc.top()->child("AssetInfo"), doc.top(), dictionary);
  fuzz::check_document(doc);
  return 0;
}
