// Capture stream reader. The stream is line-framed text: a version line,
// records of a header line, hex lines and a checksum line, and a count line.
// See docs/capture-format.md.
#include "host/capture_reader.h"

#include <md5.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

// One line of the stream: [begin, end) without its newline; `next` is where
// the following line starts.
struct Line {
  size_t begin = 0;
  size_t end = 0;
  size_t next = 0;
};

bool next_line(const std::string& data, size_t pos, Line* line) {
  if (pos >= data.size()) return false;
  const size_t nl = data.find('\n', pos);
  if (nl == std::string::npos) return false;  // a last line without newline: cut off
  line->begin = pos;
  line->end = nl;
  line->next = nl + 1;
  return true;
}

std::vector<std::string> words(const std::string& text) {
  std::vector<std::string> out;
  size_t pos = 0;
  while (pos < text.size()) {
    const size_t start = text.find_first_not_of(" \t", pos);
    if (start == std::string::npos) break;
    const size_t end = text.find_first_of(" \t", start);
    out.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    pos = end == std::string::npos ? text.size() : end;
  }
  return out;
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Appends the bytes of one od line (" 61 62 0a"); false on anything else.
bool decode_hex_line(const std::string& data, const Line& line, std::string* out) {
  size_t i = line.begin;
  while (i < line.end) {
    const char c = data[i];
    if (c == ' ' || c == '\t') {
      ++i;
      continue;
    }
    if (i + 1 >= line.end) return false;
    const int hi = hex_digit(c);
    const int lo = hex_digit(data[i + 1]);
    if (hi < 0 || lo < 0) return false;
    if (i + 2 < line.end && data[i + 2] != ' ' && data[i + 2] != '\t') return false;
    out->push_back(static_cast<char>(hi * 16 + lo));
    i += 2;
  }
  return true;
}

bool parse_u64(const std::string& text, uint64_t* value) {
  if (text.empty() || text.size() > 19) return false;
  uint64_t v = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    v = v * 10 + static_cast<uint64_t>(c - '0');
  }
  *value = v;
  return true;
}

bool parse_flag(const std::string& text, bool* value) {
  if (text != "0" && text != "1") return false;
  *value = text == "1";
  return true;
}

// "+0130" -> 5400 seconds.
bool parse_zone(const std::string& text, int32_t* seconds) {
  if (text.size() != 5 || (text[0] != '+' && text[0] != '-')) return false;
  for (size_t i = 1; i < 5; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
  }
  const int hours = (text[1] - '0') * 10 + (text[2] - '0');
  const int minutes = (text[3] - '0') * 10 + (text[4] - '0');
  if (minutes > 59 || hours > 23) return false;
  const int32_t total = hours * 3600 + minutes * 60;
  *seconds = text[0] == '-' ? -total : total;
  return true;
}

// Seconds since boot: "12345.67" from /proc/uptime, or "u<microseconds>"
// from esxcli.
bool parse_uptime(const std::string& text, int64_t* sec, int64_t* nsec) {
  uint64_t whole = 0;
  if (!text.empty() && text[0] == 'u') {
    if (!parse_u64(text.substr(1), &whole)) return false;
    *sec = static_cast<int64_t>(whole / 1000000);
    *nsec = static_cast<int64_t>(whole % 1000000) * 1000;
    return true;
  }
  const size_t dot = text.find('.');
  if (!parse_u64(text.substr(0, dot), &whole)) return false;
  int64_t fraction = 0;
  if (dot != std::string::npos) {
    const std::string digits = text.substr(dot + 1, 9);
    uint64_t f = 0;
    if (!digits.empty() && !parse_u64(digits, &f)) return false;
    fraction = static_cast<int64_t>(f);
    for (size_t i = digits.size(); i < 9; ++i) fraction *= 10;
  }
  *sec = static_cast<int64_t>(whole);
  *nsec = fraction;
  return true;
}

std::string md5_hex(const std::string& data, size_t begin, size_t end) {
  char hex[MD5_DIGEST_STRING_LENGTH];
  MD5Data(reinterpret_cast<const uint8_t*>(data.data() + begin), end - begin, hex);
  return hex;
}

