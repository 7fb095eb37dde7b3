// The SMBIOS text dump as every collector reads it: the BIOS, system,
// chassis and board records with the simple slot list, the detailed memory
// slots, and the serial and makers of the asset summary. Input: the dump,
// then the output of "esxcli system uuid get".
#include "collectors/hardware/memory.h"
#include "collectors/hardware/smbios.h"
#include "fuzz/fuzz_support.h"
#include "summary/asset_stages.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string> in = fuzz::split(data, size, 2);
  const PortsDictionary& dictionary = *fuzz::scanner().dictionary;
  zXML doc(true, "Snapshot");
  record_smbios(in[0], doc.top(), dictionary, [&in] { return in[1]; });
  record_memory(in[0], doc.top(), dictionary);
  const SmbiosIdentity identity = read_smbios_identity(in[0]);
  ztag* asset = doc.top()->child("AssetInfo");
  asset_serial(asset, identity);
  asset_system(asset, doc.top(), true, identity);
  fuzz::check_document(doc);
  return 0;
}
