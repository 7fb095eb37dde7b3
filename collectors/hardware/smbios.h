// Reading the host's SMBIOS text dump ("smbiosDump"): cutting records out of
// it, the numbers and sizes it prints, and the collector that writes the
// BIOS, system, chassis and board records and the simple memory-slot list.
//
// The dump is a sequence of records, each opened by a header line such as
// "  BIOS Info: #0"; fields are 'Label: "text"' or 'Label: 0xNN (Name)'.
// Every search is by substring, so indentation never matters.
#ifndef QUILLSCAN_COLLECTORS_HARDWARE_SMBIOS_H_
#define QUILLSCAN_COLLECTORS_HARDWARE_SMBIOS_H_

#include <functional>
#include <string>

class PortsDictionary;
class ztag;

// Reads the leading decimal digits of text (no sign, no blanks skipped);
// 0 when text does not start with a digit. Saturates instead of overflowing.
long long smbios_decimal(const std::string& text);

// Cuts the record whose header starts with title (for example
// "System Info: #") out of the dump. The record runs from the first
// occurrence of the title to the next ": #<n+1>", n being the number after
// the title, whatever record carries that number; or to the end of the dump.
// Returns "" when the title does not occur.
std::string smbios_record(const std::string& dump, const char* title);

// A memory size text ("2048 MB", "4 GB", "512 KB", "No Module Installed")
// in megabytes: number and unit are split at the first blank; "GB" is
// multiplied by 1024, "KB" divided by 1024 (whole division), any other unit
// is taken as megabytes. No blank, no unit or a zero number give 0.
long long smbios_size_mb(const std::string& size_text);

// The BIOS date "month/day/year" as a CIM date-time text
// "<year><month><day>000000.000000+000". The pieces are taken as they are
// (no padding); a date without "/" repeats the whole text three times.
// An empty date gives "".
std::string smbios_release_date(const std::string& date);

// Text between the first "(" at or after label and the next ")" in record;
// found is set to whether the label occurs at all.
std::string smbios_paren_field(const std::string& record, const char* label, bool* found);

// Writes System/BIOS-Info, Computer-system, Chassis, Motherboard and
// Mem-slots under top from the dump. uuid_output runs "esxcli system uuid
// get"; it is called only when the dump holds a system record.
void record_smbios(const std::string& dump, ztag* top, const PortsDictionary& dictionary,
                   const std::function<std::string()>& uuid_output);

#endif  // QUILLSCAN_COLLECTORS_HARDWARE_SMBIOS_H_
