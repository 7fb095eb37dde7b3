// PCI functions and USB devices. Input: the output of "esxcli hardware pci
// list", then the bus and device lines of lsusb, then one verbose lsusb
// descriptor (the answer of every device).
#include "collectors/hardware/pci.h"
#include "collectors/hardware/usb.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string> in = fuzz::split(data, size, 3);
  zXML doc(true, "Snapshot");
  record_pci(in[0], doc.top());
  record_usb_device(in[2], doc.top(), 1);
  unsigned number = 1;
  for (const auto& pair : usb_bus_device_pairs(in[1])) {
    if (pair.first.empty() && pair.second.empty()) continue;
    record_usb_device(in[2], doc.top(), ++number);
    if (number == 4) break;
  }
  fuzz::check_document(doc);
  return 0;
}
