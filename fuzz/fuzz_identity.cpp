// The inventory file's name, built from what "uname -n" prints and a MAC
// text: whatever the host prints, the name stays one entry of the current
// directory (no "/", and no NUL but one the MAC text brings). Input: the "uname -n" output, then
// the MAC text.
#include "app/identity.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string> in = fuzz::split(data, size, 2);
  const std::string short_name = short_host_name(in[0]);
  for (int copy : {0, 1, 12}) {
    const std::string name = inventory_file_name(short_name, in[1], copy);
    if (name.size() < 4 || name.compare(name.size() - 4, 4, ".inv") != 0) {
      fuzz::fail("inventory_file_name", "does not end with .inv: " + name);
    }
    const bool nul = name.find('\0') != std::string::npos;
    if (name.find('/') != std::string::npos || (nul && in[1].find('\0') == std::string::npos)) {
      fuzz::fail("inventory_file_name", "a byte that cannot stand in one file name");
    }
    if (name == "." || name == "..") fuzz::fail("inventory_file_name", name);
  }
  return 0;
}
