// USB devices from "lsusb" and its verbose per-device descriptor.
#ifndef QUILLSCAN_COLLECTORS_HARDWARE_USB_H_
#define QUILLSCAN_COLLECTORS_HARDWARE_USB_H_

#include <string>
#include <utility>
#include <vector>

class ztag;

// Pairs (bus, device) from the output of lsusb piped through
// awk '{print $2; print $4}': lines alternate bus and device, the device
// word keeping its trailing colon. A last bus line without a device line
// is dropped.
std::vector<std::pair<std::string, std::string>> usb_bus_device_pairs(const std::string& lines);

// The value of a descriptor line such as "iProduct  2 Ultra Fit": the text
// after the label's blanks and the string index, up to the line end; ""
// when the label or the blank after the index is missing.
std::string usb_string_field(const std::string& verbose, const char* label);

// Writes Peripherals/USB/Device:number under top from one
// "lsusb -s BUS:DEV -v" output; an empty output writes nothing.
void record_usb_device(const std::string& verbose, ztag* top, unsigned number);

#endif  // QUILLSCAN_COLLECTORS_HARDWARE_USB_H_
