// Installed software: the VIB list of ESXi 5 and 6, and ipkg's package list
// and package descriptions on ESX 4. Input: "esxcli software vib list",
// then "ipkg list", then the "ipkg info" answer of every package.
#include "collectors/system/software.h"
#include "fuzz/fuzz_support.h"
#include "host/host_access.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string> in = fuzz::split(data, size, 3);
  zXML doc(true, "Snapshot");
  record_vib_list(doc.top(), in[0]);
  record_ipkg(live_host(), doc.top(), in[1], [&in](const std::string&) { return in[2]; });
  sort_software(doc.top());
  fuzz::check_document(doc);
  return 0;
}
