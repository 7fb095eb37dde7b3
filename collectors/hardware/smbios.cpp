// SMBIOS records: BIOS, computer system, chassis, motherboard and the simple
// memory-slot list, read from the text dump of "smbiosDump".
#include "collectors/hardware/smbios.h"

#include <string>

#include "collectors/collectors.h"
#include "collectors/hardware/ports_dictionary.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "host/text.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

// Largest value smbios_decimal returns; leaves room for the +1 of the next
// record number and for the unit conversions.
constexpr long long kDecimalCap = 999999999999999999LL;

const char kMemoryDevice[] = "Memory Device: ";
const size_t kMemoryDeviceLength = sizeof(kMemoryDevice) - 1;  // 15

// Quoted field: text after label (searched from the record's start) up to
// the next double quote; "" when the label is absent.
std::string quoted(const std::string& record, const char* label) {
  return text_between(record, label, "\"");
}

using text::set_text;

void set_text_if_not_empty(ztag* node, const char* name, const std::string& value) {
  if (!value.empty()) node->set_attr(name, zvalue(value));
}

// Parenthesised field written only when the label exists and the text in
// the parentheses is not empty.
void set_paren_if_not_empty(ztag* node, const char* name, const std::string& record,
                            const char* label) {
  bool found = false;
  const std::string value = smbios_paren_field(record, label, &found);
  if (found && !value.empty()) node->set_attr(name, zvalue(value));
}

void record_bios(const std::string& dump, ztag* top) {
  const std::string record = smbios_record(dump, "BIOS Info: #");
  if (record.empty()) return;
  ztag* node = top->child("System")->child("BIOS-Info");
  set_text(node, "manuf", quoted(record, "Vendor: \""));
  // The BIOS version string is stored under "smbios-version"; the importer
  // reads it from there.
  set_text(node, "smbios-version", quoted(record, "Version: \""));
  set_text(node, "release-date", smbios_release_date(quoted(record, "Date: \"")));
}

void record_system(const std::string& dump, ztag* top,
                   const std::function<std::string()>& uuid_output) {
  const std::string record = smbios_record(dump, "System Info: #");
  if (record.empty()) return;
  ztag* node = top->child("System")->child("Computer-system");
  set_text_if_not_empty(node, "manuf", quoted(record, "Manufacturer: \""));
  set_text_if_not_empty(node, "model", quoted(record, "Product: \""));
  std::string uuid = uuid_output ? uuid_output() : std::string();
  const size_t line_break = uuid.find('\n');
  if (line_break != std::string::npos) uuid.erase(line_break, 1);
  set_text(node, "uuid", text::upper_ascii(uuid));
  set_paren_if_not_empty(node, "wake-up-type", record, "Wake-up:");
  set_text(node, "serial", quoted(record, "Serial: \""));
}

void record_chassis(const std::string& dump, ztag* top, const PortsDictionary& dictionary) {
  const std::string record = smbios_record(dump, "Chassis Info: #");
  if (record.empty()) return;
  ztag* node = top->child("System")->child("Chassis");
  set_text_if_not_empty(node, "manuf", quoted(record, "Manufacturer: \""));
  bool found = false;
  const std::string type_name = trim_blanks(smbios_paren_field(record, "Type:", &found));
  if (found && !type_name.empty()) {
    node->set_attr("case-type", zvalue(dictionary.chassis_code(type_name)));
  }
  set_text_if_not_empty(node, "serial", quoted(record, "Serial: \""));
  set_text_if_not_empty(node, "asset-tag", quoted(record, "Asset Tag: \""));
  set_paren_if_not_empty(node, "boot-up-state", record, "Bootup State:");
  set_paren_if_not_empty(node, "power-supply-state", record, "Power Supply State:");
  set_paren_if_not_empty(node, "thermal-state", record, "Thermal State:");
  set_paren_if_not_empty(node, "security-status", record, "Security Status:");
}

void record_board(const std::string& dump, ztag* top) {
  const std::string record = smbios_record(dump, "Board Info: #");
  if (record.empty()) return;
  ztag* node = top->child("System")->child("Motherboard");
  set_text(node, "manuf", quoted(record, "Manufacturer: \""));
  set_text(node, "product-name", quoted(record, "Product: \""));
  set_text(node, "version", quoted(record, "Version: \""));
  set_text(node, "serial", quoted(record, "Serial: \""));
}

