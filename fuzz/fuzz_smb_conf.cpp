// The Samba configuration the asset summary takes the host name and domain
// from. Input: /etc/samba/smb.conf.
#include "fuzz/fuzz_support.h"
#include "summary/asset_info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string conf(reinterpret_cast<const char*>(data), size);
  zXML doc(true, "AssetInfo");
  bool found = false;
  doc.top()->set_attr("hostname", zvalue(smb_conf_value(conf, "netbios name =", &found)));
  doc.top()->child("control")->set_attr("domain",
                                        zvalue(smb_conf_value(conf, "workgroup =", &found)));
  fuzz::check_document(doc);
  return 0;
}
