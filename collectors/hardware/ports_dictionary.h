// Reference dictionaries that turn SMBIOS names into codes, guest-OS codes
// into families, and recognise mobile processor models.
#ifndef QUILLSCAN_COLLECTORS_HARDWARE_PORTS_DICTIONARY_H_
#define QUILLSCAN_COLLECTORS_HARDWARE_PORTS_DICTIONARY_H_

#include <string>

class PortsDictionary {
 public:
  PortsDictionary();
  virtual ~PortsDictionary() = default;

  int chassis_code(const std::string& name) const;
  int cache_assoc_code(const std::string& name) const;
  int cache_type_code(const std::string& name) const;
  int form_factor_code(const std::string& name) const;
  int memory_type_code(const std::string& name) const;
  int connector_code(const std::string& name) const;
  int port_code(const std::string& name) const;
  // Family of a .vmx guestOS code ("other" when no key matches).
  std::string guest_family(const std::string& guest_os) const;
  bool is_mobile_cpu(const std::string& cpu_name) const;
};

// Removes blanks at both ends.
std::string trim_blanks(const std::string& text);

#endif  // QUILLSCAN_COLLECTORS_HARDWARE_PORTS_DICTIONARY_H_
