#include "tools/inv_reader.h"

#include <zlib.h>

#include <cerrno>
#include <cstring>

namespace invread {
namespace {

constexpr size_t kTrailer = 14;
const char kDocStart[] = "\xEF\xBB\xBF?zxml\n";
const unsigned char kFraming[6] = {0x00, 0x01, 'Z', 'X', 'M', 'L'};

// Decimal digits only, no sign, fits 64 bits.
bool parse_number(const std::string& s, uint64_t* out) {
  if (s.empty() || s.size() > 20) return false;
  uint64_t n = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    const uint64_t digit = static_cast<uint64_t>(c - '0');
    if (n > (UINT64_MAX - digit) / 10) return false;
    n = n * 10 + digit;
  }
  *out = n;
  return true;
}

// A printable rendering of a short piece of file text for error messages.
std::string quote(const std::string& s) {
  std::string out = "\"";
  for (size_t i = 0; i < s.size() && i < 40; ++i) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    if (c < 0x20 || c >= 0x7F || c == '"' || c == '\\') {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\x%02X", c);
      out += buf;
    } else {
      out.push_back(static_cast<char>(c));
    }
  }
  if (s.size() > 40) out += "...";
  return out + "\"";
}

// Splits text into LF-ended lines; false when the last line has no LF.
bool split_lines(const std::string& text, std::vector<std::string>* lines) {
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = text.find('\n', start);
    if (end == std::string::npos) return false;
    lines->push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return true;
}

}  // namespace

std::string RecordInfo::field(const std::string& key) const {
  for (const auto& f : fields) {
    if (f.first == key) return f.second;
  }
  return std::string();
}

// ------------------------------------------------------------------ header

bool parse_header(const std::string& text, uint64_t bodies_end, Header* header,
                  std::string* error) {
  std::vector<std::string> lines;
  if (!split_lines(text, &lines)) {
    *error = "header: last line not ended by a line feed";
    return false;
  }
  size_t at = 0;
  auto expect_key = [&](const std::string& key, std::string* value) {
    if (at >= lines.size()) {
      *error = "header: missing \"" + key + "=\" line";
      return false;
    }
    const std::string& line = lines[at];
    if (line.compare(0, key.size() + 1, key + "=") != 0) {
      *error = "header line " + std::to_string(at + 1) + ": expected \"" + key + "=\", found " +
               quote(line);
      return false;
    }
    *value = line.substr(key.size() + 1);
    ++at;
    return true;
  };
  auto expect_number = [&](const std::string& key, uint64_t* n) {
    std::string value;
    if (!expect_key(key, &value)) return false;
    if (!parse_number(value, n)) {
      *error =
          "header line " + std::to_string(at) + ": " + key + " is not a number: " + quote(value);
      return false;
    }
    return true;
  };

  if (lines.empty() || lines[0] != "[H]") {
    *error = "header does not start with \"[H]\"";
    return false;
  }
  at = 1;
  if (!expect_number("count", &header->count) ||
      !expect_number("snapshotcount", &header->snapshotcount)) {
    return false;
  }
  header->records.clear();
  while (at < lines.size()) {
    const std::string expected = "[" + std::to_string(header->records.size()) + "]";
    if (lines[at] != expected) {
      *error = "header line " + std::to_string(at + 1) + ": expected \"" + expected + "\", found " +
               quote(lines[at]);
      return false;
    }
    ++at;
    RecordInfo r;
    std::string value;
    if (!expect_number("offset", &r.offset) || !expect_number("length", &r.length) ||
        !expect_key("type", &r.type)) {
      return false;
    }
    r.fields.emplace_back("offset", std::to_string(r.offset));
    r.fields.emplace_back("length", std::to_string(r.length));
    r.fields.emplace_back("type", r.type);
    const size_t index = header->records.size();
    if (r.type == "snapshot") {
      if (!expect_key("timestamp", &value)) return false;
      r.fields.emplace_back("timestamp", value);
      if (!expect_key("snaptype", &value)) return false;
      r.fields.emplace_back("snaptype", value);
    } else if (r.type == "customdata") {
      if (!expect_key("ID", &value)) return false;
      r.fields.emplace_back("ID", value);
    } else if (r.type != "assetinfo") {
      *error = "record " + std::to_string(index) + ": unknown type " + quote(r.type);
      return false;
    }
    if (r.offset > bodies_end || r.length > bodies_end - r.offset) {
      *error = "record " + std::to_string(index) + ": offset " + std::to_string(r.offset) +
               " and length " + std::to_string(r.length) + " run past the bodies (" +
               std::to_string(bodies_end) + " bytes)";
      return false;
    }
    header->records.push_back(r);
  }
  if (header->records.size() != header->count) {
    *error = "header: count=" + std::to_string(header->count) + " but " +
             std::to_string(header->records.size()) + " record blocks";
    return false;
  }
  return true;
}

