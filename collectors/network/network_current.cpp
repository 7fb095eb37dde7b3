// Network readings for current releases.
#include "collectors/network/network_current.h"

#include <cctype>

#include "host/header_table.h"
#include "host/input_warning.h"
#include "host/text.h"
#include "zxml/tag.h"

namespace {

const size_t npos = std::string::npos;

bool equal_any_case(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

std::string first_word(const std::string& text) {
  const size_t start = text.find_first_not_of(" \t");
  if (start == npos) return std::string();
  const size_t end = text.find_first_of(" \t", start);
  return text.substr(start, end == npos ? npos : end - start);
}

}  // namespace

std::string nic_description_by_header(const std::string& listing, const std::string& colon_mac) {
  HeaderTable table = read_dashed_table(listing);
  if (table.columns.empty()) {
    // esxcfg-nics: labels start their columns; "Link Speed" are two labels.
    table = read_labelled_table(listing, {"Name", "PCI", "Driver", "Link", "Speed", "Duplex",
                                          "MAC Address", "MTU", "Description"});
  }
  const int mac = table.column("MAC Address");
  const int description = table.column("Description");
  if (mac < 0 || description < 0) return std::string();
  for (const std::string& row : table.rows) {
    // The address has no blanks; anything after it in the cell is not part
    // of it.
    if (equal_any_case(first_word(table.cell(row, mac)), colon_mac)) {
      return table.cell(row, description);
    }
  }
  return std::string();
}

std::vector<std::string> parse_nameservers(const std::string& resolv) {
  static const std::string kKeyword = "nameserver";
  std::vector<std::string> servers;
  text::for_each_line(resolv, text::LastLine::kCounted, [&](const std::string& line) {
    const size_t word = line.find_first_not_of(" \t");
    if (word == npos || line.compare(word, kKeyword.size(), kKeyword) != 0) return;
    const size_t after = word + kKeyword.size();
    if (after < line.size() && line[after] != ' ' && line[after] != '\t') return;
    const std::string server = first_word(line.substr(after));
    if (!server.empty()) servers.push_back(trim_space(server));
  });
  return servers;
}

void record_nameservers(const std::vector<std::string>& servers, ztag* top) {
  unsigned key = 1;
  for (const std::string& server : servers) {
    top->child("Network")
        ->child("dns-servers")
        ->set_attr(format_string("dns-server:%u", key++), zvalue(server));
  }
}

std::vector<FirewallRule> parse_firewall_rules(const std::string& output,
                                               std::vector<int>* skipped) {
  std::vector<FirewallRule> rules;
  // Lines start after the dashes under the header; without dashes the
  // header line is read as a rule, as in the default reading.
  const size_t dashes = output.find("--");
  const size_t newline = dashes == npos ? npos : output.find('\n', dashes);
  size_t start = newline == npos ? 0 : newline + 1;
  int line_number = 0;
  for (size_t end = output.find('\n', start); end != npos; end = output.find('\n', start)) {
    const std::string line = output.substr(start, end - start);
    start = end + 1;
    ++line_number;
    const size_t blank = line.find(' ');
    if (blank == npos) {
      if (skipped != nullptr) skipped->push_back(line_number);
      continue;
    }
    const size_t value = line.find_first_not_of(' ', blank);
    rules.push_back({line.substr(0, blank), value != npos && line.substr(value) == "true"});
  }
  return rules;
}

void record_firewall_rules(const std::vector<FirewallRule>& rules, const std::vector<int>& skipped,
                           ztag* top) {
  ztag* firewall = top->child("Security")->child("Firewall");
  firewall->add_meta("kind", "esx_fw");
  int number = 0;
  for (const FirewallRule& rule : rules) {
    firewall->child(format_string("rule:%d", number++), zvalue(rule.name))
        ->set_attr("enabled", zvalue(rule.enabled ? "1" : "0"));
  }
  for (int line : skipped) {
    add_input_warning(firewall, "esxcli network firewall ruleset list",
                      format_string("ruleset line %d: no text after the name", line));
  }
}
