// Placeholder until this collector is written.
#include "app/scanner.h"

void CScaner::scan_firewall(zXML*) {}
