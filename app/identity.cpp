// The host's identity for one scan and the inventory file name.
#include "app/identity.h"

#include "host/command.h"
#include "zxml/tag.h"

std::string choose_ip(const std::vector<AdapterAddress>& addresses, const char* given) {
  if (given != nullptr) {
    for (const AdapterAddress& address : addresses) {
      if (address.ip == given) return address.ip;
    }
  }
  // A given IP that no adapter has is ignored.
  for (const AdapterAddress& address : addresses) {
    if (address.ip != "0.0.0.0" && address.mac != "00-00-00-00-00-00") return address.ip;
  }
  return "127.0.0.1";
}

std::string choose_mac(const std::vector<AdapterAddress>& addresses, const std::string& ip) {
  for (const AdapterAddress& address : addresses) {
    if (address.ip == ip) return address.mac;
  }
  // Compat: five groups, not six: the inventory application knows this
  // value as "no MAC" (AppIdentity.IpAndMacChoice).
  return "00-00-00-00-00";
}

std::string inventory_file_name(const std::string& short_name, const std::string& mac, int copy) {
  // The name is formatted as a C string, so it ends at a NUL byte the host
  // printed, and a NUL never reaches the file system.
  const std::string printed = short_name.substr(0, short_name.find('\0'));
  std::string host;
  for (char c : printed) {
    if (c == '-') {
      host += '_';
    } else if (c >= 'a' && c <= 'z') {
      host += static_cast<char>(c - 'a' + 'A');
    } else {
      // Compat: every other byte is kept as the host printed it, control
      // bytes included (a CR LF line end leaves a CR in the name), except
      // "/" below (pinned by AppIdentity.FileNames and the end-to-end
      // UnguardedInputTest.test_zero_cores_per_socket_and_raw_host_name).
      host += c;
    }
  }
  std::string bare_mac;
  for (char c : mac) {
    if (c != '-') bare_mac += c;
  }
  std::string name = host + "_" + bare_mac;
  if (copy > 0) name += format_string("(%d)", copy);
  name += ".inv";
  // "/" is the one byte that would make the name a path into another
  // directory; as "_" the name stays one entry of the working directory
  // ("." and ".." cannot occur: the name always ends in ".inv").
  for (char& c : name) {
    if (c == '/') c = '_';
  }
  return name;
}

bool save_inventory(InvFile* file, bool write_flag, const OutputDirectory& dir,
                    const std::string& short_name, const std::string& mac, std::string* file_name) {
  const NameSequence name_for = [&](int copy) {
    return inventory_file_name(short_name, mac, copy);
  };
  return create_new_file(dir, name_for, file->build_image(write_flag), file_name);
}
