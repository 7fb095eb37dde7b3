// PCI devices from "esxcli hardware pci list".
#include "collectors/hardware/pci.h"

#include <string>

#include "collectors/collectors.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

void set_if_not_empty(ztag* node, const char* name, const std::string& value) {
  if (!value.empty()) node->set_attr(name, zvalue(value));
}

// One device block; an empty block writes nothing but keeps its number.
void record_block(const std::string& block, ztag* top, unsigned number) {
  if (block.empty()) return;
  ztag* device = top->child("Devices")->child(format_string("device:%u", number),
                                              zvalue(text_between(block, "Device Name: ", "\n")));
  set_if_not_empty(device, "type", text_between(block, "Device Class Name: ", "\n"));
  set_if_not_empty(device, "vendor", text_between(block, "Vendor Name: ", "\n"));
  set_if_not_empty(device, "flags", text_between(block, "Flags: ", "\n"));
}

}  // namespace

void record_pci(const std::string& listing, ztag* top) {
  size_t cursor = listing.find('0');
  if (cursor == std::string::npos) return;
  unsigned number = 1;
  for (;;) {
    const size_t next = listing.find("\n0", cursor);
    if (next == std::string::npos) break;
    record_block(listing.substr(cursor, next - cursor), top, number);
    cursor = next + 1;
    ++number;
  }
  record_block(listing.substr(cursor), top, number);
}

void collect_pci(ScanContext& ctx, zXML* doc) {
  const std::string listing = run_command(ctx.host, "esxcli hardware pci list");
  if (listing.empty()) return;
  record_pci(listing, doc->top());
}
