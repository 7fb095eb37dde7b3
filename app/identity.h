// The host's identity for one scan (short name, IP, MAC) and the name of
// the inventory file built from it.
#ifndef QUILLSCAN_APP_IDENTITY_H_
#define QUILLSCAN_APP_IDENTITY_H_

#include <string>
#include <vector>

#include "app/output_file.h"
#include "app/scanner.h"
#include "host/host_name.h"
#include "zxml/INVfile.h"

// The IP that identifies the host: the given one when some adapter has
// it, else the first usable adapter's, else "127.0.0.1". `given` may be null.
std::string choose_ip(const std::vector<AdapterAddress>& addresses, const char* given);

// The MAC of the first adapter with that IP, else "00-00-00-00-00".
std::string choose_mac(const std::vector<AdapterAddress>& addresses, const std::string& ip);

// "<HOST>_<MAC>.inv" with "-" removed from the MAC and the host name
// upper-cased with "-" turned into "_"; `copy` > 0 gives
// "<HOST>_<MAC>(<copy>).inv". The host name ends at a NUL byte and "/"
// becomes "_", so the name never leads out of the directory; every other
// byte is kept.
std::string inventory_file_name(const std::string& short_name, const std::string& mac, int copy);

// Writes the container's image to the first inventory file name not taken
// in dir (see create_new_file) and returns true; *file_name receives the
// name alone. On failure returns false with the name that was to be
// written, and no file is left.
bool save_inventory(InvFile* file, bool write_flag, const OutputDirectory& dir,
                    const std::string& short_name, const std::string& mac, std::string* file_name);

#endif  // QUILLSCAN_APP_IDENTITY_H_
