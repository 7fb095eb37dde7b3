// Placeholder until this collector is written.
#include "collectors/collectors.h"

void collect_environment(CScaner*, zXML*) {}
