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
  // Five groups: the inventory application knows this value as "no MAC".
  return "00-00-00-00-00";
}

std::string inventory_file_name(const std::string& short_name, const std::string& mac, int copy) {
  std::string host;
  for (char c : short_name) {
    if (c == '-') {
      host += '_';
    } else if (c >= 'a' && c <= 'z') {
      host += static_cast<char>(c - 'a' + 'A');
    } else {
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
  // The host name is whatever the host's uname printed. "/" would lead into
  // another directory and NUL cannot be in a name at all; control bytes
  // (newlines included) would break the one-line result report that the
  // program that started the agent reads. All of them become "_". With no
  // "/" left, the name is one entry of the current directory ("." and ".."
  // cannot occur: the name always ends in ".inv").
  for (char& c : name) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (c == '/' || byte < 0x20 || byte == 0x7f) c = '_';
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
