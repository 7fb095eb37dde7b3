// Header-based reading of the VIB list.
#include "collectors/system/software_current.h"

#include "collectors/system/software.h"
#include "host/header_table.h"
#include "host/input_warning.h"
#include "zxml/tag.h"

std::vector<VibRecord> parse_vib_table(const std::string& text, std::vector<int>* skipped) {
  std::vector<VibRecord> packages;
  const HeaderTable table = read_dashed_table(text);
  const int name = table.column("Name");
  const int version = table.column("Version");
  const int vendor = table.column("Vendor");
  const int date = table.column("Install Date");
  if (name < 0 || version < 0 || vendor < 0 || date < 0) return packages;
  int row_number = 0;
  for (const std::string& row : table.rows) {
    ++row_number;
    VibRecord r{table.cell(row, name), table.cell(row, version), table.cell(row, vendor),
                table.cell(row, date)};
    if (!table.reaches(row, date) || r.name.empty()) {
      if (skipped != nullptr) skipped->push_back(row_number);
      continue;
    }
    packages.push_back(r);
  }
  return packages;
}

void record_vib_table(ztag* top, const std::vector<VibRecord>& packages,
                      const std::vector<int>& skipped) {
  for (const VibRecord& p : packages) {
    ztag* soft = top->child("Software")->child("Soft:" + p.name + " " + p.version, zvalue(p.name));
    soft->set_attr("version", zvalue(p.version));
    soft->set_attr("publisher", zvalue(p.vendor));
    soft->set_attr("inst-date", zvalue(vib_install_date(p.install_date)));
  }
  ztag* software = top->find_child("Software");
  if (software == nullptr) return;
  for (int row : skipped) {
    add_input_warning(software, "esxcli software vib list",
                      format_string("package line %d: shorter than its columns", row));
  }
}
