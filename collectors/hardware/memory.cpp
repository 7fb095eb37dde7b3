// Memory slots and total installed memory from the SMBIOS dump.
#include "collectors/hardware/memory.h"

#include <cstdint>
#include <string>

#include "collectors/collectors.h"
#include "collectors/hardware/ports_dictionary.h"
#include "collectors/hardware/smbios.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

const char kMemoryDevice[] = "Memory Device: #";
constexpr uint64_t kBytesPerMegabyte = 1048576;

// Text between the first double quote at or after label and the next one.
void set_quoted_after(ztag* slot, const char* name, const std::string& device, const char* label) {
  const size_t at = device.find(label);
  if (at == std::string::npos) return;
  slot->set_attr(name, zvalue(text_between(device, "\"", "\"", at)));
}

// One device text. Devices without a size (empty sockets) get no node and
// use no number, so the slot numbers have no gaps.
void record_device(const std::string& device, ztag* memory, const PortsDictionary& dictionary,
                   int* number, uint64_t* total) {
  const long long megabytes = smbios_size_mb(text_between(device, "Size: ", "\n"));
  if (megabytes == 0) return;
  *total += static_cast<uint64_t>(megabytes);
  ztag* slot = memory->child(format_string("Memory-slot:%d", *number));
  slot->set_attr("used", zvalue("1"));
  const std::string bytes =
      format_string("%llu", static_cast<unsigned long long>(megabytes) * kBytesPerMegabyte);
  slot->set_attr("capacity", zvalue(megabytes), "base-value", bytes.c_str());
  bool found = false;
  const std::string form_factor = smbios_paren_field(device, "Form Factor: ", &found);
  if (found) slot->set_attr("form-factor", zvalue(dictionary.form_factor_code(form_factor)));
  // The first label ending in "Type: " is the one read.
  const std::string type = smbios_paren_field(device, "Type: ", &found);
  if (found) slot->set_attr("mem-type", zvalue(dictionary.memory_type_code(type)));
  set_quoted_after(slot, "bank-label", device, "Bank: ");
  set_quoted_after(slot, "device-locator", device, "Location: ");
  ++*number;
}

}  // namespace

void record_memory(const std::string& dump, ztag* top, const PortsDictionary& dictionary) {
  ztag* memory = top->child("Memory");
  uint64_t total = 0;
  size_t cursor = dump.find(kMemoryDevice);
  if (cursor != std::string::npos) {
    int number = 1;
    for (;;) {
      const size_t next = dump.find(kMemoryDevice, cursor + 1);
      if (next == std::string::npos) break;
      record_device(dump.substr(cursor, next - cursor), memory, dictionary, &number, &total);
      cursor = next;
    }
    record_device(dump.substr(cursor), memory, dictionary, &number, &total);
  }
  const std::string bytes =
      format_string("%llu", static_cast<unsigned long long>(total * kBytesPerMegabyte));
  memory->child("General-Info")
      ->set_attr("physical-memory", zvalue(total), "base-value", bytes.c_str());
}

void collect_memory(ScanContext& ctx, zXML* doc) {
  // An empty "/Memory" node beside the top element; the importer expects it.
  doc->root()->child("/Memory");
  if (!ctx.tools.has_tool("smbiosDump")) {
    // The warning names the package the importer knows for this data.
    add_missing_tool_warning(doc->top()->child("Memory"), "dmidecode", "Memory-slot,General-Info",
                             true);
    return;
  }
  record_memory(run_command(ctx.host, "smbiosDump"), doc->top(), ctx.dictionary);
}
