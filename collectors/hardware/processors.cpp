// Processors and caches: counts from "vim-cmd hostsvc/hosthardware", one
// record per "Processor Info" block of the SMBIOS dump, and the cache
// records those blocks refer to.
#include "collectors/hardware/processors.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "collectors/collectors.h"
#include "collectors/hardware/ports_dictionary.h"
#include "collectors/hardware/smbios.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "host/text.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

const char kProcessorInfo[] = "Processor Info: #";

// More processor packages than any host has.
constexpr long long kMaxPackages = 1024;

// Removes every occurrence of pattern, including occurrences that a removal
// brings together ("((R)R)" loses both). Same result as deleting the first
// occurrence until none is left, in one pass.
std::string remove_all(const std::string& text, const std::string& pattern) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    out.push_back(c);
    if (out.size() >= pattern.size() &&
        out.compare(out.size() - pattern.size(), pattern.size(), pattern) == 0) {
      out.resize(out.size() - pattern.size());
    }
  }
  return out;
}

using text::contains;

// Volts as text to tenths of a volt, truncated toward zero. Unreadable text
// gives 0; values outside the int range (or not finite) are clamped so the
// conversion stays defined.
int voltage_tenths(const std::string& text) {
  const double volts = std::strtod(text.c_str(), nullptr);
  const double tenths = volts * 10.0;
  if (std::isnan(tenths)) return 0;
  if (tenths >= static_cast<double>(INT_MAX)) return INT_MAX;
  if (tenths <= static_cast<double>(INT_MIN)) return INT_MIN;
  return static_cast<int>(tenths);
}

// Text between the first "(" at or after label and the next ")"; "" when
// the label is absent.
std::string paren_after(const std::string& record, const char* label) {
  bool found = false;
  return smbios_paren_field(record, label, &found);
}

void record_cache(const std::string& dump, const std::string& reference, ztag* processor,
                  const PortsDictionary& dictionary) {
  if (reference.empty()) return;
  const size_t start = dump.find("Cache Info: " + reference);
  // A reference with no cache record gives no cache node.
  if (start == std::string::npos) return;
  const size_t sram = dump.find("Current SRAM Type:", start);
  const size_t end = sram == std::string::npos ? std::string::npos : dump.find('\n', sram);
  const std::string record =
      dump.substr(start, end == std::string::npos ? std::string::npos : end - start);
  const std::string size = text_between(record, "Current Size: ", " ");
  if (size.empty()) return;
  // The first label ending in "Type: " names the type, whichever it is.
  const int type = dictionary.cache_type_code(paren_after(record, "Type: "));
  const int associativity = dictionary.cache_assoc_code(paren_after(record, "Associativity: "));
  const int k = processor->next_index("cache:", true);
  ztag* cache = processor->child(format_string("cache:%d", k),
                                 zvalue(text_between(record, "Designation: \"", "\"")));
  cache->set_attr("size", zvalue(size));
  cache->set_attr("type", zvalue(type));
  cache->set_attr("associativity", zvalue(associativity));
}

}  // namespace

std::string clean_cpu_name(const std::string& name) {
  std::string text = name;
  text = remove_all(text, "(R)");
  text = remove_all(text, "(TM)");
  text = remove_all(text, "(tm)");
  text = remove_all(text, std::string(1, static_cast<char>(153)));
  text = remove_all(text, std::string(1, static_cast<char>(174)));
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == ' ' && !out.empty() && out.back() == ' ') continue;
    out.push_back(c);
  }
  return out;
}

bool parse_cpu_counts(const std::string& hosthardware, CpuCounts* counts) {
  const size_t start = hosthardware.find("cpuInfo = ");
  if (start == std::string::npos) return false;
  const size_t close = hosthardware.find('}', start);
  const std::string section =
      hosthardware.substr(start, close == std::string::npos ? std::string::npos : close - start);
  counts->packages = smbios_decimal(text_between(section, "numCpuPackages = ", ","));
  counts->cores = smbios_decimal(text_between(section, "numCpuCores = ", ","));
  counts->threads = smbios_decimal(text_between(section, "numCpuThreads = ", ","));
  return true;
}

