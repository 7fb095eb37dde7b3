// Installed software collector.
#include "collectors/system/software.h"

#include <cstdlib>
#include <ctime>

#include "collectors/collectors.h"
#include "collectors/scan_context.h"
#include "collectors/system/software_current.h"
#include "host/command.h"
#include "host/text.h"
#include "zxml/INVfile.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

using text::npos;

// The next blank-separated token of `line` after position `pos` (which is
// at or before the blank that ends the previous token): from the first
// non-blank to the next blank or the end of the line. `pos` moves to the
// blank after the token (npos at the end of the line).
std::string next_token(const std::string& line, size_t& pos) {
  if (pos == npos) return std::string();
  size_t start = line.find_first_not_of(' ', pos);
  if (start == npos) {
    pos = npos;
    return std::string();
  }
  size_t end = line.find(' ', start);
  pos = end;
  return line.substr(start, end == npos ? npos : end - start);
}

// Gets or adds the package's child; two packages of equal name and version
// share one child, whose value and attributes the later one overwrites.
ztag* package_child(ztag* top, const std::string& name, const std::string& version) {
  std::string child_name = "Soft:" + name + " " + version;
  return top->child("Software")->child(child_name, zvalue(name));
}

bool by_package_name(const ztag& a, const ztag& b) {
  const std::string empty;
  const std::string& x = a.value() != nullptr ? a.value()->as_text() : empty;
  const std::string& y = b.value() != nullptr ? b.value()->as_text() : empty;
  return x.compare(y) < 0;
}

}  // namespace

std::string vib_install_date(const std::string& date) {
  // Split at the first and the second "-". When a "-" is missing the
  // search position wraps to the start of the text, so the missing pieces
  // repeat the text from there (a bare "2003" gives the year three times);
  // the wrap is written out here instead of relying on index arithmetic.
  size_t first = date.find('-');
  std::string year = date.substr(0, first);
  size_t month_start = first == npos ? 0 : first + 1;
  size_t second = date.find('-', month_start);
  std::string month = date.substr(month_start, second == npos ? npos : second - month_start);
  std::string day = date.substr(second == npos ? 0 : second + 1);
  return format_string("%s%s%s000000.000000+000", year.c_str(), month.c_str(), day.c_str());
}

void record_vib_list(ztag* top, const std::string& listing) {
  // Only lines that end with "\n" are read.
  for (const std::string& line : text::lines_after(
           listing, text::kThreeDashes, text::NoMarker::kNoLines, text::LastLine::kIgnored)) {
    size_t pos = line.find(' ');
    std::string name = line.substr(0, pos);
    std::string version = next_token(line, pos);
    std::string vendor = next_token(line, pos);
    next_token(line, pos);  // acceptance level
    std::string date = next_token(line, pos);

    ztag* soft = package_child(top, name, version);
    soft->set_attr("version", zvalue(version));
    soft->set_attr("publisher", zvalue(vendor));
    soft->set_attr("inst-date", zvalue(vib_install_date(date)));
  }
}

std::vector<std::string> ipkg_package_names(const std::string& list_text, bool skip_empty_names) {
  std::vector<std::string> names;
  size_t start = 0;
  while (start < list_text.size()) {
    size_t end = list_text.find('\n', start);
    std::string line = list_text.substr(start, end == npos ? npos : end - start);
    start = end == npos ? list_text.size() : end + 1;
    std::string name = line.substr(0, line.find(' '));
    if (name == "Successfully") break;
    // Compat: an empty line, or one starting with a blank, names the empty
    // package, which is asked for ("ipkg info "), recorded and sorted like
    // any other (pinned by SysSoftware.IpkgNamesQuotedEmptyNamesKept and the
    // end-to-end Esx4VariantTest).
    if (!name.empty() || !skip_empty_names) names.push_back(name);
  }
  return names;
}

void record_ipkg_package(HostAccess& host, ztag* top, const std::string& name,
                         const std::string& info_text) {
  std::string version = text_between(info_text, "Version: ", "\n");
  std::string architecture = text_between(info_text, "Architecture: ", "\n");
  std::string installed = text_between(info_text, "Installed-Time: ", "\n");
  // strtoll gives 0 for no digits and saturates instead of overflowing.
  long long seconds = std::strtoll(installed.c_str(), nullptr, 10);
  char* date = format_cim_datetime(host, seconds);

  ztag* soft = package_child(top, name, version);
  soft->set_attr("version", zvalue(version));
  soft->set_attr("architecture", zvalue(architecture));
  soft->set_attr("inst-date", zvalue(date));
  delete[] date;
}

void record_ipkg(HostAccess& host, ztag* top, const std::string& list_text,
                 const std::function<std::string(const std::string&)>& run, bool skip_empty_names) {
  for (const std::string& name : ipkg_package_names(list_text, skip_empty_names)) {
    // A name reaches the shell as one quoted word. The empty name adds no
    // word at all ("ipkg info " asks about every package), as the command
    // line "ipkg info %s" made with it does.
    const std::string word = name.empty() ? std::string() : shell_quote(name);
    record_ipkg_package(host, top, name, run("ipkg info " + word));
  }
}

void sort_software(ztag* top) {
  ztag* software = top->find_child("Software");
  if (software == nullptr || software->children().size() <= 2) return;
  software->sort_children(by_package_name);
}

void collect_software(ScanContext& ctx, zXML* doc, int esx_major) {
  ztag* top = doc->top();
  if (ctx.reading.current_releases && esxcli_release(esx_major, ctx.reading)) {
    std::vector<int> skipped;
    const std::vector<VibRecord> packages =
        parse_vib_table(run_command(ctx.host, "esxcli software vib list"), &skipped);
    record_vib_table(top, packages, ctx.reading.skip_malformed ? skipped : std::vector<int>());
  } else if (esx_major == 5 || esx_major == 6) {
    record_vib_list(top, run_command(ctx.host, "esxcli software vib list"));
  } else if (esx_major == 4) {
    record_ipkg(
        ctx.host, top, run_command(ctx.host, "ipkg list"),
        [&ctx](const std::string& cmdline) { return run_command(ctx.host, cmdline); },
        ctx.reading.skip_malformed);
  }
  sort_software(top);
}

char* format_cim_datetime(HostAccess& host, long long seconds) {
  time_t t = seconds == -1 ? host.wall_time() : static_cast<time_t>(seconds);
  return format_alloc("%s", host_timestamp(host, t).c_str());
}

char* format_cim_datetime(long long seconds) {
  return format_cim_datetime(live_host(), seconds);
}
