// Processors and caches (counts, flags, speed correction, voltage, cache
// records) and the reference dictionaries behind them.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "collectors/hardware/ports_dictionary.h"
#include "collectors/hardware/processors.h"
#include "test_support.h"

namespace {

const PortsDictionary d;

std::string processors_text(const std::string& dump, long long packages, long long cores,
                            long long threads) {
  return test_support::branch_text("Processors", [&](ztag* top) {
    record_processors(dump, CpuCounts{packages, cores, threads}, top, d);
  });
}

// A processor block without caches.
std::string cpu_block(const std::string& version, const std::string& max_speed,
                      const std::string& voltage = "1.0") {
  return "  Processor Info: #1\n    Manufacturer: \"Vendor\"\n    Version: \"" + version +
         "\"\n    Voltage: " + voltage + " V\n    Max. Speed: " + max_speed +
         " MHz\n    Current Speed: 1800 MHz\n";
}

TEST(HwProcessors, CoreThreadAndHtFlags) {
  const std::string dump =
      cpu_block("CPU A", "2000") + cpu_block("CPU(R) B", "2000") + "  Cache Info: #6\n";
  // Cores and threads of both packages -> per-package counts and flags.
  const std::tuple<long long, long long, const char*> cases[] = {
      {8, 16, "core-count=4\ncpu-thread-count=8\nht-enabled=1\nmulticore-or-ht=1\n"},
      // 1 core on 2 packages divides to 0, raised to 1.
      {1, 2, "core-count=1\ncpu-thread-count=1\nht-enabled=0\nmulticore-or-ht=0\n"},
      {2, 4, "core-count=1\ncpu-thread-count=2\nht-enabled=1\nmulticore-or-ht=1\n"},
  };
  for (const auto& [cores, threads, expected] : cases) {
    const std::string attrs = std::string("manuf=Vendor\nmax-clock-speed=2000\n") +
                              "current-clock-speed=1800\ncpu-voltage=10\n" + expected +
                              "status=1\n";
    EXPECT_EQ(processors_text(dump, 2, cores, threads),
              "+Processors=\n*Processor:1=CPU A\n" + attrs + "*Processor:2=CPU B\n" + attrs + "-\n")
        << cores << "/" << threads;
  }
  // A missing block has empty texts, unless no cache record follows the
  // last one: the next block then starts beyond the text.
  const std::string two = processors_text(cpu_block("A", "1") + "Cache Info: #2", 2, 2, 2);
  EXPECT_EQ(two.substr(two.find("*Processor:2=")),
            "*Processor:2=\nmax-clock-speed=\ncurrent-clock-speed=\ncpu-voltage=0\ncore-count=1\n"
            "cpu-thread-count=1\nht-enabled=0\nmulticore-or-ht=0\nstatus=1\n-\n");
  EXPECT_THROW(processors_text(cpu_block("A", "1"), 2, 2, 2), std::out_of_range);
}

TEST(HwProcessors, SpeedCorrectionVoltageAndName) {
  // Name, max. speed, voltage -> name, max. speed, voltage in tenths.
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"Intel Xeon", "65535", "1.35"}, "Intel Xeon|1800|13"},  // above 10000: current speed
      {{"Intel Xeon", "10000", "1.2"}, "Intel Xeon|10000|12"},
      {{"AMD Athlon(tm) II X2", "3000", "1.4"}, "AMD Athlon II X2|1800|14"},
      {{"AMD Athlon(tm) 64 X2", "3000", "1.4"}, "AMD Athlon 64 X2|3000|14"},  // no "II"
      {{"Athlon II X4", "3000", "x"}, "Athlon II X4|3000|0"},                 // no "AMD"
      {{"Intel(R) Core(TM)2  Duo\x99 M\xAE", "1", "1"}, "Intel Core2 Duo M|1|10"},
      {{"A((R)R) B", "1", "1"}, "A B|1|10"},    // a removal that forms a new mark removes it too
      {{"X(T\x99M)", "1", "1"}, "X(TM)|1|10"},  // but the kinds are removed one after another
  };
  for (const auto& c : cases) {
    const CpuRecord r = parse_cpu_record(cpu_block(c.first[0], c.first[1], c.first[2]));
    EXPECT_EQ(r.name + "|" + r.max_speed + "|" + r.voltage_tenths, c.second) << c.first[0];
  }
}

