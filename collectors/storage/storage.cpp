// Placeholder until this collector is written.
#include "app/scanner.h"

void CScaner::scan_storage(zXML*, double& p, double& s, double& f) {
  p = s = f = 0;
}
void CScaner::scan_filesystem_line(const std::string&, zXML*, int, float& f, float& s) {
  f = s = 0;
}
