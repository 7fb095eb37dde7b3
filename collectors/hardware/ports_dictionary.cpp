// Placeholder until this collector is written.
#include "collectors/hardware/ports_dictionary.h"

PortsDictionary::PortsDictionary() {}
int PortsDictionary::chassis_code(const std::string&) const { return 1; }
int PortsDictionary::cache_assoc_code(const std::string&) const { return 1; }
int PortsDictionary::cache_type_code(const std::string&) const { return 1; }
int PortsDictionary::form_factor_code(const std::string&) const { return 0; }
int PortsDictionary::memory_type_code(const std::string&) const { return 0; }
int PortsDictionary::connector_code(const std::string&) const { return 0; }
int PortsDictionary::port_code(const std::string&) const { return 0; }
std::string PortsDictionary::guest_family(const std::string&) const { return "other"; }
bool PortsDictionary::is_mobile_cpu(const std::string&) const { return false; }
std::string trim_blanks(const std::string& t) { return t; }
