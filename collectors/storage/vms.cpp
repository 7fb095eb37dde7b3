// Placeholder until this collector is written.
#include "app/scanner.h"

void CScaner::scan_vms(zXML*) {}
void CScaner::process_vm(const std::string&, ztag*, uint64_t) {}
void CScaner::scan_vm_cdroms(ztag*, const char*, int&) {}
