// PCI and USB devices.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "collectors/hardware/pci.h"
#include "collectors/hardware/usb.h"
#include "hw_tree_text.h"
#include "zxml/zXML.h"

namespace {

using hw_test::read_fixture;
using hw_test::tree_text;

std::string pci_text(const std::string& listing) {
  zXML doc(true, "Snapshot");
  record_pci(listing, doc.top());
  return tree_text(doc.top()->find_child("Devices"));
}

// Peripherals after recording the given verbose outputs as devices 1, 2, ...
std::string usb_text(const std::vector<std::string>& outputs) {
  zXML doc(true, "Snapshot");
  unsigned number = 1;
  for (const std::string& out : outputs) record_usb_device(out, doc.top(), number++);
  return tree_text(doc.top()->find_child("Peripherals"));
}

std::string descriptor(const std::string& bcd_line) {
  return "Device Descriptor:\n" + bcd_line +
         "  iManufacturer           1 Maker\n  iProduct                2 Thing\n";
}

TEST(HwPci, ListingExcerpt) {
  EXPECT_EQ(pci_text(read_fixture("esxi-samples/esxcli_hardware_pci_list.esxi6x.excerpt.txt")),
            read_fixture("hw/pci_excerpt.expected.txt"));
}

TEST(HwPci, BlocksStartAtTheFirstZero) {
  // The first block starts at the "0" of "10", so it has no device name;
  // labels that are missing or empty leave their attributes out.
  const std::string listing =
      "Found 10 functions\n"
      "0000:00:00.0\n   Vendor Name: Intel Corporation\n   Device Name: Host bridge\n"
      "   Device Class Name: \n"
      "0000:00:1f.2\n   Device Name: SATA\n   Flags: 0x3201\n";
  EXPECT_EQ(pci_text(listing),
            "+Devices=\n*device:1=\n"
            "*device:2=Host bridge\nvendor=Intel Corporation\n"
            "*device:3=SATA\nflags=0x3201\n-\n");
  EXPECT_EQ(pci_text("no functions\n"), "");
  EXPECT_EQ(pci_text(""), "");
}

TEST(HwUsb, BusAndDevicePairs) {
  using Pairs = std::vector<std::pair<std::string, std::string>>;
  EXPECT_EQ(usb_bus_device_pairs("001\n001:\n002\n004:\n"),
            (Pairs{{"001", "001:"}, {"002", "004:"}}));
  EXPECT_EQ(usb_bus_device_pairs("001\n003:"), (Pairs{{"001", "003:"}}));
  // The text after the last line break is a line of its own, even empty; a
  // bus line left without a device line is dropped.
  EXPECT_EQ(usb_bus_device_pairs("001\n"), (Pairs{{"001", ""}}));
  EXPECT_EQ(usb_bus_device_pairs("001\n001:\n002"), (Pairs{{"001", "001:"}}));
}

TEST(HwUsb, SpeedsFromBcdUsb) {
  const struct {
    const char* line;
    const char* speed;  // attribute line, "" when unset
  } cases[] = {
      {"  bcdUSB               1.10\n", "device-speed=12\n"},
      {"  bcdUSB               1.00\n", "device-speed=12\n"},
      {"  bcdUSB               2.00\n", "device-speed=480\n"},
      {"  bcdUSB               3.00\n", "device-speed=5000\n"},
      {"  bcdUSB               2.10\n", ""},
      {"  bcdUSB               2.00 \n", ""},
      {"", "device-speed=\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(usb_text({descriptor(c.line)}),
              std::string("+Peripherals=\n+USB=\n*Device:1=Thing\n") + c.speed +
                  "manuf=Maker\nserial=\n-\n-\n")
        << c.line;
  }
}

TEST(HwUsb, StringFieldsAndNumbering) {
  // iSerial with the index only (with or without a trailing blank) gives an
  // empty serial; an empty verbose output writes nothing but uses its
  // number.
  const std::string hub =
      "Device Descriptor:\n  bcdUSB               2.00\n  iManufacturer           0 \n"
      "  iProduct                0\n  iSerial                 0 \n";
  EXPECT_EQ(usb_string_field("  iSerial                 0 \n", "iSerial"), "");
  EXPECT_EQ(usb_string_field("  iSerial                 0", "iSerial"), "");
  EXPECT_EQ(usb_string_field("  iSerial      3 AB 12\n", "iSerial"), "AB 12");
  EXPECT_EQ(usb_string_field("  iSerial\n", "iSerial"), "");
  EXPECT_EQ(usb_text({read_fixture("esxi-samples/lsusb_-v_-s_002+004.linux-dl360p.txt"), "", hub,
                      read_fixture("esxi-samples/lsusb_-v_-s_002+002.esxi65.partial.txt")}),
            "+Peripherals=\n+USB=\n"
            "*Device:1=Ultra Fit\nmanuf=SanDisk\nserial=[REMOVED]\n"
            "*Device:3=\ndevice-speed=480\nmanuf=\nserial=\n"
            "*Device:4=USB 10/100/1000 LAN\ndevice-speed=5000\nmanuf=Realtek\nserial=41C9A7000000\n"
            "-\n-\n");
  EXPECT_EQ(usb_text({""}), "");
}

}  // namespace
