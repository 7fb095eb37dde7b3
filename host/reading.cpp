// The option that selects the reading of current releases.
#include "host/reading.h"

#include <cstring>

bool is_current_option(const char* arg) {
  return std::strcmp(arg, "/current") == 0 || std::strcmp(arg, "-current") == 0;
}

bool apply_reading_option(const char* arg, ReadingSwitches* reading) {
  if (!is_current_option(arg)) return false;
  *reading = current_reading();
  return true;
}
