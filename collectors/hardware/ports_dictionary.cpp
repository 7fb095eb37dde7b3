// The reference tables and their lookups.
#include "collectors/hardware/ports_dictionary.h"

#include <cstddef>

#include "host/text.h"

namespace {

// Position of the first entry equal to name at or after start, or not_found.
int find_code(const PortsDictionary::Table& table, const std::string& name, size_t start,
              int not_found) {
  for (size_t i = start; i < table.size(); ++i) {
    if (table[i] == name) return static_cast<int>(i);
  }
  return not_found;
}

bool any_pattern_matches(const PortsDictionary::Table& patterns, const std::string& lower_name) {
  for (const std::string& pattern : patterns) {
    if (mobile_pattern_matches(pattern, lower_name)) return true;
  }
  return false;
}

using text::contains;

}  // namespace

PortsDictionary::PortsDictionary() {
  // The importer reads the first matching key, so the order is part of the
  // meaning: "win" is tried before "darwin", "other" before "otherlinux".
  guest_families_ = {{"longhorn", "win"},
                     {"win", "win"},
                     {"vmkernel", "esx"},
                     {"freebsd", "freebsd"},
                     {"darwin", "mac"},
                     {"os2", "os2"},
                     {"other", "other"},
                     {"asianux", "asianux"},
                     {"centos", "centos"},
                     {"debian", "debian"},
                     {"linux", "linux"},
                     {"mandrake", "mandrake"},
                     {"mandriva", "mandriva"},
                     {"nld9", "nld9"},
                     {"oes", "oes"},
                     {"other24xlinu", "linux"},
                     {"otherlinux", "linux"},
                     {"redhat", "redhat"},
                     {"rhel", "redhat"},
                     {"sjds", "sjds"},
                     {"sles", "suse"},
                     {"suse", "suse"},
                     {"turbolinux", "turbolinux"},
                     {"ubuntu", "ubuntu"},
                     {"solaris", "solaris"},
                     {"netware", "netware"},
                     {"openserver", "sco"},
                     {"unixware", "sco"}};

  // Position 0 is a sentinel no chassis name equals. "Rack Mount Chassis"
  // stands twice so that "Sealed-Case PC" keeps the code 25 the importer
  // knows.
  chassis_types_ = {"~!~!~!~10101~!~!~!~",
                    "Other",
                    "Unknown",
                    "Desktop",
                    "Low Profile Desktop",
                    "Pizza Box",
                    "Mini Tower",
                    "Tower",
                    "Portable",
                    "Laptop",
                    "Notebook",
                    "Hand Held",
                    "Docking Station",
                    "All in One",
                    "Sub Notebook",
                    "Space-Saving",
                    "Lunch Box",
                    "Main System Chassis",
                    "Expansion Chassis",
                    "SubChassis",
                    "Bus Expansion Chassis",
                    "Peripheral Chassis",
                    "Storage Chassis",
                    "Rack Mount Chassis",
                    "Rack Mount Chassis",
                    "Sealed-Case PC"};

  connector_types_ = {"Unknown",
                      "Other",
                      "Male",
                      "Female",
                      "Shielded",
                      "Unshielded",
                      "SCSI (A) High-Density (50 pins)",
                      "SCSI (A) Low-Density (50 pins)",
                      "SCSI (P) High-Density (68 pins)",
                      "SCSI SCA-I (80 pins)",
                      "SCSI SCA-II (80 pins)",
                      "SCSI Fibre Channel (DB-9), Copper",
                      "SCSI Fibre Channel (Fibre)",
                      "SCSI Fibre Channel SCA-II (40 pins)",
                      "SCSI Fibre Channel SCA-II (20 pins)",
                      "SCSI Fibre Channel BNC",
                      "ATA 3-1/2 Inch (40 pins)",
                      "ATA 2-1/2 Inch (44 pins)",
                      "ATA-2",
                      "ATA-3",
                      "ATA/66",
                      "DB-9 male",
                      "DB-15",
                      "DB-25",
                      "DB-36",
                      "RS-232C",
                      "RS-422",
                      "RS-423",
                      "RS-485",
                      "RS-449",
                      "V.35",
                      "X.21",
                      "IEEE-488",
                      "AUI",
                      "UTP Category 3",
                      "UTP Category 4",
                      "UTP Category 5",
                      "BNC",
                      "RJ-11",
                      "RJ-45",
                      "Fiber MIC",
                      "Apple AUI",
                      "Apple GeoPort",
                      "PCI",
                      "ISA",
                      "EISA",
                      "VESA",
                      "PCMCIA",
                      "PCMCIA Type I",
                      "PCMCIA Type II",
                      "PCMCIA Type III",
                      "ZV Port",
                      "CardBus",
                      "USB",
                      "IEEE 1394",
                      "HIPPI",
                      "HSSDC (6 pins)",
                      "GBIC",
                      "DIN",
                      "Mini-DIN",
                      "Micro-DIN",
                      "PS/2",
                      "Infrared",
                      "HP-HIL",
                      "Access Bus (USB)",
                      "NuBus",
                      "Centronics",
                      "Mini-Centronics",
                      "Mini-Centronics Type-14",
                      "Mini-Centronics Type-20",
                      "Mini-Centronics Type-26",
                      "Bus Mouse",
                      "ADB",
                      "AGP",
                      "VME Bus",
                      "VME64",
                      "Proprietary",
                      "Proprietary Processor Card Slot",
                      "Proprietary Memory Card Slot",
                      "Proprietary I/O Riser Slot",
                      "PCI-66MHZ",
                      "AGP2X",
                      "AGP4X",
                      "PC-98",
                      "PC-98-Hireso",
                      "PC-H98",
                      "PC-98Note",
                      "PC-98Full",
                      "SSA SCSI",
                      "Circular",
                      "On Board IDE Connector",
                      "On Board Floppy Connector",
                      "9 Pin Dual Inline",
                      "25 Pin Dual Inline",
                      "50 Pin Dual Inline",
                      "68 Pin Dual Inline",
                      "On Board Sound Connector",
                      "Mini Jack (headphones)",
                      "PCI-X",
                      "Sbus IEEE 1396-1993 32 bit",
                      "Sbus IEEE 1396-1993 64 bit",
                      "MCA",
                      "GIO",
                      "XIO",
                      "HIO",
                      "NGIO",
                      "PMC",
                      "MTRJ",
                      "VF-45",
                      "Future I/O",
                      "SC",
                      "SG",
                      "Electrical",
                      "Optical",
                      "Ribbon",
                      "GLM",
                      "1x9",
                      "Mini SG",
                      "LC",
                      "HSSC",
                      "VHDCI Shielded (68-pins)",
                      "InfiniBand"};

  // The spellings and the two 8251 entries at 32 and 33 are the codes the
  // importer expects.
  port_types_ = {"None",
                 "Parrallel Port XT/AT Compatible",
                 "Parrallel Port PS/2",
                 "Parrallel Port ECP",
                 "Parrallel Port EPP",
                 "Parrallel Port ECP/EPP",
                 "Serial Port XT/AT Compatible",
                 "Serial Port 16450 Compatible",
                 "Serial Port 16550 Compatible",
                 "Serial Port 16550A Compatible",
                 "SCSI Port",
                 "MIDI Port",
                 "Joy Stick Port",
                 "Keyboard Port",
                 "Mouse Port",
                 "SSA SCSI",
                 "USB",
                 "Firewire (IEEE P1394)",
                 "PCMCIA Type II",
                 "PCMCIA Type II",
                 "PCMCIA Type III",
                 "CardBus",
                 "Access Bus Port",
                 "SCSI II",
                 "SCSI Wide",
                 "PC-98",
                 "PC-98-Hireso",
                 "PC-H98",
                 "Video Port",
                 "Audio Port",
                 "Modem Port",
                 "Network Port",
                 "8251 Compatible",
                 "8251 FIFO Compatible"};

  cache_assoc_ = {"",
                  "Other",
                  "Unknown",
                  "Dirrect Mapped",
                  "2-way Set-associative",
                  "4-way Set-associative",
                  "Fully Associative",
                  "8-way Set-associative",
                  "16-way Set-associative"};

  cache_types_ = {"", "Other", "Unknown", "Instruction", "Data", "Unified"};

  form_factors_ = {"Unknown", "Other", "SIP",  "DIP",  "ZIP",    "SOJ",   "Proprietary", "SIMM",
                   "DIMM",    "TSOP",  "PGA",  "RIMM", "SODIMM", "SRIMM", "SMD",         "SSMP",
                   "QFP",     "TQFP",  "SOIC", "LCC",  "PLCC",   "BGA",   "FPBGA",       "LGA"};

  memory_types_ = {"Unknown",    "Other",  "DRAM",  "Synchronous DRAM",
                   "Cache DRAM", "EDO",    "EDRAM", "VRAM",
                   "SRAM",       "RAM",    "ROM",   "Flash",
                   "EEPROM",     "FEPROM", "EPROM", "CDRAM",
                   "3DRAM",      "SDRAM",  "SGRAM", "RDRAM",
                   "DDR",        "DDR2"};

  // Lower-case patterns; repeated entries are harmless and kept as they are.
  intel_mobile_ = {
      "t2060",          "t2080",          "t2130",          "t2310",          "t2330",
      "t2370",          "t2390",          "t2410",          "t3100",          "t3200",
      "t3400",          "t4200",          "t4300",          "t4400",          "t4500",
      "su2700",         "su4100",         "p6000",          "p6100",          "p6200",
      "u5400",          "i7-610",         "i7-620",         "i7-640",         "i7-660",
      "i7-680",         "i7-720qm",       "i7-740qm",       "i7-820qm",       "i7-840qm",
      "i7-920xm",       "i7-940xm",       "i7-2620",        "?i7|640",        "?i7|720",
      "?i7|820",        "i5-430",         "i5-450",         "i5-460",         "i5-520",
      "i5-540",         "i5-560",         "i5-580",         "i5-2520",        "i5-2540",
      "i3-330",         "i3-350",         "i3-370",         "i3-380",         "u2100",
      "u2200",          "su2700",         "su3300",         "su3500",         "t5200",
      "t5250",          "t5270",          "t5300",          "t5450",          "t5470",
      "t5500",          "t5550",          "t5600",          "t5670",          "t5750",
      "t5800",          "t5850",          "t5870",          "t5900",          "t7100",
      "t7200",          "t7250",          "t7300",          "t7400",          "t7500",
      "t7600",          "t7700",          "t7800",          "sl7100",         "l7200",
      "l7300",          "l7400",          "l7500",          "sp7500",         "l7700",
      "sp7700",         "l9300",          "l9400",          "u7500",          "u7600",
      "u7700",          "e8135",          "e8235",          "e8335",          "t6400",
      "t6500",          "t6570",          "t6600",          "t6670",          "t8100",
      "t8300",          "t9300",          "t9400",          "t9500",          "t9600",
      "t9800",          "t9900",          "p7350",          "p7370",          "p7450",
      "p7550",          "p7570",          "p8400",          "p8600",          "p8700",
      "p8800",          "p9500",          "p9600",          "p9700",          "sp9300",
      "sp9400",         "sp9600",         "sl9300",         "sl9380",         "sl9400",
      "sl9600",         "su4100",         "su7300",         "su9300",         "su9400",
      "su9600",         "x7800",          "x7900",          "x9000",          "p7550",
      "x9100",          "q9000",          "q9100",          "qx9300",         "t1200",
      "t1250",          "t1300",          "t1350",          "t1400",          "t1500",
      "t1600",          "u1300",          "u1400",          "u1500",          "t2050",
      "t2250",          "t2300",          "t2350",          "t2400",          "t2450",
      "t2500",          "t2600",          "t2700",          "l2300",          "l2400",
      "l2500",          "u2400",          "u2500",          "?celeron|205",   "?celeron|215",
      "?celeron|1.66",  "?celeron|1.83",  "?celeron|530",   "?celeron|540",   "?celeron|550",
      "?celeron|560",   "?celeron|570",   "?celeron|575",   "?celeron|585",   "?celeron|573",
      "?celeron|900",   "?celeron|t1400", "?celeron|t1500", "?celeron|t1600", "?celeron|t1700",
      "?celeron|t3000", "?celeron|t3100", "?celeron|t3300", "?celeron|t3500", "?celeron|su2300",
      "?celeron|p4500", "?celeron|p4505", "?celeron|p4600", "?celeron|u3400", "?celeron|u3405",
      "?celeron|p1053", "?atom|n270",     "?atom|n280",     "?atom|n450",     "?atom|n455",
      "?atom|n470",     "?atom|n475",     "?atom|n550",     "?atom|z500",     "?atom|z510",
      "?atom|z515",     "?atom|z520",     "?atom|z530",     "?atom|z540",     "?atom|z550",
      "?atom|z560",     "?atom|z600",     "?atom|z605",     "?atom|z610",     "?atom|z612",
      "?atom|z615",     "?atom|z620",     "?atom|z625"};

  // The two "sempron|si-4x" entries have no leading "?", so they only match
  // a name that contains the "|" itself.
  amd_mobile_ = {
      " ml-",          " mt-",          " mk-",          " tl-",          " tk-",
      " ql-",          "?athlon|neo",   "?athlon|m300",  "?athlon|m320",  "?athlon|m340",
      "?athlon|m360",  "?athlon|p320",  "?athlon|n330",  "?athlon|k325",  "sempron|si-40",
      "sempron|si-42", "?sempron|200u", "?sempron|208u", "?sempron|210u", "?phenom|p920",
      "?phenom|p940",  "?phenom|n930",  "?phenom|n950",  "?phenom|x920",  "?phenom|p820",
      "?phenom|p840",  "?phenom|n830",  "?phenom|n850",  "?phenom|n620",  "?phenom|x620",
      "?athlon|p320",  "?athlon|p340",  "?athlon|n330",  "?athlon|n350",  "?sempron|m100",
      "?sempron|m120", "?sempron|m140"};
}

