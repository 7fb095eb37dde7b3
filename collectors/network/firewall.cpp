// Firewall collector: the host firewall's rulesets and whether each is
// enabled, from `esxcli network firewall ruleset list`.
#include "collectors/collectors.h"
#include "collectors/network/network.h"
#include "collectors/network/network_current.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "host/text.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

void record_firewall(const std::string& output, ztag* top) {
  using text::npos;
  ztag* firewall = top->child("Security")->child("Firewall");
  // Added on every run, even when one is there already.
  firewall->add_meta("kind", "esx_fw");

  // Compat: rules are numbered from 0, and without dashes (or a line end
  // after them) the lines start at the top, so the header line itself is
  // read as a ruleset (NetDnsAndFirewall.ResolvConfAndRulesets). Text after
  // the last "\n" is not read.
  int number = 0;
  for (const std::string& line : text::lines_after(
           output, text::kTwoDashes, text::NoMarker::kFromTop, text::LastLine::kIgnored)) {
    const size_t blank = line.find(' ');
    const std::string name = line.substr(0, blank);
    // Compat: the enabled text starts at the first non-blank after the
    // name, unchecked: a line without a blank, or with only blanks after
    // the name, has none, and the substring from npos throws out_of_range,
    // which ends the scan (pinned by
    // NetDnsAndFirewall.LinesWithoutEnabledTextEndTheScan and the end-to-end
    // OutOfRangeTest, "firewall blanks").
    const size_t value = line.find_first_not_of(' ', blank);
    const std::string enabled = line.substr(value);
    firewall->child(format_string("rule:%d", number), zvalue(name))
        ->set_attr("enabled", zvalue(enabled == "true" ? "1" : "0"));
    ++number;
  }
}

void collect_firewall(ScanContext& ctx, zXML* doc) {
  const std::string output = run_command(ctx.host, "esxcli network firewall ruleset list");
  if (ctx.reading.skip_malformed) {
    std::vector<int> skipped;
    const std::vector<FirewallRule> rules = parse_firewall_rules(output, &skipped);
    record_firewall_rules(rules, skipped, doc->top());
    return;
  }
  record_firewall(output, doc->top());
}
