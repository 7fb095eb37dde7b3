// SMBIOS records: record cutting, field rules, dates, chassis codes, UUID
// and the simple memory-slot list.
#include <gtest/gtest.h>

#include <string>

#include "collectors/hardware/ports_dictionary.h"
#include "collectors/hardware/smbios.h"
#include "hw_tree_text.h"
#include "zxml/zXML.h"

namespace {

using hw_test::read_fixture;
using hw_test::tree_text;

const PortsDictionary& dict() {
  static const PortsDictionary d;
  return d;
}

// Runs the record writer on dump and returns the text of "System".
std::string system_text(const std::string& dump, const std::string& uuid = "",
                        int* uuid_calls = nullptr) {
  zXML doc(true, "Snapshot");
  record_smbios(dump, doc.top(), dict(), [&] {
    if (uuid_calls) ++*uuid_calls;
    return uuid;
  });
  return tree_text(doc.top()->find_child("System"));
}

TEST(HwSmbiosRecord, RunsToTheNextNumberOfAnyRecord) {
  const std::string dump =
      "  BIOS Info: #0\n    Vendor: \"A\"\n"
      "  System Info: #7\n    Manufacturer: \"B\"\n"
      "  Port Info: #1\n    Version: \"C\"\n";
  // The BIOS record (number 0) ends where ": #1" stands, which is the port
  // record, so the system record in between belongs to it.
  EXPECT_EQ(
      smbios_record(dump, "BIOS Info: #"),
      "BIOS Info: #0\n    Vendor: \"A\"\n  System Info: #7\n    Manufacturer: \"B\"\n  Port Info");
  // ": #8" never comes: the system record runs to the end.
  EXPECT_EQ(smbios_record(dump, "System Info: #"),
            "System Info: #7\n    Manufacturer: \"B\"\n  Port Info: #1\n    Version: \"C\"\n");
  EXPECT_EQ(smbios_record(dump, "Board Info: #"), "");
  // A number that does not read gives 0, so the record ends at ": #1".
  EXPECT_EQ(smbios_record("X Info: #z\nq: #2\nr: #1\n", "X Info: #"), "X Info: #z\nq: #2\nr");
  // The next number can also be the prefix of a longer one.
  EXPECT_EQ(smbios_record("T: #1\nU: #23\n", "T: #"), "T: #1\nU");
}

TEST(HwSmbiosRecord, OnlyABoardRecord) {
  const std::string dump =
      "  Board Info: #3\n    Manufacturer: \"M\"\n    Product: \"P\"\n    Version: \"\"\n"
      "    Chassis: #4\n    Serial: \"not read\"\n";
  EXPECT_EQ(system_text(dump),
            "+System=\n*Motherboard=\nmanuf=M\nproduct-name=P\nversion=\nserial=\n-\n");
}

TEST(HwSmbiosFields, NumbersSizesAndDates) {
  EXPECT_EQ(smbios_decimal("123abc"), 123);
  EXPECT_EQ(smbios_decimal(" 12"), 0);
  EXPECT_EQ(smbios_decimal(""), 0);
  EXPECT_EQ(smbios_decimal("99999999999999999999999"), 999999999999999999LL);

  const struct {
    const char* text;
    long long mb;
  } sizes[] = {
      {"2048 MB", 2048}, {"2 GB", 2048}, {"512 KB", 0}, {"4096 KB", 4},
      {"2048", 0},       {"2048 ", 0},   {"0 GB", 0},   {"No Module Installed", 0},
      {"16 gb", 16},     {"16 GB ", 16}, {"8 TB", 8},   {"", 0},
  };
  for (const auto& s : sizes) EXPECT_EQ(smbios_size_mb(s.text), s.mb) << s.text;

  const struct {
    const char* date;
    const char* cim;
  } dates[] = {
      {"09/21/2010", "20100921000000.000000+000"},
      {"1/2/2003", "200312000000.000000+000"},
      {"2003", "200320032003000000.000000+000"},
      {"1/2003", "1/200312003000000.000000+000"},
      {"", ""},
  };
  for (const auto& d : dates) EXPECT_EQ(smbios_release_date(d.date), d.cim) << d.date;
}

TEST(HwSmbiosChassis, TypeCodes) {
  const struct {
    const char* type_line;
    const char* expected;
  } cases[] = {
      {"Type: 0x17 (Rack Mount Chassis)", "case-type=23\n"},
      {"Type: 0x18 (Sealed-Case PC)", "case-type=25\n"},
      {"Type: 0x03 ( Desktop )", "case-type=3\n"},
      {"Type: 0x11 (Main Server Chassis)", "case-type=1\n"},
      {"Type: 0x02 ()", ""},
      {"Type: 0x02 (   )", ""},
      {"Kind: 0x03 (Desktop)", ""},
  };
  for (const auto& c : cases) {
    const std::string dump = std::string("Chassis Info: #4\n    ") + c.type_line + "\n";
    EXPECT_EQ(system_text(dump), std::string("+System=\n*Chassis=\n") + c.expected + "-\n")
        << c.type_line;
  }
}

TEST(HwSmbiosRecords, WrittenAlwaysOrOnlyWhenNotEmpty) {
  // Empty fields everywhere: BIOS and board fields and the system serial
  // are written anyway, the rest is left out.
  const std::string dump =
      "BIOS Info: #0\n  Vendor: \"\"\n"
      "System Info: #1\n  Manufacturer: \"\"\n  Wake-up: 0x00 ()\n"
      "Chassis Info: #2\n  Manufacturer: \"\"\n  Serial: \"\"\n  Asset Tag: \"\"\n"
      "  Bootup State: 0x03 ()\n"
      "Board Info: #3\n";
  EXPECT_EQ(system_text(dump, ""),
            "+System=\n"
            "*BIOS-Info=\nmanuf=\nsmbios-version=\nrelease-date=\n"
            "*Computer-system=\nuuid=\nserial=\n"
            "*Chassis=\n"
            "*Motherboard=\nmanuf=\nproduct-name=\nversion=\nserial=\n"
            "-\n");
}

TEST(HwSmbiosRecords, UuidOnlyWithASystemRecord) {
  int calls = 0;
  EXPECT_EQ(system_text("System Info: #1\n  Serial: \"S1\"\n",
                        "4c4c4544-0042-3510-8048-b4c04f4a4d31\n", &calls),
            "+System=\n*Computer-system=\n"
            "uuid=4C4C4544-0042-3510-8048-B4C04F4A4D31\nserial=S1\n-\n");
  EXPECT_EQ(calls, 1);
  calls = 0;
  EXPECT_EQ(system_text("BIOS Info: #0\n", "x", &calls),
            "+System=\n*BIOS-Info=\nmanuf=\nsmbios-version=\nrelease-date=\n-\n");
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(system_text(""), "");
}

TEST(HwSmbiosMemSlots, LastSlotReadsABareNumber) {
  const std::string three =
      "Memory Device: #10\n  Size: 2048 MB\n"
      "Memory Device: #11\n  Size: No Module Installed\n"
      "Memory Device: #12\n  Size: 2 GB\n"
      "Memory Array Mapping: #13\n  Size: 9 GB\n";
  EXPECT_EQ(system_text(three),
            "+System=\n+Mem-slots=\n"
            "mem-slot:1=\n~complex=\nmem-slot:2=\n~complex=\nmem-slot:3=\n~complex=\n"
            "*mem-slot:1=\nused=1\ncapacity=2048\n"
            "*mem-slot:2=\nused=0\ncapacity=0\n"
            "*mem-slot:3=\nused=1\ncapacity=2\n"
            "-\n-\n");
  // A single device is written by the last-slot rule alone.
  EXPECT_EQ(system_text("Memory Device: #5\n  Size: 4 GB\n"),
            "+System=\n+Mem-slots=\nmem-slot:1=\n~complex=\n"
            "*mem-slot:1=\nused=1\ncapacity=4\n-\n-\n");
}

TEST(HwSmbiosRecords, ReconstructedServerDump) {
  const std::string dump = read_fixture("esxi-samples/smbiosDump.esxi55.reconstructed.txt");
  const std::string uuid = read_fixture("esxi-samples/esxcli_system_uuid_get.reconstructed.txt");
  ASSERT_FALSE(dump.empty());
  EXPECT_EQ(system_text(dump, uuid), read_fixture("hw/esxi55_system.expected.txt"));
}

}  // namespace
