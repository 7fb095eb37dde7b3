// The two records of a debug run: a placeholder asset document and the
// compressed raw tool output.
#include <ctime>

#include "zxml/INVfile.h"

namespace {

std::string or_empty(const char* s) {
  return s != nullptr ? std::string(s) : std::string();
}

}  // namespace

void add_debug_records(InvFile* file, const char* hostname, const char* ip, const char* mac,
                       bool static_ip, const char* raw, unsigned long raw_length) {
  zXML* doc = new zXML(file->doc_flag(), "AssetInfo");
  ztag* top = doc->top();
  const std::string host = or_empty(hostname);
  const zvalue empty("");
  top->set_attr("hostname", zvalue(host));
  top->set_attr("ip-address", zvalue(or_empty(ip)));
  top->set_attr("static-ip", zvalue(static_ip ? "1" : "0"));
  top->set_attr("int-name", zvalue(host));
  top->set_attr("alias", zvalue(host));
  top->set_attr("description", empty);
  top->set_attr("comment", empty);
  top->set_attr("inv-number", empty);
  top->set_attr("login", empty);
  top->set_attr("user-name", empty);
  top->set_attr("asset-type", zvalue("natLinux"));
  top->set_attr("virtual-type", zvalue("nvtPhysical"));
  top->set_attr("scan-type", zvalue("nstNone"));
  top->set_attr("scan-subtype", zvalue("sstNone"));
  // Compat: set a second time, so it keeps its place after "comment"
  // (InvFile.DebugRecords).
  top->set_attr("inv-number", empty);
  top->set_attr("auto-icon-type", zvalue("nitLinDesktop"));
  top->set_attr("icon-type", zvalue("nitLinDesktop"));
  top->set_attr("first-scan", empty);
  top->set_attr("last-scan", empty);
  top->set_attr("snapshot-list", empty);
  top->set_attr("snapshot-types", empty);
  top->set_attr("mac-address", zvalue(or_empty(mac)));
  top->set_attr("uuid", empty);
  top->set_attr("serial-number", empty);
  top->set_attr("asset-tag", empty);
  top->set_attr("scan-attempt", zvalue(format_timestamp(time(nullptr))));
  top->set_attr("error-message", zvalue("Debug scan"));
  file->add_document(doc, InvFile::kAssetInfo, false, true);

  unsigned long length = raw_length;
  void* packed = InvFile::data_deflate(raw, length);
  file->add_raw(packed, length);
  file->set_owns_raw(true);
}
