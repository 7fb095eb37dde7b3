// The machine list of "vim-cmd vmsvc/getallvms". No datastore is known, so
// no configuration file is opened and no command is run: every machine ends
// as "not found".
//
// A machine line without "]" (or with nothing after it) ends the program
// with std::string::substr's out-of-range error; that end is let through.
#include "collectors/storage/storage.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string listing(reinterpret_cast<const char*>(data), size);
  zXML doc(true, "Snapshot");
  fuzz::allowing_substr_out_of_range([&] { fuzz::scanner().record_vms(listing, &doc); });
  fuzz::check_document(doc);
  return 0;
}
