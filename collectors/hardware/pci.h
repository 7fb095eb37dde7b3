// PCI functions from "esxcli hardware pci list".
#ifndef QUILLSCAN_COLLECTORS_HARDWARE_PCI_H_
#define QUILLSCAN_COLLECTORS_HARDWARE_PCI_H_

#include <string>

class ztag;

// Writes Devices/device:N under top, one per block of the listing. Blocks
// start at the first "0" of the output and at every line that begins
// with "0" (the PCI address lines).
void record_pci(const std::string& listing, ztag* top);

#endif  // QUILLSCAN_COLLECTORS_HARDWARE_PCI_H_
