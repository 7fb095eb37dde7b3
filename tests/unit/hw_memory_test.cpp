// Detailed memory slots and the total installed memory.
#include <gtest/gtest.h>

#include <string>

#include "collectors/hardware/memory.h"
#include "collectors/hardware/ports_dictionary.h"
#include "hw_tree_text.h"
#include "zxml/zXML.h"

namespace {

using hw_test::read_fixture;
using hw_test::tree_text;

std::string memory_text(const std::string& dump) {
  static const PortsDictionary dictionary;
  zXML doc(true, "Snapshot");
  record_memory(dump, doc.top(), dictionary);
  return tree_text(doc.top()->find_child("Memory"));
}

std::string device(int number, const char* size) {
  return "  Memory Device: #" + std::to_string(number) + "\n    Size: " + size + "\n";
}

TEST(HwMemory, OnlyDevicesWithASizeAreNumbered) {
  const std::string dump = device(1, "4096 MB") + device(2, "No Module Installed") +
                           device(3, "4 GB") + device(4, "2048 MB") + device(5, "512 KB");
  EXPECT_EQ(memory_text(dump),
            "+Memory=\n"
            "*Memory-slot:1=\nused=1\ncapacity=4096\n~base-value=4294967296\n"
            "*Memory-slot:2=\nused=1\ncapacity=4096\n~base-value=4294967296\n"
            "*Memory-slot:3=\nused=1\ncapacity=2048\n~base-value=2147483648\n"
            "*General-Info=\nphysical-memory=10240\n~base-value=10737418240\n"
            "-\n");
}

TEST(HwMemory, NoDevicesAndSingleDevice) {
  EXPECT_EQ(memory_text(""), "+Memory=\n*General-Info=\nphysical-memory=0\n~base-value=0\n-\n");
  // A single device is handled by the after-the-loop step with the same
  // size rule (no bare-number reading here).
  EXPECT_EQ(memory_text(device(7, "2 GB")),
            "+Memory=\n*Memory-slot:1=\nused=1\ncapacity=2048\n~base-value=2147483648\n"
            "*General-Info=\nphysical-memory=2048\n~base-value=2147483648\n-\n");
}

TEST(HwMemory, CodesAndLabels) {
  const std::string dump =
      "Memory Device: #1\n  Location: \"DIMM_A1\"\n  Bank: \"BANK 0\"\n"
      "  Form Factor: 0x09 (DIMM)\n  Type: 0x13 (DDR2)\n  Size: 1024 MB\n"
      // Missing labels leave attributes out; an unknown name gives 0; the
      // first label ending in "Type: " is read; empty quotes are written.
      "Memory Device: #2\n  Bank: \"\"\n  Form Factor: 0x0e (Bogus)\n"
      "  Memory Type: 0x12 (DDR)\n  Type: 0x13 (DDR2)\n  Size: 512 MB\n"
      "Memory Device: #3\n  Size: 256 MB\n";
  EXPECT_EQ(memory_text(dump),
            "+Memory=\n"
            "*Memory-slot:1=\nused=1\ncapacity=1024\n~base-value=1073741824\n"
            "form-factor=8\nmem-type=21\nbank-label=BANK 0\ndevice-locator=DIMM_A1\n"
            "*Memory-slot:2=\nused=1\ncapacity=512\n~base-value=536870912\n"
            "form-factor=0\nmem-type=20\nbank-label=\n"
            "*Memory-slot:3=\nused=1\ncapacity=256\n~base-value=268435456\n"
            "*General-Info=\nphysical-memory=1792\n~base-value=1879048192\n"
            "-\n");
}

TEST(HwMemory, ReconstructedServerDump) {
  EXPECT_EQ(memory_text(read_fixture("esxi-samples/smbiosDump.esxi55.reconstructed.txt")),
            read_fixture("hw/esxi55_memory.expected.txt"));
}

}  // namespace
