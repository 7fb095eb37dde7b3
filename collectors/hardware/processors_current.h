// Processor records cut from the SMBIOS dump without ending the scan when
// the dump holds fewer records than the host has packages.
#ifndef QUILLSCAN_COLLECTORS_HARDWARE_PROCESSORS_CURRENT_H_
#define QUILLSCAN_COLLECTORS_HARDWARE_PROCESSORS_CURRENT_H_

#include <string>
#include <vector>

#include "collectors/hardware/processors.h"

class PortsDictionary;
class ztag;

// Up to `packages` "Processor Info" blocks of the dump, in order, each
// running to the next block (the last one to the first "Cache Info: #"
// after it, or the end of the dump). Fewer blocks than packages give fewer
// blocks; nothing is cut past the end of the dump.
std::vector<std::string> processor_blocks(const std::string& dump, long long packages);

// Writes Processors/Processor:N for the records the dump holds, with the
// per-package counts, as the default reading does; when the dump holds
// fewer records than packages, a warning attribute on "Processors" (when
// that node exists) says how many were missing.
void record_processors_safe(const std::string& dump, const CpuCounts& counts, ztag* top,
                            const PortsDictionary& dictionary);

#endif  // QUILLSCAN_COLLECTORS_HARDWARE_PROCESSORS_CURRENT_H_