void write_mem_slot(ztag* slots, int number, long long megabytes) {
  const std::string name = format_string("mem-slot:%d", number);
  slots->set_attr(name, zvalue(""), "complex", "");
  ztag* slot = slots->child(name);
  slot->set_attr("used", zvalue(megabytes != 0 ? "1" : "0"));
  slot->set_attr("capacity", zvalue(megabytes));
}

// The simple slot list. Positions are taken within the memory section,
// which starts at the first "Memory Device: ".
void record_mem_slots(const std::string& dump, ztag* top) {
  const size_t first = dump.find(kMemoryDevice);
  if (first == std::string::npos) return;
  const size_t mapping = dump.find("Memory Array Mapping: ", first);
  const std::string section =
      dump.substr(first, mapping == std::string::npos ? std::string::npos : mapping - first);
  if (section.empty()) return;
  ztag* slots = top->child("System")->child("Mem-slots");
  int number = 1;
  size_t cursor = kMemoryDeviceLength;
  for (;;) {
    const size_t next = section.find(kMemoryDevice, cursor);
    if (next == std::string::npos) break;
    const std::string slot = section.substr(cursor, next - cursor);
    write_mem_slot(slots, number, smbios_size_mb(text_between(slot, "Size: ", "\n")));
    ++number;
    // Advancing by 13 rather than the label's 15 leaves ": " at the start
    // of the next slot text, where nothing is read.
    cursor = next + 13;
  }
  // The last device's size is read as a bare number, without its unit.
  write_mem_slot(slots, number, smbios_decimal(text_between(section, "Size: ", "\n", cursor)));
}

}  // namespace

long long smbios_decimal(const std::string& text) {
  long long value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') break;
    if (value > (kDecimalCap - (c - '0')) / 10) return kDecimalCap;
    value = value * 10 + (c - '0');
  }
  return value;
}

std::string smbios_record(const std::string& dump, const char* title) {
  const size_t start = dump.find(title);
  if (start == std::string::npos) return std::string();
  const long long number = smbios_decimal(text_between(dump, title, "\n", start));
  const std::string marker = format_string(": #%lld", number + 1);
  const size_t end = dump.find(marker, start);
  return dump.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

long long smbios_size_mb(const std::string& size_text) {
  const size_t blank = size_text.find(' ');
  if (blank == std::string::npos) return 0;
  const std::string unit = size_text.substr(blank + 1);
  const long long number = smbios_decimal(size_text.substr(0, blank));
  if (unit.empty() || number == 0) return 0;
  if (unit == "GB") return number > kDecimalCap / 1024 ? kDecimalCap : number * 1024;
  if (unit == "KB") return number / 1024;
  return number;
}

std::string smbios_release_date(const std::string& date) {
  if (date.empty()) return std::string();
  // month/day/year. Missing slashes are not checked: npos + 1 wraps to 0,
  // so the second search starts again at the beginning and a piece without
  // its slash runs over the whole text.
  const size_t slash1 = date.find('/');
  const size_t slash2 = date.find('/', slash1 + 1);
  const std::string month = date.substr(0, slash1);
  const std::string day = date.substr(slash1 + 1, slash2 - slash1 - 1);
  const std::string year = date.substr(slash2 + 1);
  return year + month + day + "000000.000000+000";
}

std::string smbios_paren_field(const std::string& record, const char* label, bool* found) {
  const size_t at = record.find(label);
  if (found) *found = at != std::string::npos;
  if (at == std::string::npos) return std::string();
  return text_between(record, "(", ")", at);
}

void record_smbios(const std::string& dump, ztag* top, const PortsDictionary& dictionary,
                   const std::function<std::string()>& uuid_output) {
  record_bios(dump, top);
  record_system(dump, top, uuid_output);
  record_chassis(dump, top, dictionary);
  record_board(dump, top);
  record_mem_slots(dump, top);
}

void collect_smbios(ScanContext& ctx, zXML* doc) {
  const std::string dump = run_command(ctx.host, "smbiosDump");
  record_smbios(dump, doc->top(), ctx.dictionary,
                [&ctx] { return run_command(ctx.host, "esxcli system uuid get"); });
}
