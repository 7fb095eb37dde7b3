// Processor records read safely from a dump that may hold fewer of them
// than the host has packages.
#include "collectors/hardware/processors_current.h"

#include "host/input_warning.h"
#include "zxml/tag.h"

namespace {

const char kProcessorInfo[] = "Processor Info: #";

// More processor packages than any host has.
constexpr long long kMaxPackages = 1024;

}  // namespace

std::vector<std::string> processor_blocks(const std::string& dump, long long packages) {
  std::vector<std::string> blocks;
  size_t cursor = dump.find(kProcessorInfo);
  const long long wanted = packages < kMaxPackages ? packages : kMaxPackages;
  for (long long i = 0; i < wanted && cursor != std::string::npos; ++i) {
    size_t end = dump.find(kProcessorInfo, cursor + 1);
    if (end == std::string::npos) end = dump.find("Cache Info: #", cursor);
    blocks.push_back(dump.substr(cursor, end == std::string::npos ? end : end - cursor));
    // The last record ends the search.
    if (end != std::string::npos &&
        dump.compare(end, sizeof kProcessorInfo - 1, kProcessorInfo) != 0)
      end = std::string::npos;
    cursor = end;
  }
  return blocks;
}

void record_processors_safe(const std::string& dump, const CpuCounts& counts, ztag* top,
                            const PortsDictionary& dictionary) {
  if (counts.packages <= 0) return;
  std::vector<CpuRecord> records;
  for (const std::string& block : processor_blocks(dump, counts.packages)) {
    records.push_back(parse_cpu_record(block));
  }
  write_processor_records(dump, records, counts, top, dictionary);
  ztag* processors = top->find_child("Processors");
  if (processors != nullptr && static_cast<long long>(records.size()) < counts.packages) {
    add_input_warning(
        processors, "smbiosDump",
        format_string("processor records: %zu of %lld found", records.size(), counts.packages));
  }
}
