// Processors and caches: counts, flags, record parsing, speed correction,
// voltage, name clean-up and cache records.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "collectors/hardware/ports_dictionary.h"
#include "collectors/hardware/processors.h"
#include "hw_tree_text.h"
#include "zxml/zXML.h"

namespace {

using hw_test::read_fixture;
using hw_test::tree_text;

const PortsDictionary& dict() {
  static const PortsDictionary d;
  return d;
}

std::string processors_text(const std::string& dump, long long packages, long long cores,
                            long long threads) {
  zXML doc(true, "Snapshot");
  CpuCounts counts;
  counts.packages = packages;
  counts.cores = cores;
  counts.threads = threads;
  record_processors(dump, counts, doc.top(), dict());
  return tree_text(doc.top()->find_child("Processors"));
}

// A processor block without caches.
std::string cpu_block(int number, const std::string& version, const std::string& max_speed,
                      const std::string& current_speed, const std::string& voltage) {
  return "  Processor Info: #" + std::to_string(number) + "\n    Manufacturer: \"Vendor\"\n" +
         "    Version: \"" + version + "\"\n    Voltage: " + voltage + " V\n" +
         "    Max. Speed: " + max_speed + " MHz\n    Current Speed: " + current_speed + " MHz\n";
}

TEST(HwProcessors, NameCleanUp) {
  const struct {
    const char* in;
    const char* out;
  } cases[] = {
      {"Intel(R) Xeon(R) CPU E7- 2870  @ 2.40GHz", "Intel Xeon CPU E7- 2870 @ 2.40GHz"},
      {"Intel(R) Core(TM)2 Duo CPU     T7500", "Intel Core2 Duo CPU T7500"},
      {"Pentium\x99 M\xAE", "Pentium M"},
      // A removal that brings a new mark together removes that one too.
      {"A((R)R) B", "A B"},
      // The marks are removed in order: "(TM)" formed by a later removal stays.
      {"X(T\x99M)", "X(TM)"},
      {"  lead and trail  ", " lead and trail "},
  };
  for (const auto& c : cases) EXPECT_EQ(clean_cpu_name(c.in), c.out) << c.in;
}

TEST(HwProcessors, CountsFromTheCpuSection) {
  const std::string output =
      read_fixture("esxi-samples/vim-cmd_hostsvc+hosthardware.esxi4x-5x.cpuInfo-excerpt.txt");
  CpuCounts counts;
  ASSERT_TRUE(parse_cpu_counts(output, &counts));
  EXPECT_EQ(counts.packages, 2);
  EXPECT_EQ(counts.cores, 8);
  EXPECT_EQ(counts.threads, 8);
  // Labels after the first "}" belong to another object and are not read.
  ASSERT_TRUE(parse_cpu_counts("cpuInfo = { numCpuPackages = 4, }\n numCpuCores = 8,", &counts));
  EXPECT_EQ(counts.packages, 4);
  EXPECT_EQ(counts.cores, 0);
  EXPECT_FALSE(parse_cpu_counts("", &counts));
  EXPECT_FALSE(parse_cpu_counts("(vim.host.HardwareInfo) {\n}\n", &counts));
}

TEST(HwProcessors, CoreThreadAndHtFlags) {
  const std::string dump = cpu_block(4, "CPU A", "2000", "2000", "1.0") +
                           cpu_block(5, "CPU B", "2000", "2000", "1.0") + "  Cache Info: #6\n";
  const struct {
    long long cores, threads;
    const char* expected;
  } cases[] = {
      {8, 16, "core-count=4\ncpu-thread-count=8\nht-enabled=1\nmulticore-or-ht=1\n"},
      // Whole division gives 0 cores per package, raised to 1.
      {1, 2, "core-count=1\ncpu-thread-count=1\nht-enabled=0\nmulticore-or-ht=0\n"},
      {2, 4, "core-count=1\ncpu-thread-count=2\nht-enabled=1\nmulticore-or-ht=1\n"},
  };
  for (const auto& c : cases) {
    const std::string attrs = std::string("max-clock-speed=2000\ncurrent-clock-speed=2000\n") +
                              "cpu-voltage=10\n" + c.expected + "status=1\n";
    EXPECT_EQ(processors_text(dump, 2, c.cores, c.threads),
              "+Processors=\n*Processor:1=CPU A\nmanuf=Vendor\n" + attrs +
                  "*Processor:2=CPU B\nmanuf=Vendor\n" + attrs + "-\n")
        << c.cores << "/" << c.threads;
  }
}

TEST(HwProcessors, SpeedCorrectionAndVoltage) {
  const struct {
    const char* name;
    const char* max;
    const char* voltage;
    const char* max_out;
    const char* voltage_out;
  } cases[] = {
      {"Intel Xeon", "65535", "1.35", "1800", "13"},
      {"Intel Xeon", "10000", "1.2", "10000", "12"},
      {"AMD Athlon(tm) II X2 250", "3000", "1.4", "1800", "14"},
      {"AMD Athlon(tm) 64 X2", "3000", "1.4", "3000", "14"},  // no "II"
      {"Athlon II X4", "3000", "x", "3000", "0"},             // no "AMD"
  };
  for (const auto& c : cases) {
    const CpuRecord r = parse_cpu_record(cpu_block(1, c.name, c.max, "1800", c.voltage));
    EXPECT_EQ(r.max_speed, c.max_out) << c.name << " " << c.max;
    EXPECT_EQ(r.voltage_tenths, c.voltage_out) << c.voltage;
    EXPECT_EQ(r.current_speed, "1800");
  }
}

TEST(HwProcessors, CacheRecords) {
  const std::string dump =
      "Processor Info: #1\n  Version: \"P\"\n  Max. Speed: 100 MHz\n  Current Speed: 100 MHz\n"
      "  L1 Cache: #2\n  L2 Cache: #3\n  L3 Cache: #9\n"
      "Cache Info: #2\n  Designation: \"L1\"\n  Supported SRAM Type: 0x20 (Synchronous)\n"
      "  Type: 0x04 (Data)\n  Associativity: 0x03 (Dirrect Mapped)\n"
      "  Current Size: 32 kB\n  Current SRAM Type: 0x02 (Unknown)\n"
      "  Type: 0x05 (Unified)\n"
      "Cache Info: #3\n  Designation: \"L2\"\n  Type: 0x03 (Instruction)\n"
      "  Associativity: 0x05 (4-way Set-associative)\n  Current Size:  kB\n"
      "  Current SRAM Type: 0x02 (Unknown)\n";
  // L1: the first label ending in "Type: " is the supported-SRAM line.
  // L2: an empty size skips the level. L3: no such cache record.
  EXPECT_EQ(processors_text(dump, 1, 1, 1),
            "+Processors=\n+Processor:1=P\n"
            "max-clock-speed=100\ncurrent-clock-speed=100\ncpu-voltage=0\ncore-count=1\n"
            "cpu-thread-count=1\nht-enabled=0\nmulticore-or-ht=0\nstatus=1\n"
            "*cache:1=L1\nsize=32\ntype=1\nassociativity=3\n-\n-\n");
}

TEST(HwProcessors, FewerRecordsThanPackages) {
  // The second block is empty: a record of empty texts.
  const std::string with_cache = cpu_block(1, "Only", "100", "100", "1.0") + "Cache Info: #2\n";
  EXPECT_EQ(processors_text(with_cache, 2, 2, 2),
            "+Processors=\n"
            "*Processor:1=Only\nmanuf=Vendor\nmax-clock-speed=100\ncurrent-clock-speed=100\n"
            "cpu-voltage=10\ncore-count=1\ncpu-thread-count=1\nht-enabled=0\n"
            "multicore-or-ht=0\nstatus=1\n"
            "*Processor:2=\nmax-clock-speed=\ncurrent-clock-speed=\n"
            "cpu-voltage=0\ncore-count=1\ncpu-thread-count=1\nht-enabled=0\n"
            "multicore-or-ht=0\nstatus=1\n-\n");
  // Without a cache record after it, the next block starts beyond the text.
  const std::string no_cache = cpu_block(1, "Only", "100", "100", "1.0");
  EXPECT_NO_THROW(processors_text(no_cache, 1, 1, 1));
  EXPECT_THROW(processors_text(no_cache, 2, 2, 2), std::out_of_range);
  EXPECT_THROW(processors_text("no processor records", 1, 1, 1), std::out_of_range);
}

TEST(HwProcessors, ReconstructedServerDump) {
  const std::string dump = read_fixture("esxi-samples/smbiosDump.esxi55.reconstructed.txt");
  CpuCounts counts;
  ASSERT_TRUE(parse_cpu_counts(
      read_fixture("esxi-samples/vim-cmd_hostsvc+hosthardware.esxi55.reconstructed.txt"), &counts));
  EXPECT_EQ(processors_text(dump, counts.packages, counts.cores, counts.threads),
            read_fixture("hw/esxi55_processors.expected.txt"));
}

}  // namespace