// Dotted quad of a prefix length.
std::string netmask_of(int prefix) {
  const uint32_t mask =
      prefix <= 0 ? 0 : (prefix >= 32 ? 0xffffffffu : ~((1u << (32 - prefix)) - 1));
  return std::to_string(mask >> 24) + "." + std::to_string((mask >> 16) & 255) + "." +
         std::to_string((mask >> 8) & 255) + "." + std::to_string(mask & 255);
}

// "00:13:32:08:f7:d4" (anywhere in text, first one) -> six bytes.
bool parse_mac(const std::string& text, unsigned char mac[6]) {
  for (size_t at = 0; at + 17 <= text.size(); ++at) {
    bool ok = true;
    unsigned char bytes[6];
    for (int i = 0; i < 6 && ok; ++i) {
      const int hi = hex_digit(text[at + static_cast<size_t>(i) * 3]);
      const int lo = hex_digit(text[at + static_cast<size_t>(i) * 3 + 1]);
      ok = hi >= 0 && lo >= 0 && (i == 5 || text[at + static_cast<size_t>(i) * 3 + 2] == ':');
      if (ok) bytes[i] = static_cast<unsigned char>(hi * 16 + lo);
    }
    if (ok) {
      for (int i = 0; i < 6; ++i) mac[i] = bytes[i];
      return true;
    }
  }
  return false;
}

bool is_dotted_quad(const std::string& text) {
  int parts = 0;
  size_t pos = 0;
  while (pos <= text.size()) {
    const size_t dot = text.find('.', pos);
    const std::string part =
        text.substr(pos, dot == std::string::npos ? std::string::npos : dot - pos);
    uint64_t v = 0;
    if (!parse_u64(part, &v) || v > 255 || part.size() > 3) return false;
    ++parts;
    if (dot == std::string::npos) break;
    pos = dot + 1;
  }
  return parts == 4;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t nl = text.find('\n', pos);
    if (nl == std::string::npos) nl = text.size();
    lines.push_back(text.substr(pos, nl - pos));
    pos = nl + 1;
  }
  return lines;
}

bool fail(std::string* error, const std::string& text) {
  *error = text;
  return false;
}

bool path_record(const std::vector<std::string>& attrs, HostRecord::PathInfo* info) {
  uint64_t kib = 0;
  if (attrs.size() != 6 || !parse_flag(attrs[0], &info->exists) ||
      !parse_flag(attrs[1], &info->openable) || !parse_flag(attrs[2], &info->is_dir) ||
      !parse_flag(attrs[3], &info->is_regular) || !parse_u64(attrs[4], &info->size) ||
      !parse_u64(attrs[5], &kib) || kib > (UINT64_MAX >> 10)) {
    return false;
  }
  info->allocated = kib << 10;
  return true;
}

// find prints "DIR/NAME" separated by NUL bytes, in the order the directory
// is read; ls prints bare names, one a line.
std::vector<HostRecord::DirEntry> listing_record(bool from_find, const std::string& value) {
  const char separator = from_find ? '\0' : '\n';
  std::vector<HostRecord::DirEntry> entries;
  size_t pos = 0;
  while (pos < value.size()) {
    size_t end = value.find(separator, pos);
    if (end == std::string::npos) end = value.size();
    std::string name = value.substr(pos, end - pos);
    pos = end + 1;
    if (from_find) {
      const size_t slash = name.rfind('/');
      if (slash != std::string::npos) name.erase(0, slash + 1);
    }
    if (name.empty()) continue;
    HostRecord::DirEntry entry;
    entry.name = name;
    entries.push_back(entry);
  }
  return entries;
}

