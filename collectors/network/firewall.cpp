// Firewall collector: the host firewall's rulesets and whether each is
// enabled, from `esxcli network firewall ruleset list`.
#include "collectors/collectors.h"
#include "collectors/network/network.h"
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

  // Rulesets start on the line after the dashes under the header. Without
  // dashes (or a line end after them) the lines start at the top, so the
  // header line itself is read as a ruleset. Text after the last "\n" is
  // not read. Rules are numbered from 0.
  int number = 0;
  for (const std::string& line : text::lines_after(
           output, text::kTwoDashes, text::NoMarker::kFromTop, text::LastLine::kIgnored)) {
    size_t blank = line.find(' ');
    const std::string name = line.substr(0, blank);
    // A line without a blank has no enabled text: the substring past its
    // end throws out_of_range, which ends the scan. A name followed by
    // blanks only has an empty enabled text.
    size_t value = blank == npos ? npos : line.find_first_not_of(' ', blank);
    if (blank != npos && value == npos) value = line.size();
    const std::string enabled = line.substr(value);
    firewall->child(format_string("rule:%d", number), zvalue(name))
        ->set_attr("enabled", zvalue(enabled == "true" ? "1" : "0"));
    ++number;
  }
}

void collect_firewall(ScanContext& ctx, zXML* doc) {
  record_firewall(run_command(ctx.host, "esxcli network firewall ruleset list"), doc->top());
}
