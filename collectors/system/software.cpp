// Placeholder until this collector is written.
#include "collectors/collectors.h"
#include "zxml/INVfile.h"
#include "zxml/tag.h"

void collect_software(CScaner*, zXML*, int) {}

char* format_cim_datetime(long long seconds) {
  time_t t = seconds == -1 ? time(nullptr) : static_cast<time_t>(seconds);
  return format_alloc("%s", format_timestamp(t).c_str());
}
