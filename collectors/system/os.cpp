// OS and host identification: release name, build, update level,
// architecture and uptime.
#include "collectors/system/os.h"

#include <climits>
#include <cstdlib>
#include <ctime>

#include "collectors/collectors.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

// Position of the version token of a "vmware -v" text ("VMware ESXi 5.5.0
// build-1331820" -> "5.5.0"): after "VMware ESX", past the first blank
// after it and any further blanks, up to the next blank or the end of the
// text. False when there is no such token.
bool find_version_token(const std::string& text, size_t* begin, size_t* end) {
  static const std::string kProduct = "VMware ESX";
  const size_t product = text.find(kProduct);
  if (product == std::string::npos) return false;
  const size_t blank = text.find(' ', product + kProduct.size());
  if (blank == std::string::npos) return false;
  const size_t start = text.find_first_not_of(' ', blank + 1);
  if (start == std::string::npos) return false;
  size_t stop = text.find(' ', start);
  if (stop == std::string::npos) stop = text.size();
  *begin = start;
  *end = stop;
  return true;
}

// Decimal value of the leading part of text (strtol semantics: leading
// blanks and a sign allowed, 0 when there are no digits), clamped to int.
int decimal_value(const std::string& text) {
  const long value = std::strtol(text.c_str(), nullptr, 10);
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

// The text after `label` up to the next newline (or the end); `found`
// tells whether the label was there.
std::string labelled_value(const std::string& text, const std::string& label, bool* found) {
  const size_t at = text.find(label);
  *found = at != std::string::npos;
  if (!*found) return std::string();
  const size_t start = at + label.size();
  const size_t stop = text.find('\n', start);
  return text.substr(start, stop == std::string::npos ? std::string::npos : stop - start);
}

void parse_esxcli_version(const std::string& text, OsInfo& info) {
  bool found = false;
  info.name = labelled_value(text, "Product: ", &found);
  if (found) {
    // The position after "Version: " is taken without checking that the
    // label was found: when it is absent, npos plus the label length wraps
    // around to 8 and the line from offset 8 of the output is appended.
    // Existing inventories hold names made this way, so it is kept.
    static const std::string kVersion = "Version: ";
    const size_t start = text.find(kVersion) + kVersion.size();
    const size_t stop = text.find('\n', start);
    info.name +=
        " " + text.substr(start, stop == std::string::npos ? std::string::npos : stop - start);
  }
  info.descr = labelled_value(text, "Build: ", &found);
  info.service_pack = labelled_value(text, "Update: ", &found);
}

}  // namespace

void parse_vmware_version(const std::string& vmware_v, int* major, int* minor) {
  *major = -1;
  *minor = -1;
  size_t begin = 0;
  size_t end = 0;
  if (!find_version_token(vmware_v, &begin, &end)) return;
  const std::string token = vmware_v.substr(begin, end - begin);
  const size_t first_dot = token.find('.');
  *major = decimal_value(token.substr(0, first_dot));
  if (first_dot == std::string::npos) {
    *minor = 0;  // no minor part: the empty text reads as 0
    return;
  }
  const size_t second_dot = token.find('.', first_dot + 1);
  *minor = decimal_value(token.substr(first_dot + 1, second_dot == std::string::npos
                                                         ? std::string::npos
                                                         : second_dot - first_dot - 1));
}

void parse_os(const std::string& vmware_v, const std::string& esxcli_version, OsInfo& info) {
  info = OsInfo();
  parse_vmware_version(vmware_v, &info.esx_major, &info.esx_minor);
  if (info.esx_major == 5 || info.esx_major == 6) {
    parse_esxcli_version(esxcli_version, info);
  } else if (info.esx_major == 4) {
    // ESX 4 has no esxcli version query: the name is the "vmware -v" text
    // up to the end of the version, the description the build text after it.
    size_t begin = 0;
    size_t end = 0;
    find_version_token(vmware_v, &begin, &end);
    info.name = vmware_v.substr(0, end);
    const size_t build = vmware_v.find_first_not_of(' ', end);
    if (build != std::string::npos) info.descr = vmware_v.substr(build);
  }
}

void record_os(const OsInfo& info, ztag* top, const char* architecture, const std::string& uptime) {
  ztag* os = top->child("OS")->child("os:1", zvalue(info.name));
  os->add_meta("kind", "esx");
  os->set_attr("name", zvalue(info.name));
  if (!info.codename.empty()) os->set_attr("codename", zvalue(info.codename));
  if (!info.service_pack.empty() && info.service_pack != "0") {
    os->set_attr("service-pack", zvalue(info.service_pack));
  }
  if (!info.descr.empty()) os->set_attr("descr", zvalue(info.descr));
  if (architecture != nullptr) os->set_attr("architecture", zvalue(architecture));
  os->set_attr("uptime", zvalue(uptime));
}

std::string format_uptime_seconds(long long seconds, bool clock_ok) {
  if (!clock_ok || seconds < 0) return format_string("%014lld.000000:000", 0LL);
  // Past the first minute, 30 seconds are added before the split: this
  // rounds the minutes and shifts the printed seconds by 30. Inventories
  // compare against this form, so it is kept.
  if (seconds > 60 && seconds <= LLONG_MAX - 30) seconds += 30;
  const long long days = seconds / 86400;
  const int hours = static_cast<int>(seconds % 86400 / 3600);
  const int minutes = static_cast<int>(seconds % 3600 / 60);
  const int secs = static_cast<int>(seconds % 60);
  return format_string("%08lld%02d%02d%02d.000000:000", days, hours, minutes, secs);
}

char* format_uptime(HostAccess& host) {
  struct timespec now;
  const bool ok = host.monotonic(&now);
  const std::string text = format_uptime_seconds(ok ? static_cast<long long>(now.tv_sec) : 0, ok);
  return format_alloc("%s", text.c_str());
}

char* format_uptime() {
  return format_uptime(live_host());
}

std::string collect_os(ScanContext& ctx, zXML* doc, int* out_esx_major, int* out_esx_minor,
                       bool raw_mode) {
  const PKGDetector& detector = ctx.tools;
  // Raw mode writes nothing into the tree, and without a document there is
  // nowhere to write the missing-tool warning either.
  ztag* top = (raw_mode || doc == nullptr) ? nullptr : doc->top();
  const bool has_uname = detector.has_tool("uname");
  if (!has_uname && top != nullptr) {
    add_missing_tool_warning(top->child("OS"), "uname", "os", false);
  }

  const std::string vmware_v = run_command(ctx.host, "vmware -v");
  int major = -1;
  int minor = -1;
  parse_vmware_version(vmware_v, &major, &minor);
  std::string esxcli_version;
  if (major == 5 || major == 6) esxcli_version = run_command(ctx.host, "esxcli system version get");
  OsInfo info;
  parse_os(vmware_v, esxcli_version, info);
  *out_esx_major = info.esx_major;
  *out_esx_minor = info.esx_minor;

  if (raw_mode) return "OS Name: " + info.name + "\n";
  if (top == nullptr) return std::string();

  const char* architecture = nullptr;
  if (has_uname) {
    const std::string machine =
        run_command(ctx.host, shell_quote(detector.tool_path("uname")) + " -m");
    architecture = machine.find("64") != std::string::npos ? "64-bit" : "32-bit";
  }
  char* uptime = format_uptime(ctx.host);
  record_os(info, top, architecture, uptime);
  delete[] uptime;
  return std::string();
}
