// Reference dictionaries that turn SMBIOS names into codes, guest-OS codes
// into families, and recognise mobile processor models.
//
// Every table is a list whose position is the code. The lists are the
// program's own: some entries are doubled or misspelt on purpose so that the
// codes stored in the inventory keep the values the importer expects.
#ifndef QUILLSCAN_COLLECTORS_HARDWARE_PORTS_DICTIONARY_H_
#define QUILLSCAN_COLLECTORS_HARDWARE_PORTS_DICTIONARY_H_

#include <string>
#include <utility>
#include <vector>

class PortsDictionary {
 public:
  using Table = std::vector<std::string>;
  using FamilyTable = std::vector<std::pair<std::string, std::string>>;

  PortsDictionary();
  virtual ~PortsDictionary() = default;
  PortsDictionary(const PortsDictionary&) = delete;
  PortsDictionary& operator=(const PortsDictionary&) = delete;

  // Position of the first entry equal to name (exact, case-sensitive),
  // searched from the start position noted; the not-found result follows.
  int chassis_code(const std::string& name) const;      // from 1, else 1
  int cache_assoc_code(const std::string& name) const;  // from 1, else 1
  int cache_type_code(const std::string& name) const;   // from 1, else 1
  int form_factor_code(const std::string& name) const;  // from 1, else 0
  int memory_type_code(const std::string& name) const;  // from 1, else 0
  int connector_code(const std::string& name) const;    // from 0, else 0
  int port_code(const std::string& name) const;         // from 0, else 0
  // Family of a .vmx guestOS code: the family of the first key (in table
  // order) found anywhere in the text; "other" when no key matches.
  std::string guest_family(const std::string& guest_os) const;
  // Whether a processor name names a mobile model.
  bool is_mobile_cpu(const std::string& cpu_name) const;

  // Read-only views of the tables.
  const Table& connector_types() const { return connector_types_; }
  const Table& chassis_types() const { return chassis_types_; }
  const Table& amd_mobile_models() const { return amd_mobile_; }
  const Table& intel_mobile_models() const { return intel_mobile_; }
  const Table& port_types() const { return port_types_; }
  const Table& cache_associativity() const { return cache_assoc_; }
  const Table& cache_types() const { return cache_types_; }
  const Table& memory_form_factors() const { return form_factors_; }
  const Table& memory_types() const { return memory_types_; }
  const FamilyTable& guest_families() const { return guest_families_; }

 private:
  Table connector_types_;
  Table chassis_types_;
  Table amd_mobile_;
  Table intel_mobile_;
  Table port_types_;
  Table cache_assoc_;
  Table cache_types_;
  Table form_factors_;
  Table memory_types_;
  FamilyTable guest_families_;
};

// Does one mobile-model pattern match a lower-cased processor name? A plain
// pattern matches as a substring; "?a|b" matches when both a and b occur,
// anywhere and in either order.
bool mobile_pattern_matches(const std::string& pattern, const std::string& lower_name);

// Removes spaces at both ends.
std::string trim_blanks(const std::string& text);

#endif  // QUILLSCAN_COLLECTORS_HARDWARE_PORTS_DICTIONARY_H_
