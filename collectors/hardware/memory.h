// The detailed memory inventory: one node per populated memory device of
// the SMBIOS dump and the total installed memory.
#ifndef QUILLSCAN_COLLECTORS_HARDWARE_MEMORY_H_
#define QUILLSCAN_COLLECTORS_HARDWARE_MEMORY_H_

#include <string>

class PortsDictionary;
class ztag;

// Writes Memory/Memory-slot:N for every device with a size and
// Memory/General-Info "physical-memory" under top.
void record_memory(const std::string& dump, ztag* top, const PortsDictionary& dictionary);

#endif  // QUILLSCAN_COLLECTORS_HARDWARE_MEMORY_H_