TEST(HwProcessors, CacheTypeFromTheFirstTypeLabel) {
  // L1: the first label ending in "Type: " is the supported-SRAM line.
  // L2: an empty size skips the level. L3: no such cache record.
  const std::string dump =
      "Processor Info: #1\n  Version: \"P\"\n  Max. Speed: 100 MHz\n  Current Speed: 100 MHz\n"
      "  L1 Cache: #2\n  L2 Cache: #3\n  L3 Cache: #9\n"
      "Cache Info: #2\n  Designation: \"L1\"\n  Supported SRAM Type: 0x20 (Synchronous)\n"
      "  Type: 0x04 (Data)\n  Associativity: 0x03 (Dirrect Mapped)\n"
      "  Current Size: 32 kB\n  Current SRAM Type: 0x02 (Unknown)\n  Type: 0x05 (Unified)\n"
      "Cache Info: #3\n  Designation: \"L2\"\n  Type: 0x03 (Instruction)\n"
      "  Current Size:  kB\n  Current SRAM Type: 0x02 (Unknown)\n";
  EXPECT_EQ(processors_text(dump, 1, 1, 1),
            "+Processors=\n+Processor:1=P\nmax-clock-speed=100\ncurrent-clock-speed=100\n"
            "cpu-voltage=0\ncore-count=1\ncpu-thread-count=1\nht-enabled=0\nmulticore-or-ht=0\n"
            "status=1\n*cache:1=L1\nsize=32\ntype=1\nassociativity=3\n-\n-\n");
}

TEST(HwDictionary, LookupStartPositionsAndNotFound) {
  // Searches from 1 never return the entry at 0 (a sentinel or "").
  EXPECT_EQ(d.chassis_code("~!~!~!~10101~!~!~!~"), 1);
  EXPECT_EQ(d.cache_assoc_code(""), 1);
  EXPECT_EQ(d.cache_assoc_code("8-way Set-Associative"), 1);  // case matters
  EXPECT_EQ(d.memory_type_code("DDR3"), 0);
  // Connector and port tables are searched from 0, up to the last entry.
  EXPECT_EQ(d.connector_code("Unknown"), 0);
  EXPECT_EQ(d.connector_code("InfiniBand"), 121);
  EXPECT_EQ(d.port_code("8251 FIFO Compatible"), 33);
}

TEST(HwDictionary, GuestFamiliesAndMobileProcessors) {
  // The first key found as a substring wins: "win" before "darwin",
  // "other" before "otherlinux", "centos" before "oes"; case matters.
  const std::pair<const char*, const char*> guests[] = {
      {"darwin10", "win"}, {"otherlinux-64", "other"}, {"centos", "centos"}, {"Ubuntu", "other"}};
  for (const auto& g : guests) EXPECT_EQ(d.guest_family(g.first), g.second) << g.first;
  // Plain patterns match as substrings, "|" included; "?a|b" needs both
  // parts, in either order.
  EXPECT_FALSE(mobile_pattern_matches("sempron|si-40", "amd sempron si-40"));
  EXPECT_TRUE(mobile_pattern_matches("sempron|si-40", "x sempron|si-40 y"));
  EXPECT_TRUE(mobile_pattern_matches("?atom|n270", "n270 atom"));
  EXPECT_FALSE(mobile_pattern_matches("?atom|n270", "intel atom cpu n280"));
  const std::pair<const char*, bool> cpus[] = {
      {"Intel(R) Atom(TM) CPU N270 @ 1.60GHz", true},
      {"AMD Athlon(tm) II Neo K325 Dual-Core Processor", true},
      {"Intel fake Athlon Neo", false},  // an Intel name never meets the AMD list
  };
  for (const auto& c : cpus) EXPECT_EQ(d.is_mobile_cpu(c.first), c.second) << c.first;
}

}  // namespace
