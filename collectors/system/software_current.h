// The VIB list read by its header columns, as current releases need: the
// 9.0 list adds a "Platforms" column, and a column may hold blanks.
#ifndef QUILLSCAN_COLLECTORS_SYSTEM_SOFTWARE_CURRENT_H_
#define QUILLSCAN_COLLECTORS_SYSTEM_SOFTWARE_CURRENT_H_

#include <string>
#include <vector>

class ztag;

struct VibRecord {
  std::string name;
  std::string version;
  std::string vendor;
  std::string install_date;  // as listed, "YYYY-MM-DD"
};

// The packages of "esxcli software vib list", from the "Name", "Version",
// "Vendor" and "Install Date" columns found by the header. A line that does
// not reach the "Install Date" column (a name without the text after it,
// a cut-off line) is left out; `skipped` receives its 1-based row number.
std::vector<VibRecord> parse_vib_table(const std::string& text, std::vector<int>* skipped);

// Writes each package as the default reading does ("Soft:NAME VERSION" with
// "version", "publisher", "inst-date"), then adds one warning attribute to
// "Software" per skipped row when that node exists.
void record_vib_table(ztag* top, const std::vector<VibRecord>& packages,
                      const std::vector<int>& skipped);

#endif  // QUILLSCAN_COLLECTORS_SYSTEM_SOFTWARE_CURRENT_H_