CpuRecord parse_cpu_record(const std::string& block) {
  CpuRecord r;
  r.name = clean_cpu_name(text_between(block, "Version: \"", "\""));
  r.max_speed = text_between(block, "Max. Speed: ", " ");
  r.current_speed = text_between(block, "Current Speed: ", " ");
  r.voltage_tenths = format_string("%d", voltage_tenths(text_between(block, "Voltage: ", " ")));
  r.manufacturer = text_between(block, "Manufacturer: \"", "\"");
  r.l1_ref = text_between(block, "L1 Cache: ", "\n");
  r.l2_ref = text_between(block, "L2 Cache: ", "\n");
  r.l3_ref = text_between(block, "L3 Cache: ", "\n");
  // Some AMD parts and some firmware report a bogus maximum; the current
  // speed is the better value then.
  if ((contains(r.name, "Turion") || contains(r.name, "Athlon")) && contains(r.name, "AMD") &&
      contains(r.name, "II")) {
    r.max_speed = r.current_speed;
  } else if (smbios_decimal(r.max_speed) > 10000) {
    r.max_speed = r.current_speed;
  }
  return r;
}

void record_processors(const std::string& dump, const CpuCounts& counts, ztag* top,
                       const PortsDictionary& dictionary) {
  if (counts.packages <= 0) return;
  // Cut one block per package. Positions follow std::string::find: a block
  // whose end is not found runs to the end, and the cursor then lies beyond
  // the text, so a further block makes substr throw out_of_range, which
  // nothing catches (the scan ends there, before any file is written).
  // A package count beyond any real host is capped so that a garbled count
  // cannot make the loop run for ever; the counts per package still use
  // the count as reported.
  const long long blocks = counts.packages < kMaxPackages ? counts.packages : kMaxPackages;
  std::vector<CpuRecord> records;
  size_t cursor = dump.find(kProcessorInfo);
  for (long long i = 0; i < blocks; ++i) {
    size_t end = dump.find(kProcessorInfo, cursor + 1);
    if (end == std::string::npos) end = dump.find("Cache Info: #", cursor);
    const std::string block = dump.substr(cursor, end - cursor);
    records.push_back(parse_cpu_record(block));
    cursor = end;
  }

  long long per_package_cores = counts.cores / counts.packages;
  if (per_package_cores == 0) per_package_cores = 1;
  const long long per_package_threads = counts.threads / counts.packages;
  const bool ht = per_package_cores < per_package_threads;
  const bool multicore_or_ht = per_package_cores >= 2 || ht;

  ztag* processors = top->child("Processors");
  for (size_t n = 0; n < records.size(); ++n) {
    const CpuRecord& r = records[n];
    ztag* cpu = processors->child(format_string("Processor:%zu", n + 1), zvalue(r.name));
    if (!r.manufacturer.empty()) cpu->set_attr("manuf", zvalue(r.manufacturer));
    cpu->set_attr("max-clock-speed", zvalue(r.max_speed));
    cpu->set_attr("current-clock-speed", zvalue(r.current_speed));
    cpu->set_attr("cpu-voltage", zvalue(r.voltage_tenths));
    cpu->set_attr("core-count", zvalue(format_string("%lld", per_package_cores)));
    cpu->set_attr("cpu-thread-count", zvalue(format_string("%lld", per_package_threads)));
    cpu->set_attr("ht-enabled", zvalue(ht ? "1" : "0"));
    cpu->set_attr("multicore-or-ht", zvalue(multicore_or_ht ? "1" : "0"));
    cpu->set_attr("status", zvalue("1"));
    record_cache(dump, r.l1_ref, cpu, dictionary);
    record_cache(dump, r.l2_ref, cpu, dictionary);
    record_cache(dump, r.l3_ref, cpu, dictionary);
  }
}

void collect_processors(ScanContext& ctx, zXML* doc) {
  CpuCounts counts;
  // Without a CPU section or with no package count there is nothing to
  // divide by; the collector then writes nothing.
  if (!parse_cpu_counts(run_command(ctx.host, "vim-cmd hostsvc/hosthardware"), &counts)) return;
  if (counts.packages <= 0) return;
  record_processors(run_command(ctx.host, "smbiosDump"), counts, doc->top(), ctx.dictionary);
}