// ------------------------------------------------------------------ inflate

bool inflate_limited(const std::string& data, uint64_t limit, std::string* out,
                     std::string* error) {
  z_stream s;
  std::memset(&s, 0, sizeof s);
  if (inflateInit(&s) != Z_OK) {
    *error = "cannot start zlib";
    return false;
  }
  out->clear();
  const unsigned char* in = reinterpret_cast<const unsigned char*>(data.data());
  size_t remaining = data.size();
  unsigned char buf[65536];
  int ret = Z_OK;
  bool ok = true;
  while (ok) {
    if (s.avail_in == 0 && remaining != 0) {
      const size_t take = remaining < (1u << 30) ? remaining : (1u << 30);
      s.next_in = const_cast<unsigned char*>(in);
      s.avail_in = static_cast<uInt>(take);
      in += take;
      remaining -= take;
    }
    s.next_out = buf;
    s.avail_out = sizeof buf;
    ret = inflate(&s, Z_NO_FLUSH);
    const size_t produced = sizeof buf - s.avail_out;
    if (out->size() + produced > limit) {
      *error = "inflates to more than " + std::to_string(limit) + " bytes (refused)";
      ok = false;
      break;
    }
    out->append(reinterpret_cast<char*>(buf), produced);
    if (ret == Z_STREAM_END) break;
    if (ret == Z_BUF_ERROR && s.avail_in == 0 && remaining == 0) {
      *error = "compressed data is truncated";
      ok = false;
    } else if (ret != Z_OK && ret != Z_BUF_ERROR) {
      *error = std::string("compressed data is corrupt (") +
               (s.msg != nullptr ? s.msg : "zlib error " + std::to_string(ret)) + ")";
      ok = false;
    }
  }
  if (ok && (s.avail_in != 0 || remaining != 0)) {
    *error = std::to_string(s.avail_in + remaining) + " bytes after the end of the compressed data";
    ok = false;
  }
  inflateEnd(&s);
  if (!ok) out->clear();
  return ok;
}

// ----------------------------------------------------------------- document

bool parse_document(const std::string& text, Element* top, std::string* error,
                    std::vector<Element>* more) {
  const bool build = top != nullptr;
  if (build) *top = Element();
  // Elements at the root after the top one (the scan writes an empty
  // "/Memory" beside "Snapshot") go to `more`, or are checked and dropped.
  std::vector<Element> dropped;
  if (more == nullptr) more = &dropped;
  more->clear();
  if (text.compare(0, 3, "\xEF\xBB\xBF") != 0) {
    *error = "document: no byte order mark";
    return false;
  }
  if (text.compare(0, 9, kDocStart) != 0) {
    *error = "document: no \"?zxml\" line after the byte order mark";
    return false;
  }
  // The open "+" elements: their names (for messages) and, when building,
  // the elements themselves. Only the innermost one's children change, so
  // the pointers to the outer ones stay valid.
  std::vector<std::string> open_names;
  std::vector<Element*> open;
  bool have_target = false;   // an element line that attribute lines belong to
  bool have_notes = false;    // a line that annotation lines belong to
  Element* target = nullptr;  // (when building)
  Annotations* notes = nullptr;
  bool have_top = false;
  size_t items = 0;
  size_t line_no = 1;
  size_t start = 9;
  auto fail = [&](const std::string& what) {
    *error = "document line " + std::to_string(line_no) + ": " + what;
    return false;
  };
  while (start < text.size()) {
    ++line_no;
    const size_t end = text.find('\n', start);
    if (end == std::string::npos) return fail("not ended by a line feed");
    const size_t length = end - start;
    const size_t eq = text.find('=', start);
    const bool has_eq = eq < end;
    const char kind = length != 0 ? text[start] : '\0';
    auto line = [&]() { return text.substr(start, length); };
    auto part = [&](size_t from, size_t to) { return text.substr(from, to - from); };
    if (build && ++items > kMaxItems)
      return fail("more than " + std::to_string(kMaxItems) + " lines");
    if (length == 0) return fail("empty line");
    if (kind == '*' || kind == '+') {
      if (!has_eq) return fail("element line without \"=\": " + quote(line()));
      Element* placed = nullptr;
      if (build) {
        Element e;
        e.parent = kind == '+';
        e.name = part(start + 1, eq);
        e.value = part(eq + 1, end);
        if (open.empty() && !have_top) {
          *top = std::move(e);
          placed = top;
        } else if (open.empty()) {
          more->push_back(std::move(e));
          placed = &more->back();
        } else {
          open.back()->children.push_back(std::move(e));
          placed = &open.back()->children.back();
        }
        target = placed;
        notes = &placed->meta;
      }
      have_top = true;
      if (kind == '+') {
        if (open_names.size() >= kMaxDepth) return fail("elements nested too deep");
        open_names.push_back(part(start + 1, eq));
        if (build) open.push_back(placed);
      }
      have_target = have_notes = true;
    } else if (kind == '-') {
      if (length != 1) return fail("closing line with extra text: " + quote(line()));
      if (open_names.empty()) return fail("closing line without an open element");
      open_names.pop_back();
      if (build) open.pop_back();
      have_target = have_notes = false;
    } else if (kind == '~') {
      if (!has_eq) return fail("annotation without \"=\": " + quote(line()));
      if (!have_notes) return fail("annotation with nothing to annotate");
      if (build) notes->emplace_back(part(start + 1, eq), part(eq + 1, end));
    } else {
      if (!has_eq) return fail("line without \"=\": " + quote(line()));
      if (!have_target) return fail("attribute outside an element: " + quote(line()));
      if (build) {
        Attribute a;
        a.name = part(start, eq);
        a.value = part(eq + 1, end);
        target->attrs.push_back(std::move(a));
        notes = &target->attrs.back().meta;
      }
      have_notes = true;
    }
    start = end + 1;
  }
  if (!have_top) {
    *error = "document: no top element";
    return false;
  }
  if (!open_names.empty()) {
    *error = "document: element " + quote(open_names.back()) + " is not closed";
    return false;
  }
  return true;
}

