// The OS version texts. Input: "vmware -v", then "esxcli system version
// get", then "uname -m".
#include "collectors/system/os.h"
#include "fuzz/fuzz_support.h"
#include "summary/asset_stages.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string> in = fuzz::split(data, size, 3);
  OsInfo info;
  parse_os(in[0], in[1], info);
  zXML doc(true, "Snapshot");
  const char* architecture = in[2].find("64") != std::string::npos ? "64-bit" : "32-bit";
  record_os(info, doc.top(), architecture, format_uptime_seconds(size * 977, true));
  // The asset summary reads the OS node back.
  asset_os(doc.top()->child("AssetInfo"), doc.top());
  fuzz::check_document(doc);
  return 0;
}
