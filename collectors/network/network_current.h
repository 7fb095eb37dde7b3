// Readings of the network and firewall collectors for current releases: NIC
// descriptions by the listing's header, DNS servers from the resolver file
// whatever the adapter pass did, and firewall lines read without ending the
// scan on a malformed one.
#ifndef QUILLSCAN_COLLECTORS_NETWORK_NETWORK_CURRENT_H_
#define QUILLSCAN_COLLECTORS_NETWORK_NETWORK_CURRENT_H_

#include <string>
#include <vector>

class ztag;

// The "Description" column of the NIC listing line whose "MAC Address"
// column holds colon_mac (compared without regard to case), both columns
// found by the header line: esxcli's table (header and dashes) or
// esxcfg-nics' (header alone). "" when no line matches or the listing has
// no such columns.
std::string nic_description_by_header(const std::string& listing, const std::string& colon_mac);

// The servers of the "nameserver" lines of resolv.conf text, in order: the
// first word after the keyword, which must start the line (leading blanks
// allowed). Comment lines and other keywords are not servers.
std::vector<std::string> parse_nameservers(const std::string& resolv);

// Writes "Network" / "dns-servers" / dns-server:K (K from 1) under top; no
// node when there is no server.
void record_nameservers(const std::vector<std::string>& servers, ztag* top);

struct FirewallRule {
  std::string name;
  bool enabled = false;
};

// The rulesets of "esxcli network firewall ruleset list" as the default
// reading takes them (lines after the dashes, name up to the first blank,
// enabled when the rest is exactly "true"), except that a line without a
// blank after its name is skipped; `skipped` receives its 1-based line
// number.
std::vector<FirewallRule> parse_firewall_rules(const std::string& output,
                                               std::vector<int>* skipped);

// Writes the rules as rule:0, rule:1 ... with the "kind" annotation under
// "Security" / "Firewall", then one warning attribute per skipped line.
void record_firewall_rules(const std::vector<FirewallRule>& rules, const std::vector<int>& skipped,
                           ztag* top);

#endif  // QUILLSCAN_COLLECTORS_NETWORK_NETWORK_CURRENT_H_
