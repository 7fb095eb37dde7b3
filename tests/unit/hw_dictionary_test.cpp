// Reference dictionaries: table shapes, lookup start positions and
// not-found results, guest families, and the mobile-processor classifier.
#include <gtest/gtest.h>

#include <string>

#include "collectors/hardware/ports_dictionary.h"

namespace {

const PortsDictionary& dict() {
  static const PortsDictionary d;
  return d;
}

TEST(DictTables, Sizes) {
  const PortsDictionary& d = dict();
  EXPECT_EQ(d.connector_types().size(), 122u);
  EXPECT_EQ(d.chassis_types().size(), 26u);
  EXPECT_EQ(d.amd_mobile_models().size(), 37u);
  EXPECT_EQ(d.intel_mobile_models().size(), 213u);
  EXPECT_EQ(d.port_types().size(), 34u);
  EXPECT_EQ(d.cache_associativity().size(), 9u);
  EXPECT_EQ(d.cache_types().size(), 6u);
  EXPECT_EQ(d.memory_form_factors().size(), 24u);
  EXPECT_EQ(d.memory_types().size(), 22u);
  EXPECT_EQ(d.guest_families().size(), 28u);
}

TEST(DictLookup, CodesStartPositionsAndNotFound) {
  const PortsDictionary& d = dict();
  // Chassis: duplicate keeps Sealed-Case PC at 25; the sentinel at 0 and a
  // differently cased name are not found.
  EXPECT_EQ(d.chassis_code("Rack Mount Chassis"), 23);
  EXPECT_EQ(d.chassis_code("Sealed-Case PC"), 25);
  EXPECT_EQ(d.chassis_code("~!~!~!~10101~!~!~!~"), 1);
  EXPECT_EQ(d.chassis_code("desktop"), 1);
  EXPECT_EQ(d.chassis_code("Notebook"), 10);
  // Cache tables: the empty entry at 0 is never returned.
  EXPECT_EQ(d.cache_assoc_code("Dirrect Mapped"), 3);
  EXPECT_EQ(d.cache_assoc_code("Direct Mapped"), 1);
  EXPECT_EQ(d.cache_assoc_code(""), 1);
  EXPECT_EQ(d.cache_assoc_code("8-way Set-Associative"), 1);
  EXPECT_EQ(d.cache_type_code("Unified"), 5);
  EXPECT_EQ(d.cache_type_code(""), 1);
  // Memory tables: unknown and "Unknown" both give 0.
  EXPECT_EQ(d.form_factor_code("DIMM"), 8);
  EXPECT_EQ(d.form_factor_code("Unknown"), 0);
  EXPECT_EQ(d.form_factor_code("Bogus"), 0);
  EXPECT_EQ(d.memory_type_code("DDR2"), 21);
  EXPECT_EQ(d.memory_type_code("DDR3"), 0);
  EXPECT_EQ(d.memory_type_code("Unknown"), 0);
  // Connector and port tables are searched from 0.
  EXPECT_EQ(d.connector_code("Unknown"), 0);
  EXPECT_EQ(d.connector_code("InfiniBand"), 121);
  EXPECT_EQ(d.connector_code("nothing"), 0);
  EXPECT_EQ(d.port_code("None"), 0);
  EXPECT_EQ(d.port_code("PCMCIA Type II"), 18);
  EXPECT_EQ(d.port_code("8251 FIFO Compatible"), 33);
  EXPECT_EQ(d.port_code("Parallel Port PS/2"), 0);
}

TEST(DictGuestFamily, FirstKeyFoundAsSubstringWins) {
  const struct {
    const char* guest;
    const char* family;
  } cases[] = {
      {"darwin10", "win"},  // "win" is tried before "darwin"
      {"rhel5", "redhat"},
      {"sles11", "suse"},
      {"otherlinux-64", "other"},  // "other" before "otherlinux"
      {"other24xlinux", "other"},
      {"vmkernel5", "esx"},
      {"centos", "centos"},  // found before "oes"
      {"unixware7", "sco"},
      {"Ubuntu", "other"},  // case-sensitive
      {"", "other"},
  };
  for (const auto& c : cases) EXPECT_EQ(dict().guest_family(c.guest), c.family) << c.guest;
}

TEST(DictMobile, PatternRule) {
  // Plain patterns match as substrings, "|" included.
  EXPECT_TRUE(mobile_pattern_matches("t7500", "core2 duo cpu t7500 @ 2.20ghz"));
  EXPECT_FALSE(mobile_pattern_matches("sempron|si-40", "amd sempron si-40"));
  EXPECT_TRUE(mobile_pattern_matches("sempron|si-40", "x sempron|si-40 y"));
  // "?a|b": both parts, either order.
  EXPECT_TRUE(mobile_pattern_matches("?atom|n270", "intel atom cpu n270"));
  EXPECT_TRUE(mobile_pattern_matches("?atom|n270", "n270 atom"));
  EXPECT_FALSE(mobile_pattern_matches("?atom|n270", "intel atom cpu n280"));
  EXPECT_FALSE(mobile_pattern_matches("?atom|n270", "intel n270"));
}

TEST(DictMobile, Classifier) {
  const struct {
    const char* name;
    bool mobile;
  } cases[] = {
      {"Intel(R) Core(TM)2 Duo CPU T7500 @ 2.20GHz", true},
      {"Intel(R) Atom(TM) CPU N270 @ 1.60GHz", true},
      {"Intel(R) Xeon(R) CPU E5520 @ 2.27GHz", false},
      {"AMD Turion(tm) 64 X2 Mobile Technology TL-60", true},
      {"AMD Athlon(tm) II Neo K325 Dual-Core Processor", true},
      {"Genuine Intel(R) CPU T2080 @ 1.73GHz", true},
      {"Intel(R) Pentium(R) M processor 1.73GHz", true},  // " m " step
      {"AMD Opteron(tm) Processor 6174", false},
      // An Intel name is never tried against the AMD list.
      {"Intel fake Athlon Neo", false},
      // Neither vendor word: never mobile unless the first step caught it.
      {"Athlon Neo", false},
      {"", false},
  };
  for (const auto& c : cases) EXPECT_EQ(dict().is_mobile_cpu(c.name), c.mobile) << c.name;
}

}  // namespace
