// Processors and their caches: package counts from the management shell,
// per-package records and caches from the SMBIOS dump.
#ifndef QUILLSCAN_COLLECTORS_HARDWARE_PROCESSORS_H_
#define QUILLSCAN_COLLECTORS_HARDWARE_PROCESSORS_H_

#include <string>
#include <vector>

class PortsDictionary;
class ztag;

// Removes the trademark marks "(R)", "(TM)", "(tm)" and the single bytes
// 153 and 174 from a processor name (each removed completely before the
// next is looked for), then collapses runs of blanks to one blank. Nothing
// is trimmed at the ends.
std::string clean_cpu_name(const std::string& name);

// Package, core and thread counts of "vim-cmd hostsvc/hosthardware".
struct CpuCounts {
  long long packages = 0;
  long long cores = 0;
  long long threads = 0;
};

// Reads the counts from the cpuInfo section. Returns false (leaving counts
// untouched) when the output has no "cpuInfo = " section.
bool parse_cpu_counts(const std::string& hosthardware, CpuCounts* counts);

// One "Processor Info" record of the dump, after speed correction; voltage
// is already in tenths of a volt.
struct CpuRecord {
  std::string name;  // cleaned
  std::string voltage_tenths;
  std::string max_speed;
  std::string current_speed;
  std::string manufacturer;
  std::string l1_ref;
  std::string l2_ref;
  std::string l3_ref;
};

// Parses one processor block.
CpuRecord parse_cpu_record(const std::string& block);

// Writes Processors/Processor:N with its caches under top, for the given
// counts (packages must be above 0).
void record_processors(const std::string& dump, const CpuCounts& counts, ztag* top,
                       const PortsDictionary& dictionary);

// Writes Processors/Processor:N for each record (N from 1) with the counts
// per package and the caches the records refer to (packages must be above
// 0).
void write_processor_records(const std::string& dump, const std::vector<CpuRecord>& records,
                             const CpuCounts& counts, ztag* top, const PortsDictionary& dictionary);

#endif  // QUILLSCAN_COLLECTORS_HARDWARE_PROCESSORS_H_
