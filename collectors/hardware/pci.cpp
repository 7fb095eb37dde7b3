// Placeholder until this collector is written.
#include "collectors/collectors.h"

void collect_pci(CScaner*, zXML*) {}
