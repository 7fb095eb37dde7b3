// Asset summary collector: the flat "AssetInfo" record derived from a
// finished scan. Each stage is one function; they run in a fixed order and
// their first-setting order is the output order of the attributes.
#include "summary/asset_info.h"

#include "collectors/collectors.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "host/host_name.h"
#include "host/text.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

bool is_blank(char c) {
  return c == ' ' || c == '\t';
}

// Stage markers, printed only for a log run.
void mark(const AssetBuild& b, const char* marker) {
  if (b.ctx->log) print_message("%s", marker);
}

using text::set_text;

bool has_tool(const AssetBuild& b, const char* name) {
  return b.ctx->tools.has_tool(name);
}

ztag* snapshot_top(const AssetBuild& b) {
  return b.snapshot == nullptr ? nullptr : b.snapshot->top();
}

// 1: host name from Samba's NetBIOS name, and the chosen IP.
void stage_host_and_ip(AssetBuild& b) {
  set_text(b.asset, "hostname", smb_conf_value(b.smb_conf, "netbios name =", &b.netbios_found));
  set_text(b.asset, "ip-address", b.ip);
  mark(b, "1.\n");
}

// 2: address kind and the kernel's host name. The address counts as
// dynamic only when a DHCP client runs and Samba names the host.
void stage_static_ip_and_names(AssetBuild& b) {
  const bool dynamic = b.ctx->tools.dhclient_running() && b.netbios_found;
  set_text(b.asset, "static-ip", dynamic ? "0" : "1");
  const std::string short_name =
      query_short_host_name(b.ctx->host, b.ctx->tools.tool_path("uname"));
  set_text(b.asset, "int-name", short_name);
  set_text(b.asset, "alias", short_name);
  if (!b.netbios_found) set_text(b.asset, "hostname", short_name);
  mark(b, "2.\n");
}

// 3: fields the inventory application's users fill in, and the user.
void stage_user(AssetBuild& b) {
  set_text(b.asset, "description", "");
  set_text(b.asset, "comment", "");
  set_text(b.asset, "inv-number", "");
  set_text(b.asset, "login", b.login);
  set_text(b.asset, "user-name", first_line(run_command(b.ctx->host, "whoami")));
  mark(b, "3.\n");
}

// 4: what kind of asset this is, and whether it is a virtual machine.
void stage_classification(AssetBuild& b) {
  asset_classification(b.asset, snapshot_top(b), has_tool(b, "smbiosDump"), b.ctx->xen_guest);
  mark(b, "4.\n");
}

// 5: how the asset was scanned, and when.
void stage_scan_types(AssetBuild& b) {
  char* now = format_cim_datetime(b.ctx->host, -1);
  asset_scan_types(b.asset, now);
  delete[] now;
  mark(b, "5.\n");
}

// 6: the Samba workgroup as the domain, and the chosen MAC.
void stage_domain_and_mac(AssetBuild& b) {
  bool found = false;
  set_text(b.asset->child("control"), "domain", smb_conf_value(b.smb_conf, "workgroup =", &found));
  set_text(b.asset, "mac-address", b.mac);
  mark(b, "6.\n");
}

// 7: the system UUID.
void stage_uuid(AssetBuild& b) {
  asset_uuid(b.asset, snapshot_top(b));
  mark(b, "7.\n");
}

// 8: the serial number; the dump is read once more here, and the board and
// chassis makers found in it are kept for stage 11.
void stage_serial(AssetBuild& b) {
  if (has_tool(b, "smbiosDump"))
    b.smbios = read_smbios_identity(run_command(b.ctx->host, "smbiosDump"));
  asset_serial(b.asset, b.smbios);
  mark(b, "8.\n");
}

// 9: registration fields and the operating system.
void stage_os(AssetBuild& b) {
  asset_os(b.asset, snapshot_top(b));
  mark(b, "9.\n");
  mark(b, "9.1.\n");
  mark(b, "9.2.\n");
  mark(b, "9.3.\n");
}