// A part the host could not tell is "-"; the reading is still kept.
bool clock_record(const std::vector<std::string>& attrs, HostRecord::Clock* clock) {
  if (attrs.size() != 3) return false;
  uint64_t wall = 0;
  if (attrs[0] != "-" && (!parse_u64(attrs[0], &wall) || wall > INT64_MAX)) return false;
  clock->wall = static_cast<int64_t>(wall);
  if (attrs[1] != "-" && !parse_zone(attrs[1], &clock->utc_offset)) return false;
  return attrs[2] == "-" || parse_uptime(attrs[2], &clock->monotonic_sec, &clock->monotonic_nsec);
}

bool apply_record(const std::string& kind, const std::vector<std::string>& attrs,
                  const std::string& key, const std::string& value, Capture* out,
                  std::string* why) {
  HostRecord& r = out->record;
  if (kind == "C") {
    r.commands.emplace(key, value);
  } else if (kind == "F") {
    r.files.emplace(key, value);
  } else if (kind == "S") {
    HostRecord::PathInfo info;
    if (!path_record(attrs, &info)) return fail(why, "bad path attributes");
    r.paths.emplace(key, info);
  } else if (kind == "D") {
    if (attrs.size() != 1 || (attrs[0] != "find" && attrs[0] != "ls")) {
      return fail(why, "bad listing kind");
    }
    r.dirs.emplace(key, listing_record(attrs[0] == "find", value));
  } else if (kind == "T") {
    HostRecord::Clock clock;
    if (!clock_record(attrs, &clock)) return fail(why, "bad clock");
    r.clocks.push_back(clock);
  } else if (kind == "W") {
    std::string dir = value;
    if (!dir.empty() && dir.back() == '\n') dir.pop_back();
    r.working_directory = dir;
  } else if (kind == "I") {
    out->probes.emplace(key, value);
  } else {
    return fail(why, "unknown record kind '" + kind + "'");
  }
  return true;
}

}  // namespace

void interfaces_from_ip(const std::string& ip_output,
                        const std::map<std::string, std::string>& probes,
                        std::vector<HostRecord::Interface>* interfaces) {
  // "2: vmk0    inet 10.130.2.121/24 brd 10.130.2.255 scope global vmk0\ ..."
  for (const std::string& line : lines_of(ip_output)) {
    const size_t backslash = line.find('\\');
    const std::vector<std::string> w = words(line.substr(0, backslash));
    if (w.size() < 4) continue;
    size_t inet = 0;
    while (inet < w.size() && w[inet] != "inet") ++inet;
    if (inet + 1 >= w.size()) continue;
    HostRecord::Interface ifc;
    std::string device = w[1];
    if (!device.empty() && device.back() == ':') device.pop_back();
    const size_t at = device.find('@');  // "veth0@if3"
    if (at != std::string::npos) device.erase(at);
    ifc.name = backslash == std::string::npos ? device : w.back();
    const std::string& address = w[inet + 1];
    const size_t slash = address.find('/');
    ifc.ip = address.substr(0, slash);
    uint64_t prefix = 32;
    if (slash != std::string::npos && !parse_u64(address.substr(slash + 1), &prefix)) continue;
    if (!is_dotted_quad(ifc.ip) || prefix > 32) continue;
    ifc.netmask = netmask_of(static_cast<int>(prefix));
    const auto mac = probes.find("mac " + device);
    if (mac != probes.end()) parse_mac(mac->second, ifc.mac);
    interfaces->push_back(ifc);
  }
}