namespace {

void append_meta(const Annotations& meta, std::string* out) {
  for (const auto& m : meta) *out += "~" + m.first + "=" + m.second + "\n";
}

void append_element(const Element& e, std::string* out) {
  *out += (e.parent ? "+" : "*") + e.name + "=" + e.value + "\n";
  append_meta(e.meta, out);
  for (const Attribute& a : e.attrs) {
    *out += a.name + "=" + a.value + "\n";
    append_meta(a.meta, out);
  }
  if (e.parent) {
    for (const Element& c : e.children) append_element(c, out);
    *out += "-\n";
  }
}

}  // namespace

std::string element_text(const Element& e) {
  std::string out;
  append_element(e, &out);
  return out;
}

std::string document_text(const Element& top, const std::vector<Element>* more) {
  std::string out = kDocStart + element_text(top);
  if (more != nullptr) {
    for (const Element& e : *more) out += element_text(e);
  }
  return out;
}

size_t find_invalid_utf8(const std::string& text) {
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    const unsigned char b = static_cast<unsigned char>(text[i]);
    if (b < 0x80) {
      ++i;
      continue;
    }
    int need;
    if ((b & 0xE0) == 0xC0) {
      need = 1;
    } else if ((b & 0xF0) == 0xE0) {
      need = 2;
    } else if ((b & 0xF8) == 0xF0) {
      need = 3;
    } else if ((b & 0xFC) == 0xF8) {
      need = 4;
    } else if ((b & 0xFE) == 0xFC) {
      need = 5;
    } else {
      return i;
    }
    if (i + static_cast<size_t>(need) >= n) return i;
    for (int k = 1; k <= need; ++k) {
      if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return i;
    }
    i += static_cast<size_t>(need) + 1;
  }
  return std::string::npos;
}

// ------------------------------------------------------------------- reader

InvReader::~InvReader() {
  if (file_ != nullptr) std::fclose(file_);
}

bool InvReader::read_at(uint64_t offset, uint64_t length, std::string* out, std::string* error) {
  if (offset > size_ || length > size_ - offset) {
    *error = "read past the end of the file";
    return false;
  }
  out->assign(static_cast<size_t>(length), '\0');
  if (length == 0) return true;
  if (fseeko(file_, static_cast<off_t>(offset), SEEK_SET) != 0 ||
      std::fread(&(*out)[0], 1, static_cast<size_t>(length), file_) != length) {
    *error = std::string("read error: ") + std::strerror(errno);
    out->clear();
    return false;
  }
  return true;
}