// 10: the processors. The sub-stage markers carry no final dot.
void stage_processor(AssetBuild& b) {
  asset_processor(b.asset, snapshot_top(b), b.ctx->dictionary);
  mark(b, "10.\n");
  mark(b, "10.1\n");
  mark(b, "10.2\n");
  mark(b, "10.3\n");
  mark(b, "10.4\n");
  mark(b, "10.5\n");
}

// 11: system, chassis and board makers, and the memory.
void stage_system(AssetBuild& b) {
  asset_system(b.asset, snapshot_top(b), has_tool(b, "smbiosDump"), b.smbios);
  mark(b, "11.\n");
}

// 12: the video adapter.
void stage_video(AssetBuild& b) {
  asset_video(b.asset, snapshot_top(b));
  mark(b, "12.\n");
}

// 13: the monitor and the physical disk capacity.
void stage_monitor(AssetBuild& b) {
  asset_monitor_and_capacity(b.asset, snapshot_top(b), b.physical);
  mark(b, "13.\n");
}

// 14: the system disk's usage.
void stage_storage(AssetBuild& b) {
  asset_storage(b.asset, snapshot_top(b));
  mark(b, "14.\n");
}

// 15: the firewall: the host filters packets when it has iptables.
void stage_firewall(AssetBuild& b) {
  asset_firewall(b.asset, has_tool(b, "iptables"));
  mark(b, "15.\n");
}

// Last: a host that neither Samba nor uname names (no uname tool) is
// named by its kernel, so the inventory never shows an asset without a name.
void stage_hostname_fallback(AssetBuild& b) {
  asset_hostname_fallback(
      b.asset, [&b] { return run_command(b.ctx->host, "cat /proc/sys/kernel/hostname"); });
}

using Stage = void (*)(AssetBuild&);

// The stages in their fixed order.
const Stage kStages[] = {
    stage_host_and_ip, stage_static_ip_and_names,
    stage_user,        stage_classification,
    stage_scan_types,  stage_domain_and_mac,
    stage_uuid,        stage_serial,
    stage_os,          stage_processor,
    stage_system,      stage_video,
    stage_monitor,     stage_storage,
    stage_firewall,    stage_hostname_fallback,
};

}  // namespace

std::string smb_conf_value(const std::string& conf, const std::string& key, bool* found) {
  *found = false;
  size_t line_start = 0;
  while (line_start < conf.size()) {
    size_t line_end = conf.find('\n', line_start);
    if (line_end == std::string::npos) line_end = conf.size();
    const std::string line = conf.substr(line_start, line_end - line_start);
    line_start = line_end + 1;
    const size_t at = line.find(key);
    if (at == std::string::npos) continue;
    size_t first = 0;
    while (first < line.size() && is_blank(line[first])) ++first;
    if (first < line.size() && (line[first] == ';' || line[first] == '#')) continue;
    size_t value = at + key.size();
    while (value < line.size() && is_blank(line[value])) ++value;
    *found = true;
    return line.substr(value);
  }
  return std::string();
}

std::string first_line(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

void build_asset_info(AssetBuild& b) {
  for (Stage stage : kStages) stage(b);
}

zXML* collect_asset_info(ScanContext& ctx, bool doc_flag, const char* ip, const char* physical,
                         const char* fs_size, const char* fs_free, const char* mac,
                         const char* login, int& out, zXML* snapshot) {
  out = 0;
  zXML* doc = new zXML(doc_flag, "AssetInfo");
  AssetBuild b;
  b.ctx = &ctx;
  b.snapshot = snapshot;
  // Absent texts count as empty.
  auto text = [](const char* value) { return value != nullptr ? value : ""; };
  b.ip = text(ip);
  b.physical = text(physical);
  b.fs_size = text(fs_size);
  b.fs_free = text(fs_free);
  b.mac = text(mac);
  b.login = text(login);
  b.asset = doc->top();
  if (ctx.log) print_message("Collecting Asset Info data...\n");
  b.smb_conf = read_file(ctx.host, "/etc/samba/smb.conf");
  build_asset_info(b);
  if (ctx.log) print_message("End Collecting Asset Info data..\n");
  return doc;
}