void interfaces_from_ifconfig(const std::string& output,
                              std::vector<HostRecord::Interface>* interfaces) {
  // Old net-tools: "eth0  Link encap:Ethernet  HWaddr 00:..." then
  // "  inet addr:A  Bcast:B  Mask:M"; newer: "eth0: flags=..." then
  // "  inet A  netmask M ..." and "  ether 00:...".
  HostRecord::Interface current;
  bool open = false;
  auto flush = [&] {
    if (open && !current.ip.empty()) interfaces->push_back(current);
    current = HostRecord::Interface();
    open = false;
  };
  for (const std::string& line : lines_of(output)) {
    if (line.empty()) continue;
    const std::vector<std::string> w = words(line);
    if (w.empty()) continue;
    if (line[0] != ' ' && line[0] != '\t') {
      flush();
      open = true;
      current.name = w[0];
      if (!current.name.empty() && current.name.back() == ':') current.name.pop_back();
      parse_mac(line, current.mac);
      continue;
    }
    for (size_t i = 0; i < w.size(); ++i) {
      if (w[i].compare(0, 5, "addr:") == 0 && w[0] == "inet") current.ip = w[i].substr(5);
      if (w[i].compare(0, 5, "Mask:") == 0) current.netmask = w[i].substr(5);
      if (w[0] == "inet" && i == 1 && w[i].find(':') == std::string::npos) current.ip = w[i];
      if (w[i] == "netmask" && i + 1 < w.size()) current.netmask = w[i + 1];
      if (w[i] == "ether" && i + 1 < w.size()) parse_mac(w[i + 1], current.mac);
    }
  }
  flush();
}

void interfaces_from_esxcli(const std::string& ipv4_get, const std::string& interface_list,
                            std::vector<HostRecord::Interface>* interfaces) {
  // The table under the dashes: Name, IPv4 Address, IPv4 Netmask, ...
  const size_t dashes = ipv4_get.find("--");
  if (dashes == std::string::npos) return;
  const size_t nl = ipv4_get.find('\n', dashes);
  if (nl == std::string::npos) return;
  // The interface list: blocks of "   Name: vmk0" ... "   MAC Address: ...".
  std::map<std::string, std::string> macs;
  std::string name;
  for (const std::string& line : lines_of(interface_list)) {
    const size_t n = line.find("Name: ");
    if (n != std::string::npos && line.find("Portgroup") == std::string::npos &&
        line.find("Netstack") == std::string::npos) {
      name = line.substr(n + 6);
    }
    if (line.find("MAC Address: ") != std::string::npos && !name.empty()) macs[name] = line;
  }
  for (const std::string& line : lines_of(ipv4_get.substr(nl + 1))) {
    const std::vector<std::string> w = words(line);
    if (w.size() < 3 || !is_dotted_quad(w[1]) || !is_dotted_quad(w[2])) continue;
    HostRecord::Interface ifc;
    ifc.name = w[0];
    ifc.ip = w[1];
    ifc.netmask = w[2];
    const auto mac = macs.find(w[0]);
    if (mac != macs.end()) parse_mac(mac->second, ifc.mac);
    interfaces->push_back(ifc);
  }
}

