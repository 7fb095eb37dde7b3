// Placeholder until this collector is written.
#include "collectors/collectors.h"
#include "zxml/tag.h"

std::string collect_os(CScaner*, zXML*, int* major, int* minor, bool) {
  *major = -1;
  *minor = -1;
  return "";
}

char* format_uptime() {
  return format_alloc("%014lld.000000:000", 0LL);
}