int PortsDictionary::chassis_code(const std::string& name) const {
  return find_code(chassis_types_, name, 1, 1);
}

int PortsDictionary::cache_assoc_code(const std::string& name) const {
  return find_code(cache_assoc_, name, 1, 1);
}

int PortsDictionary::cache_type_code(const std::string& name) const {
  return find_code(cache_types_, name, 1, 1);
}

int PortsDictionary::form_factor_code(const std::string& name) const {
  return find_code(form_factors_, name, 1, 0);
}

int PortsDictionary::memory_type_code(const std::string& name) const {
  return find_code(memory_types_, name, 1, 0);
}

int PortsDictionary::connector_code(const std::string& name) const {
  return find_code(connector_types_, name, 0, 0);
}

int PortsDictionary::port_code(const std::string& name) const {
  return find_code(port_types_, name, 0, 0);
}

std::string PortsDictionary::guest_family(const std::string& guest_os) const {
  for (const auto& pair : guest_families_) {
    if (guest_os.find(pair.first) != std::string::npos) return pair.second;
  }
  return "other";
}

bool PortsDictionary::is_mobile_cpu(const std::string& cpu_name) const {
  const std::string name = text::lower_ascii(cpu_name);
  if (contains(name, " m ") || contains(name, "-m ") || contains(name, "mobile") ||
      contains(name, "turion")) {
    return true;
  }
  if (contains(name, "intel") || contains(name, "celeron") || contains(name, "pentium")) {
    return any_pattern_matches(intel_mobile_, name);
  }
  if (contains(name, "amd")) return any_pattern_matches(amd_mobile_, name);
  return false;
}

bool mobile_pattern_matches(const std::string& pattern, const std::string& lower_name) {
  if (pattern.empty() || pattern[0] != '?') return lower_name.find(pattern) != std::string::npos;
  // "?a|b": both parts anywhere, in either order. A "?" pattern without a
  // "|" (none in the tables) is read as a single part.
  const size_t bar = pattern.find('|');
  const std::string first =
      pattern.substr(1, bar == std::string::npos ? std::string::npos : bar - 1);
  const std::string second = bar == std::string::npos ? std::string() : pattern.substr(bar + 1);
  return lower_name.find(first) != std::string::npos &&
         lower_name.find(second) != std::string::npos;
}

std::string trim_blanks(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return std::string();
  const size_t last = text.find_last_not_of(' ');
  return text.substr(first, last - first + 1);
}
