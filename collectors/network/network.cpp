// Network collector: one "Network" / "Adapters" node per IPv4 interface the
// kernel lists (addresses from socket ioctls, description from the host's
// NIC listing tool, DHCP from dhclient's lease files, gateway from the route
// listing), the host's DNS servers, and the address list the scan driver
// picks the host's IP and MAC from.
#include "collectors/network/network.h"

#include <climits>
#include <cstdint>
#include <cstring>

#include "collectors/collectors.h"
#include "collectors/network/network_current.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "host/text.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

using text::npos;

const char kZeroMac[] = "00-00-00-00-00-00";
const char kLoopbackName[] = "lo0";
const char kLoopbackText[] = "Local Loopback";

// The low 32 bits of v read as a signed 32-bit number (two's complement),
// computed without any out-of-range conversion.
int32_t low32_signed(uint64_t v) {
  uint32_t low = static_cast<uint32_t>(v);
  if (low <= static_cast<uint32_t>(INT32_MAX)) return static_cast<int32_t>(low);
  return static_cast<int32_t>(static_cast<int64_t>(low) - (INT64_C(1) << 32));
}

}  // namespace

std::string mac_dashed(const unsigned char b[6]) {
  return format_string("%02X-%02X-%02X-%02X-%02X-%02X", b[0], b[1], b[2], b[3], b[4], b[5]);
}