namespace {

enum class Body { kRead, kTruncated, kNotHex };

// Reads a record's hex lines from *pos up to the next line that starts a
// record, closes a block or ends the capture (*pos is left at it).
Body record_body(const std::string& data, bool plain_key, size_t* pos, std::string* body) {
  Line line;
  for (;;) {
    if (!next_line(data, *pos, &line)) return Body::kTruncated;
    const char first = data[line.begin];
    if (line.end > line.begin && (first == 'R' || first == 'E' || first == 'Z')) return Body::kRead;
    if (plain_key || !decode_hex_line(data, line, body)) return Body::kNotHex;
    *pos = line.next;
  }
}

// The interfaces come from whichever probe the host could answer, in the
// order the capture script tries them.
void interfaces_of_probes(Capture* out) {
  const auto ip = out->probes.find("ip -o -4 addr show");
  const auto ifconfig = out->probes.find("ifconfig -a");
  const auto esx = out->probes.find("esxcli network ip interface ipv4 get");
  if (ip != out->probes.end()) {
    out->interface_source = "ip";
    interfaces_from_ip(ip->second, out->probes, &out->record.interfaces);
  } else if (ifconfig != out->probes.end()) {
    out->interface_source = "ifconfig";
    interfaces_from_ifconfig(ifconfig->second, &out->record.interfaces);
  } else if (esx != out->probes.end()) {
    out->interface_source = "esxcli";
    const auto list = out->probes.find("esxcli network ip interface list");
    interfaces_from_esxcli(esx->second, list == out->probes.end() ? "" : list->second,
                           &out->record.interfaces);
  }
}

// The first line: "QSCAP VERSION md5". *pos is left after it.
bool capture_head(const std::string& data, size_t* pos, std::string* error) {
  Line line;
  if (!next_line(data, 0, &line)) {
    return fail(error, data.empty() ? "empty file, not a capture" : "not a capture");
  }
  const std::vector<std::string> head = words(data.substr(line.begin, line.end - line.begin));
  if (head.empty() || head[0] != "QSCAP") return fail(error, "not a capture (no QSCAP line)");
  if (head.size() != 3 || head[1] != std::to_string(kCaptureVersion) || head[2] != "md5") {
    return fail(error, "unsupported capture version or checksum (this reader reads \"QSCAP " +
                           std::to_string(kCaptureVersion) + " md5\")");
  }
  *pos = line.next;
  return true;
}

bool parse_capture(const std::string& data, Capture* out, std::string* error) {
  size_t pos = 0;
  if (!capture_head(data, &pos, error)) return false;
  Line line;
  int expected = 1;
  // Records come in blocks, each closed by an "E" line holding the md5 of
  // the block's bytes. Nothing is used before the whole stream is checked:
  // on failure the caller gets only the error.
  size_t block_begin = pos;
  int block_records = 0;
  for (;;) {
    if (!next_line(data, pos, &line)) {
      return fail(error, "capture is truncated after record " + std::to_string(expected - 1));
    }
    const std::string text = data.substr(line.begin, line.end - line.begin);
    const std::vector<std::string> w = words(text);
    if (!w.empty() && w[0] == "Z") {
      uint64_t count = 0;
      if (block_records > 0) {
        return fail(error, "capture is damaged: records " +
                               std::to_string(expected - block_records) + " to " +
                               std::to_string(expected - 1) + " have no checksum");
      }
      if (w.size() != 2 || !parse_u64(w[1], &count) ||
          count != static_cast<uint64_t>(expected - 1)) {
        return fail(error, "capture is damaged: the closing count does not match its records");
      }
      if (line.next != data.size()) return fail(error, "capture is damaged: data after its end");
      break;
    }
    if (!w.empty() && w[0] == "E") {
      if (block_records == 0 || w.size() != 2 || w[1] != md5_hex(data, block_begin, line.begin)) {
        return fail(error, "capture is damaged: the block ending with record " +
                               std::to_string(expected - 1) + " fails its checksum");
      }
      block_begin = line.next;
      block_records = 0;
      pos = line.next;
      continue;
    }
    const std::string where = "record " + std::to_string(expected);
    if (w.size() < 3 || w[0] != "R" || w[1] != std::to_string(expected)) {
      return fail(error, "capture is damaged: " + where + " is missing or out of order");
    }
    std::vector<std::string> attrs(w.begin() + 3, w.end());
    std::string body;
    bool plain_key = false;
    if (!attrs.empty() && attrs.back()[0] == '=') {
      // A record without an answer and with a plain key: the key is here.
      body = attrs.back().substr(1) + std::string(1, '\0');
      attrs.pop_back();
      plain_key = true;
    }
    pos = line.next;
    const Body read = record_body(data, plain_key, &pos, &body);
    if (read == Body::kTruncated) return fail(error, "capture is truncated in " + where);
    if (read == Body::kNotHex) {
      return fail(error, "capture is damaged: " + where + " holds a line that is not hex");
    }
    const size_t nul = body.find('\0');
    if (nul == std::string::npos) {
      return fail(error, "capture is damaged: " + where + " has no key");
    }
    std::string why;
    if (!apply_record(w[2], attrs, body.substr(0, nul), body.substr(nul + 1), out, &why)) {
      return fail(error, "capture is damaged: " + where + ": " + why);
    }
    out->records = expected;
    ++expected;
    ++block_records;
  }

  interfaces_of_probes(out);
  return true;
}

}  // namespace

bool read_capture(const std::string& data, Capture* out, std::string* error) {
  *out = Capture();
  if (parse_capture(data, out, error)) return true;
  *out = Capture();  // nothing of a refused capture is kept
  return false;
}