bool InvReader::open(const std::string& path, std::string* error) {
  if (file_ != nullptr) std::fclose(file_);
  header_ = Header();
  file_ = std::fopen(path.c_str(), "rb");
  if (file_ == nullptr) {
    *error = std::strerror(errno);
    return false;
  }
  if (fseeko(file_, 0, SEEK_END) != 0) {
    *error = std::string("cannot seek: ") + std::strerror(errno);
    return false;
  }
  const off_t end = ftello(file_);
  if (end < 0) {
    *error = std::string("cannot seek: ") + std::strerror(errno);
    return false;
  }
  size_ = static_cast<uint64_t>(end);
  if (size_ < kTrailer) {
    *error = "too short for an inventory file (" + std::to_string(size_) + " bytes)";
    return false;
  }
  std::string trailer;
  if (!read_at(size_ - kTrailer, kTrailer, &trailer, error)) return false;
  if (trailer.compare(10, 4, "INV!") != 0) {
    *error = "no \"INV!\" magic at the end";
    return false;
  }
  header_.version = static_cast<unsigned char>(trailer[8]);
  header_.write_flag = static_cast<unsigned char>(trailer[9]);
  if (header_.version != 3) {
    *error = "unsupported format version " + std::to_string(header_.version);
    return false;
  }
  if (header_.write_flag > 1) {
    *error = "bad write flag " + std::to_string(header_.write_flag);
    return false;
  }
  // The header position is little-endian or big-endian depending on the
  // writer; the right reading is the one that points at "[H]".
  const uint64_t header_end = size_ - kTrailer;
  std::string probe;
  for (int order = 0; order < 2; ++order) {
    uint64_t pos = 0;
    for (int i = 0; i < 8; ++i) {
      const uint64_t byte = static_cast<unsigned char>(trailer[order == 0 ? i : 7 - i]);
      pos |= byte << (8 * i);
    }
    if (pos > header_end || header_end - pos < 4) continue;
    if (!read_at(pos, 4, &probe, error)) return false;
    if (probe == "[H]\n") {
      header_.position = pos;
      header_.little_endian = order == 0;
      if (header_end - pos > kMaxHeader) {
        *error = "header larger than " + std::to_string(kMaxHeader) + " bytes";
        return false;
      }
      if (!read_at(pos, header_end - pos, &header_.text, error)) return false;
      return parse_header(header_.text, pos, &header_, error);
    }
  }
  *error = "trailer does not point at a header";
  return false;
}

bool InvReader::body(size_t i, std::string* out, std::string* error) {
  if (i >= header_.records.size()) {
    *error = "no record " + std::to_string(i);
    return false;
  }
  const RecordInfo& r = header_.records[i];
  return read_at(r.offset, r.length, out, error);
}

bool InvReader::content(size_t i, std::string* out, std::string* error, uint64_t limit) {
  std::string data;
  if (!body(i, &data, error)) return false;
  std::string what;
  if (header_.records[i].is_document()) {
    if (data.size() < sizeof kFraming ||
        data.compare(data.size() - sizeof kFraming, sizeof kFraming,
                     reinterpret_cast<const char*>(kFraming), sizeof kFraming) != 0) {
      *error = "record " + std::to_string(i) + ": body does not end with 0x00 0x01 \"ZXML\"";
      return false;
    }
    data.resize(data.size() - sizeof kFraming);
  }
  if (!inflate_limited(data, limit, out, &what)) {
    *error = "record " + std::to_string(i) + ": " + what;
    return false;
  }
  return true;
}

bool check_file(const std::string& path, std::string* summary, std::string* error, uint64_t limit) {
  InvReader reader;
  if (!reader.open(path, error)) return false;
  const Header& h = reader.header();
  uint64_t snapshots = 0;
  for (size_t i = 0; i < h.records.size(); ++i) {
    std::string text;
    if (!reader.content(i, &text, error, limit)) return false;
    if (!h.records[i].is_document()) continue;
    std::string what;
    if (!parse_document(text, nullptr, &what)) {
      *error = "record " + std::to_string(i) + ": " + what;
      return false;
    }
    const size_t bad = find_invalid_utf8(text);
    if (bad != std::string::npos) {
      *error = "record " + std::to_string(i) + ": invalid UTF-8 at byte " + std::to_string(bad) +
               " of the document";
      return false;
    }
    // The top element's name is on the first line after "?zxml".
    const size_t name_end = text.find('=', 10);
    if (text.compare(10, name_end - 10, "Snapshot") == 0) ++snapshots;
  }
  if (snapshots != h.snapshotcount) {
    *error = "header: snapshotcount=" + std::to_string(h.snapshotcount) + " but " +
             std::to_string(snapshots) + " Snapshot documents";
    return false;
  }
  *summary = std::to_string(h.count) + (h.count == 1 ? " record" : " records") +
             ", snapshotcount=" + std::to_string(h.snapshotcount);
  return true;
}

}  // namespace invread