std::string mac_colon(const unsigned char b[6]) {
  return format_string("%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
}

std::string nic_description(const std::string& listing, int esx_major, const std::string& colon_mac,
                            bool skip_short_lines) {
  const char* marker;
  if (esx_major == 5 || esx_major == 6) {
    marker = text::kThreeDashes;  // the dashes under esxcli's header
  } else if (esx_major == 4) {
    marker = "";  // esxcfg-nics has no dashes: its header is the first line
  } else {
    return "";
  }
  // Text after the last "\n" is not looked at.
  for (const std::string& line :
       text::lines_after(listing, marker, text::NoMarker::kNoLines, text::LastLine::kIgnored)) {
    // Columns are separated by runs of blanks; column 1 starts at offset 0
    // even when the line starts with a blank. Each further column starts at
    // the first non-blank after the previous one's end: npos once the line
    // has ended, and it stays npos.
    size_t start = 0;
    size_t end = line.find(' ');
    for (int column = 2; column <= 7; ++column) {
      start = line.find_first_not_of(' ', end);
      end = line.find(' ', start);
    }
    if (start == npos && skip_short_lines) continue;
    // Compat: a line with fewer than seven columns (an empty one included)
    // is not skipped: cutting column 7 from npos throws out_of_range, which
    // ends the scan (pinned by NetNicDescription.ShortLinesEndTheScan and
    // the end-to-end OutOfRangeTest, "NIC listing line").
    const std::string mac_column = line.substr(start, end == npos ? npos : end - start);
    if (mac_column != colon_mac) continue;

    // The rest of the line starts with column 8, the MTU; it stays at the
    // front of the description.
    const size_t rest = line.find_first_not_of(' ', end);
    if (rest == npos && skip_short_lines) return "";
    // Compat: nothing but blanks after the matching MAC column leaves no
    // description to cut, and substr throws as above (pinned by
    // NetNicDescription.ShortLinesEndTheScan).
    return line.substr(rest);
  }
  return "";
}

std::string default_gateway(const std::string& route_output, bool* found) {
  static const char kMarker[] = " 0.0.0.0 ";
  *found = false;
  if (route_output.empty()) return "";
  size_t hit = route_output.find(kMarker);
  if (hit == npos) return "";
  *found = true;
  size_t start = hit + strlen(kMarker);
  size_t end = route_output.find('\n', start);
  return route_output.substr(start, end == npos ? npos : end - start);
}

bool lease_matches_at(const std::string& lease, const std::string& ifname, const std::string& ip,
                      HostAccess& host) {
  const std::string pattern = "\"" + ifname + "\"";
  if (lease.find(pattern) == npos) return false;

  // The last occurrence, searching from offset 1; an occurrence only at
  // offset 0 leaves the searches below starting at the top of the text.
  size_t last = 0;
  for (size_t hit = lease.find(pattern, 1); hit != npos; hit = lease.find(pattern, hit + 1)) {
    last = hit;
  }

  // A keyword or delimiter that is missing makes the text no lease of ours.
  static const char kAddress[] = "fixed-address";
  size_t keyword = lease.find(kAddress, last);
  if (keyword == npos) return false;
  size_t value = lease.find_first_not_of(' ', keyword + strlen(kAddress));
  if (value == npos) return false;
  size_t semicolon = lease.find(';', value);
  if (semicolon == npos) return false;
  const std::string address = lease.substr(value, semicolon - value);

  static const char kLeaseTime[] = "dhcp-lease-time";
  keyword = lease.find(kLeaseTime, semicolon);
  if (keyword == npos) return false;
  value = lease.find_first_not_of(' ', keyword + strlen(kLeaseTime));
  if (value == npos) return false;
  const int32_t lease_seconds =
      static_cast<int32_t>(text::read_decimal(lease, value, text::Overflow::kWrap32));
  semicolon = lease.find(';', value);
  if (semicolon == npos) return false;

  // "expire <weekday> <year>/<month>/<day> <hour>:<minute>:<second>;" with
  // a one-character weekday.
  static const char kExpire[] = "expire";
  keyword = lease.find(kExpire, semicolon);
  if (keyword == npos) return false;
  size_t weekday = lease.find_first_not_of(' ', keyword + strlen(kExpire));
  if (weekday == npos) return false;
  size_t date = lease.find_first_not_of(' ', weekday + 2);
  if (date == npos) return false;
  int32_t fields[6];  // year, month, day, hour, minute, second
  const char delimiters[5] = {'/', '/', ' ', ':', ':'};
  size_t pos = date;
  for (int i = 0; i < 6; ++i) {
    fields[i] = static_cast<int32_t>(text::read_decimal(lease, pos, text::Overflow::kWrap32));
    if (i == 5) break;
    size_t delimiter = lease.find(delimiters[i], pos);
    if (delimiter == npos) return false;
    pos = delimiter + 1;
  }

  // The expiry is taken as local time (dhclient writes UTC), on top of
  // today's broken-down local time, so today's daylight-saving flag applies.
  time_t now = host.wall_time();
  struct tm when;
  if (!host.local_time(now, &when)) return false;
  const int64_t year = static_cast<int64_t>(fields[0]) - 1900;
  const int64_t month = static_cast<int64_t>(fields[1]) - 1;
  if (year < INT_MIN || month < INT_MIN) return false;
  when.tm_year = static_cast<int>(year);
  when.tm_mon = static_cast<int>(month);
  when.tm_mday = fields[2];
  when.tm_hour = fields[3];
  when.tm_min = fields[4];
  when.tm_sec = fields[5];
  const time_t expire_time = host.make_time(&when);

  // Compared as signed 32-bit seconds, with the start computed in 32 bits.
  now = host.wall_time();
  const uint32_t expire_low = static_cast<uint32_t>(static_cast<int64_t>(expire_time));
  const int32_t expire = low32_signed(expire_low);
  const int32_t start = low32_signed(expire_low - static_cast<uint32_t>(lease_seconds));
  const int32_t now32 = low32_signed(static_cast<uint64_t>(static_cast<int64_t>(now)));
  const bool current = start < now32 && now32 < expire;
  return current && address == ip;
}

void record_adapter(ztag* top, int index, const AdapterRecord& adapter) {
  ztag* node = top->child("Network")
                   ->child("Adapters")
                   ->child(format_string("net-adapter:%d", index), zvalue(adapter.description));
  node->set_attr("ip-subnet", zvalue(adapter.netmask));
  node->set_attr("adapter-name", zvalue(adapter.description));
  node->set_attr("type", zvalue(adapter.type));
  if (adapter.mac != kZeroMac) {
    node->set_attr("mac-address", zvalue(adapter.mac));
    node->set_attr("manuf-by-mac", zvalue(adapter.mac.substr(0, 8)));
  }
  node->set_attr("bsd-device-name", zvalue(adapter.name));
  node->set_attr("ip-address", zvalue(adapter.ip));
  node->set_attr("dhcp-enabled", zvalue(adapter.dhcp ? "1" : "0"));
  bool has_gateway = false;
  const std::string gateway = default_gateway(adapter.route_output, &has_gateway);
  if (has_gateway) node->set_attr("default-gateway", zvalue(gateway));
}

void record_dns_servers(const std::string& resolv, size_t from, ztag* top) {
  static const char kKeyword[] = "nameserver";
  if (resolv.empty()) return;
  unsigned key = 1;
  size_t pos = from;
  for (;;) {
    // A plain substring search: comments and longer words count as well.
    size_t hit = resolv.find(kKeyword, pos);
    if (hit == npos) return;
    // Only blanks are skipped, so a tab stays at the front of the value. A
    // keyword at the very end of the text gives an empty value.
    size_t value = hit + strlen(kKeyword);
    while (value < resolv.size() && resolv[value] == ' ') ++value;
    size_t end = resolv.find('\n', value);
    top->child("Network")
        ->child("dns-servers")
        ->set_attr(format_string("dns-server:%u", key),
                   zvalue(resolv.substr(value, end == npos ? npos : end - value)));
    key = (key + 1) % 65536;
    if (end == npos) return;
    pos = value;
  }
}

void collect_adapter(ScanContext& ctx, const HostRecord::Interface& iface, zXML* doc, int index,
                     AdapterAddress* slot, int esx_major) {
  AdapterRecord adapter;
  adapter.name = iface.name;
  adapter.ip = iface.ip;
  slot->ip = adapter.ip;
  adapter.netmask = iface.netmask;
  adapter.mac = mac_dashed(iface.mac);
  slot->mac = adapter.mac;

  std::string listing;
  if (esxcli_release(esx_major, ctx.reading)) {
    listing = run_command(ctx.host, "esxcli network nic list");
  } else if (esx_major == 4) {
    listing = run_command(ctx.host, "esxcfg-nics -l");
  }
  adapter.description =
      ctx.reading.nic_columns_by_header
          ? nic_description_by_header(listing, mac_colon(iface.mac))
          : nic_description(listing, esx_major, mac_colon(iface.mac), ctx.reading.skip_malformed);

  if (adapter.name == kLoopbackName) {
    adapter.type = kLoopbackText;
    adapter.description = kLoopbackText;
  } else {
    adapter.type = "Ethernet";
  }

  // The route listing is filtered by the shell; the interface name is quoted
  // so that it reaches grep as one literal word.
  adapter.route_output =
      run_command(ctx.host, format_string("esxcfg-route -l |grep %s|awk '{print \" \"$2\" \"$3}'",
                                          shell_quote(adapter.name).c_str()));

  adapter.dhcp = false;
  if (ctx.tools.dhclient_running()) {
    const std::string lease_files[3] = {
        format_string("/var/lib/dhcp/dhclient-%s.leases", adapter.name.c_str()),
        "/var/lib/dhcp/dhclient.leases",
        "/var/lib/dhcp/dhclient.leases~",
    };
    for (const std::string& path : lease_files) {
      if (lease_matches_at(read_file(ctx.host, path), adapter.name, adapter.ip, ctx.host)) {
        adapter.dhcp = true;
        break;
      }
    }
  }

  record_adapter(doc->top(), index, adapter);
}

void collect_network(ScanContext& ctx, zXML* doc, int esx_major, int /*reserved*/) {
  const std::vector<HostRecord::Interface> interfaces = ctx.host.interfaces();
  int index = 0;
  for (const HostRecord::Interface& iface : interfaces) {
    AdapterAddress address;
    collect_adapter(ctx, iface, doc, ++index, &address, esx_major);
    ctx.addresses.push_back(address);
  }

  // Compat: the DNS search position is shared with the adapter pass and
  // not reset after it: once an adapter has been read it lies past the end
  // of the text and no server is recorded; only an adapter-less pass
  // searches from the top (InProcessScan: no dns-servers on any host with
  // interfaces; NetDnsAndFirewall.ResolvConfAndRulesets).
  const std::string resolv = read_file(ctx.host, "/etc/resolv.conf");
  if (ctx.reading.dns_always) {
    record_nameservers(parse_nameservers(resolv), doc->top());
  } else {
    record_dns_servers(resolv, interfaces.empty() ? 0 : npos, doc->top());
  }
}
