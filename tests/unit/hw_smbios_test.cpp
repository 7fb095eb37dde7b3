// The SMBIOS dump (records, field rules, dates, chassis codes, memory
// lists) and the PCI and USB listings: the quirks the simulated hosts'
// whole-document scans do not show (the simple memory list, the common
// chassis types, USB speeds and serials are there).
#include <gtest/gtest.h>

#include "collectors/hardware/memory.h"
#include "collectors/hardware/pci.h"
#include "collectors/hardware/ports_dictionary.h"
#include "collectors/hardware/smbios.h"
#include "collectors/hardware/usb.h"
#include "test_support.h"

namespace {

const PortsDictionary dict;

std::string system_branch(const std::string& dump) {
  return test_support::branch_text(
      "System", [&](ztag* top) { record_smbios(dump, top, dict, [] { return std::string(); }); });
}

TEST(HwSmbios, RecordRunsToTheNextNumberOfAnyRecord) {
  const std::string dump =
      "  BIOS Info: #0\n    Vendor: \"A\"\n  System Info: #7\n"
      "  Port Info: #1\n    Version: \"C\"\n";
  // Record 0 ends at ": #1" (the port record), swallowing record 7; record 7
  // never meets ": #8" and runs to the end.
  EXPECT_EQ(smbios_record(dump, "BIOS Info: #"),
            "BIOS Info: #0\n    Vendor: \"A\"\n  System Info: #7\n  Port Info");
  EXPECT_EQ(smbios_record(dump, "System Info: #"), dump.substr(dump.find("System")));
  // An unreadable number counts as 0; ": #23" also holds ": #2".
  EXPECT_EQ(smbios_record("X Info: #z\nq: #2\nr: #1\n", "X Info: #"), "X Info: #z\nq: #2\nr");
  EXPECT_EQ(smbios_record("T: #1\nU: #23\n", "T: #"), "T: #1\nU");
}

TEST(HwSmbios, SizesAndDates) {
  const std::pair<const char*, long long> sizes[] = {
      {"2048 MB", 2048}, {"2 GB", 2048}, {"4096 KB", 4}, {"512 KB", 0},
      {"2048", 0},       {"2048 ", 0},   {"16 gb", 16},  {"No Module Installed", 0}};
  for (const auto& s : sizes) EXPECT_EQ(smbios_size_mb(s.first), s.second) << s.first;
  const std::pair<const char*, const char*> dates[] = {
      {"09/21/2010", "20100921000000.000000+000"},
      {"1/2/2003", "200312000000.000000+000"},    // no padding added
      {"2003", "200320032003000000.000000+000"},  // no "/": each piece is the whole text
      {"1/2003", "1/200312003000000.000000+000"},
      {"", ""}};
  for (const auto& d : dates) EXPECT_EQ(smbios_release_date(d.first), d.second) << d.first;
}

TEST(HwSmbios, ChassisCodesAndEmptyFields) {
  const std::pair<const char*, const char*> cases[] = {
      {"Type: 0x18 (Sealed-Case PC)", "case-type=25\n"},  // the later duplicate
      {"Type: 0x03 ( Desktop )", "case-type=3\n"},
      {"Type: 0x11 (Main Server Chassis)", "case-type=1\n"},  // unknown name
      {"Type: 0x02 (   )", ""},
      {"Kind: 0x03 (Desktop)", ""}};
  for (const auto& c : cases) {
    EXPECT_EQ(system_branch(std::string("Chassis Info: #4\n    ") + c.first + "\n"),
              std::string("+System=\n*Chassis=\n") + c.second + "-\n")
        << c.first;
  }
  // BIOS, board, uuid and system serial are written even when empty, other
  // fields only when not.
  const std::string dump =
      "BIOS Info: #0\n  Vendor: \"\"\nSystem Info: #1\n  Manufacturer: \"\"\n  Wake-up: 0x00 ()\n"
      "Chassis Info: #2\n  Serial: \"\"\n  Bootup State: 0x03 ()\nBoard Info: #3\n";
  EXPECT_EQ(system_branch(dump),
            "+System=\n*BIOS-Info=\nmanuf=\nsmbios-version=\nrelease-date=\n"
            "*Computer-system=\nuuid=\nserial=\n*Chassis=\n"
            "*Motherboard=\nmanuf=\nproduct-name=\nversion=\nserial=\n-\n");
}

TEST(HwMemory, DetailedListNumbersOnlyDevicesWithASize) {
  // Slot 1: an unknown form factor gives 0, the first label ending in
  // "Type: " is read, empty quotes are written. The last device keeps its
  // unit (unlike the simple list).
  const std::string dump =
      "Memory Device: #1\n  Bank: \"\"\n  Form Factor: 0x0e (Bogus)\n"
      "  Memory Type: 0x12 (DDR)\n  Type: 0x13 (DDR2)\n  Size: 4096 KB\n"
      "Memory Device: #2\n  Size: No Module Installed\nMemory Device: #3\n  Size: 2 GB\n";
  EXPECT_EQ(test_support::branch_text("Memory", [&](ztag* top) { record_memory(dump, top, dict); }),
            "+Memory=\n*Memory-slot:1=\nused=1\ncapacity=4\n~base-value=4194304\n"
            "form-factor=0\nmem-type=20\nbank-label=\n"
            "*Memory-slot:2=\nused=1\ncapacity=2048\n~base-value=2147483648\n"
            "*General-Info=\nphysical-memory=2052\n~base-value=2151677952\n-\n");
}

TEST(HwPci, BlocksStartAtTheFirstZero) {
  // The first block starts at the "0" of "10", so it has no device name;
  // labels that are missing or empty leave their attributes out.
  const std::string dump =
      "Found 10 functions\n0000:00:00.0\n   Vendor Name: Intel Corporation\n"
      "   Device Name: Host bridge\n   Device Class Name: \n0000:00:1f.2\n   Flags: 0x3201\n";
  EXPECT_EQ(test_support::branch_text("Devices", [&](ztag* top) { record_pci(dump, top); }),
            "+Devices=\n*device:1=\n*device:2=Host bridge\nvendor=Intel Corporation\n"
            "*device:3=\nflags=0x3201\n-\n");
}

TEST(HwUsb, PairsSpeedsAndSerials) {
  // A bus line left without a device line is dropped.
  EXPECT_EQ(usb_bus_device_pairs("001\n001:\n002"),
            (std::vector<std::pair<std::string, std::string>>{{"001", "001:"}}));
  const std::pair<const char*, const char*> cases[] = {
      {"  bcdUSB               1.00\n", "device-speed=12\nmanuf=M\nserial=\n"},
      {"  bcdUSB               2.00 \n", "manuf=M\nserial=\n"},
      {"", "device-speed=\nmanuf=M\nserial=\n"},
      // iSerial with the index only (no blank after it here) is empty.
      {"  iSerial                 0\n", "device-speed=\nmanuf=M\nserial=\n"}};
  for (const auto& c : cases) {
    // An empty verbose output writes nothing but uses up its number.
    const std::string verbose =
        std::string("  iManufacturer           1 M\n  iProduct       2 Thing\n") + c.first;
    EXPECT_EQ(test_support::branch_text("Peripherals",
                                        [&](ztag* top) {
                                          record_usb_device("", top, 1);
                                          record_usb_device(verbose, top, 2);
                                        }),
              std::string("+Peripherals=\n+USB=\n*Device:2=Thing\n") + c.second + "-\n-\n")
        << c.first;
  }
}

}  // namespace
