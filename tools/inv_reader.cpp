#include "tools/inv_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
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
std::string quote(std::string_view s) {
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
  uint64_t next_body = 0;  // where the next record's body must start
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
    if (r.offset != next_body) {
      *error = "record " + std::to_string(index) + ": starts at byte " + std::to_string(r.offset) +
               (index == 0 ? std::string(", not at the start of the file")
                           : ", not where record " + std::to_string(index - 1) + " ends (byte " +
                                 std::to_string(next_body) + ")");
      return false;
    }
    next_body = r.offset + r.length;
    header->records.push_back(r);
  }
  if (header->records.size() != header->count) {
    *error = "header: count=" + std::to_string(header->count) + " but " +
             std::to_string(header->records.size()) + " record blocks";
    return false;
  }
  if (next_body != bodies_end) {
    *error = "header: the records end at byte " + std::to_string(next_body) +
             ", not where the header starts (byte " + std::to_string(bodies_end) + ")";
    return false;
  }
  return true;
}

// ------------------------------------------------------------------ inflate

namespace {

// Hands out compressed input piece by piece; a piece of size 0 ends it.
using Pieces = std::function<bool(const unsigned char** data, size_t* size, std::string* error)>;

enum class Inflated { kOk, kFailed, kOverLimit, kStopped };

// Inflates one zlib stream of `total` bytes read with next(), handing the
// output to sink; the stream must end exactly where the input ends.
// *produced counts the bytes inflated.
Inflated inflate_pieces(uint64_t total, const Pieces& next, uint64_t limit, const Sink& sink,
                        uint64_t* produced, std::string* error) {
  z_stream s;
  std::memset(&s, 0, sizeof s);
  if (inflateInit(&s) != Z_OK) {
    *error = "cannot start zlib";
    return Inflated::kFailed;
  }
  *produced = 0;
  uint64_t fed = 0;
  bool input_done = false;
  unsigned char buf[65536];
  Inflated result = Inflated::kOk;
  while (true) {
    if (s.avail_in == 0 && !input_done) {
      const unsigned char* data = nullptr;
      size_t size = 0;
      if (!next(&data, &size, error)) {
        result = Inflated::kFailed;
        break;
      }
      input_done = size == 0;
      s.next_in = const_cast<unsigned char*>(data);
      s.avail_in = static_cast<uInt>(size);
      fed += size;
    }
    s.next_out = buf;
    s.avail_out = sizeof buf;
    const int ret = inflate(&s, Z_NO_FLUSH);
    const size_t piece = sizeof buf - s.avail_out;
    if (*produced + piece > limit) {
      *error = "inflates to more than " + std::to_string(limit) + " bytes (refused)";
      result = Inflated::kOverLimit;
      break;
    }
    *produced += piece;
    if (piece != 0 && !sink(reinterpret_cast<const char*>(buf), piece)) {
      result = Inflated::kStopped;
      break;
    }
    if (ret == Z_STREAM_END) break;
    if (ret == Z_BUF_ERROR && s.avail_in == 0 && input_done) {
      *error = "compressed data is truncated";
      result = Inflated::kFailed;
      break;
    }
    if (ret != Z_OK && ret != Z_BUF_ERROR) {
      *error = std::string("compressed data is corrupt (") +
               (s.msg != nullptr ? s.msg : "zlib error " + std::to_string(ret)) + ")";
      result = Inflated::kFailed;
      break;
    }
  }
  const uint64_t used = fed - s.avail_in;
  if (result == Inflated::kOk && used != total) {
    *error = std::to_string(total - used) + " bytes after the end of the compressed data";
    result = Inflated::kFailed;
  }
  inflateEnd(&s);
  return result;
}

}  // namespace

bool inflate_limited(const std::string& data, uint64_t limit, std::string* out,
                     std::string* error) {
  out->clear();
  size_t at = 0;
  const Pieces next = [&](const unsigned char** piece, size_t* size, std::string*) {
    *piece = reinterpret_cast<const unsigned char*>(data.data()) + at;
    *size = std::min<size_t>(data.size() - at, 1u << 30);
    at += *size;
    return true;
  };
  const Sink append = [&](const char* piece, size_t size) {
    out->append(piece, size);
    return true;
  };
  uint64_t produced = 0;
  const bool ok =
      inflate_pieces(data.size(), next, limit, append, &produced, error) == Inflated::kOk;
  if (!ok) out->clear();
  return ok;
}

// ----------------------------------------------------------------- document

bool DocumentParser::fail(const std::string& what) {
  error_ = "document line " + std::to_string(line_no_) + ": " + what;
  failed_ = true;
  return false;
}

bool DocumentParser::feed(const char* data, size_t size) {
  if (failed_) return false;
  if (!started_) {
    const size_t take = std::min(size, sizeof kDocStart - 1 - start_.size());
    start_.append(data, take);
    data += take;
    size -= take;
    if (start_.size() < sizeof kDocStart - 1) return true;
    if (start_.compare(0, 3, kDocStart, 3) != 0) {
      error_ = "document: no byte order mark";
    } else if (start_ != kDocStart) {
      error_ = "document: no \"?zxml\" line after the byte order mark";
    } else {
      started_ = true;
    }
    if (!started_) {
      failed_ = true;
      return false;
    }
  }
  while (size > 0) {
    const char* end = static_cast<const char*>(std::memchr(data, '\n', size));
    const size_t length = end != nullptr ? static_cast<size_t>(end - data) : size;
    if (partial_.size() + length > kMaxLine) {
      ++line_no_;
      return fail("longer than " + std::to_string(kMaxLine) + " bytes");
    }
    if (end == nullptr) {
      partial_.append(data, size);
      return true;
    }
    if (partial_.empty()) {
      if (!line(std::string_view(data, length))) return false;
    } else {
      partial_.append(data, length);
      if (!line(partial_)) return false;
      partial_.clear();
    }
    data += length + 1;
    size -= length + 1;
  }
  return true;
}

bool DocumentParser::line(std::string_view text) {
  ++line_no_;
  if (count_items_ && ++items_ > kMaxItems) {
    return fail("more than " + std::to_string(kMaxItems) + " lines");
  }
  if (text.empty()) return fail("empty line");
  const size_t eq = text.find('=');
  const bool has_eq = eq != std::string_view::npos;
  const char kind = text[0];
  if (kind == '*' || kind == '+') {
    if (!has_eq) return fail("element line without \"=\": " + quote(text));
    if (open_.size() >= kMaxDepth) {
      return fail("elements nested too deep (more than " + std::to_string(kMaxDepth) + " levels)");
    }
    const std::string_view name = text.substr(1, eq - 1);
    if (!have_top_) top_name_ = std::string(name);
    have_top_ = true;
    if (handler_ != nullptr) {
      handler_->element(kind == '+', name, text.substr(eq + 1), open_.size());
    }
    if (kind == '+') open_.emplace_back(name);
    have_target_ = have_notes_ = true;
    notes_on_attribute_ = false;
  } else if (kind == '-') {
    if (text.size() != 1) return fail("closing line with extra text: " + quote(text));
    if (open_.empty()) return fail("closing line without an open element");
    open_.pop_back();
    if (handler_ != nullptr) handler_->close();
    have_target_ = have_notes_ = false;
  } else if (kind == '~') {
    if (!has_eq) return fail("annotation without \"=\": " + quote(text));
    if (!have_notes_) return fail("annotation with nothing to annotate");
    if (handler_ != nullptr) {
      handler_->annotation(notes_on_attribute_, text.substr(1, eq - 1), text.substr(eq + 1));
    }
  } else {
    if (!has_eq) return fail("line without \"=\": " + quote(text));
    if (!have_target_) return fail("attribute outside an element: " + quote(text));
    if (handler_ != nullptr) handler_->attribute(text.substr(0, eq), text.substr(eq + 1));
    have_notes_ = notes_on_attribute_ = true;
  }
  return true;
}

bool DocumentParser::finish() {
  if (failed_) return false;
  failed_ = true;
  if (!started_) {
    error_ = start_.compare(0, 3, kDocStart, 3) != 0
                 ? "document: no byte order mark"
                 : "document: no \"?zxml\" line after the byte order mark";
    return false;
  }
  if (!partial_.empty()) {
    ++line_no_;
    return fail("not ended by a line feed");
  }
  if (!have_top_) {
    error_ = "document: no top element";
    return false;
  }
  if (!open_.empty()) {
    error_ = "document: element " + quote(open_.back()) + " is not closed";
    return false;
  }
  failed_ = false;
  if (handler_ != nullptr) handler_->end();
  return true;
}

namespace {

// Builds the tree of a document from the parser's lines. Elements at the
// root after the top one (the scan writes an empty "/Memory" beside
// "Snapshot") go to `more`.
class TreeBuilder : public DocumentHandler {
 public:
  TreeBuilder(Element* top, std::vector<Element>* more) : top_(top), more_(more) {}

  void element(bool parent, std::string_view name, std::string_view value, size_t) override {
    Element e;
    e.parent = parent;
    e.name = std::string(name);
    e.value = std::string(value);
    Element* placed;
    if (open_.empty() && !have_top_) {
      *top_ = std::move(e);
      placed = top_;
    } else if (open_.empty()) {
      more_->push_back(std::move(e));
      placed = &more_->back();
    } else {
      open_.back()->children.push_back(std::move(e));
      placed = &open_.back()->children.back();
    }
    have_top_ = true;
    // Only the innermost open element's children change, so the pointers
    // to the outer ones stay valid.
    if (parent) open_.push_back(placed);
    target_ = placed;
    notes_ = &placed->meta;
  }
  void close() override { open_.pop_back(); }
  void attribute(std::string_view name, std::string_view value) override {
    Attribute a;
    a.name = std::string(name);
    a.value = std::string(value);
    target_->attrs.push_back(std::move(a));
    notes_ = &target_->attrs.back().meta;
  }
  void annotation(bool, std::string_view key, std::string_view text) override {
    notes_->emplace_back(std::string(key), std::string(text));
  }

 private:
  Element* top_;
  std::vector<Element>* more_;
  std::vector<Element*> open_;
  bool have_top_ = false;
  Element* target_ = nullptr;
  Annotations* notes_ = nullptr;
};

}  // namespace

bool parse_document(const std::string& text, Element* top, std::string* error,
                    std::vector<Element>* more) {
  std::vector<Element> dropped;
  if (more == nullptr) more = &dropped;
  if (top != nullptr) *top = Element();
  more->clear();
  TreeBuilder builder(top, more);
  DocumentParser parser(top != nullptr ? &builder : nullptr, top != nullptr);
  if (parser.feed(text.data(), text.size()) && parser.finish()) return true;
  *error = parser.error();
  return false;
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

bool Utf8Checker::feed(const char* data, size_t size) {
  for (size_t i = 0; i < size; ++i, ++offset_) {
    const unsigned char b = static_cast<unsigned char>(data[i]);
    if (need_ > 0) {
      if ((b & 0xC0) != 0x80) return false;
      --need_;
      continue;
    }
    if (b < 0x80) continue;
    lead_ = offset_;
    if ((b & 0xE0) == 0xC0) {
      need_ = 1;
    } else if ((b & 0xF0) == 0xE0) {
      need_ = 2;
    } else if ((b & 0xF8) == 0xF0) {
      need_ = 3;
    } else if ((b & 0xFC) == 0xF8) {
      need_ = 4;
    } else if ((b & 0xFE) == 0xFC) {
      need_ = 5;
    } else {
      return false;
    }
  }
  return true;
}

bool Utf8Checker::finish() {
  return need_ == 0;
}

size_t find_invalid_utf8(const std::string& text) {
  Utf8Checker checker;
  if (checker.feed(text.data(), text.size()) && checker.finish()) return std::string::npos;
  return static_cast<size_t>(checker.bad_offset());
}

// ------------------------------------------------------------------- reader

InvReader::~InvReader() {
  if (fd_ >= 0) ::close(fd_);
}

bool InvReader::read_some(uint64_t offset, size_t length, char* out, std::string* error) {
  while (length > 0) {
    const ssize_t n = pread(fd_, out, length, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      *error = n == 0 ? "read error: the file ended early"
                      : std::string("read error: ") + std::strerror(errno);
      return false;
    }
    out += n;
    offset += static_cast<uint64_t>(n);
    length -= static_cast<size_t>(n);
  }
  return true;
}

bool InvReader::read_at(uint64_t offset, uint64_t length, std::string* out, std::string* error) {
  if (offset > size_ || length > size_ - offset) {
    *error = "read past the end of the file";
    return false;
  }
  out->assign(static_cast<size_t>(length), '\0');
  if (length != 0 && !read_some(offset, static_cast<size_t>(length), &(*out)[0], error)) {
    out->clear();
    return false;
  }
  return true;
}

bool InvReader::open(const std::string& path, std::string* error) {
  if (fd_ >= 0) ::close(fd_);
  header_ = Header();
  inflated_.clear();
  // Without O_NONBLOCK, opening a FIFO would wait for a writer for ever.
  fd_ = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd_ < 0) {
    *error = std::strerror(errno);
    return false;
  }
  struct stat st;
  if (fstat(fd_, &st) != 0) {
    *error = std::strerror(errno);
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    *error = "not a regular file";
    return false;
  }
  size_ = static_cast<uint64_t>(st.st_size);
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

bool InvReader::stream(size_t i, const Sink& sink, std::string* error, uint64_t limit) {
  if (i >= header_.records.size()) {
    *error = "no record " + std::to_string(i);
    return false;
  }
  const std::string prefix = "record " + std::to_string(i) + ": ";
  const RecordInfo& r = header_.records[i];
  // parse_header has placed every body inside the file.
  uint64_t length = r.length;
  std::string what;
  if (r.is_document()) {
    char framing[sizeof kFraming];
    if (length >= sizeof kFraming &&
        !read_some(r.offset + length - sizeof kFraming, sizeof framing, framing, &what)) {
      *error = prefix + what;
      return false;
    }
    if (length < sizeof kFraming || std::memcmp(framing, kFraming, sizeof kFraming) != 0) {
      *error = prefix + "body does not end with 0x00 0x01 \"ZXML\"";
      return false;
    }
    length -= sizeof kFraming;
  }
  inflated_.resize(header_.records.size(), 0);
  uint64_t others = 0;
  for (size_t k = 0; k < inflated_.size(); ++k) {
    if (k != i) others += inflated_[k];
  }
  const uint64_t file_left = kMaxInflated - std::min(others, kMaxInflated);
  std::vector<unsigned char> buffer(std::min<uint64_t>(length, 1u << 16));
  uint64_t at = 0;
  const Pieces next = [&](const unsigned char** piece, size_t* size, std::string* why) {
    *size = static_cast<size_t>(std::min<uint64_t>(length - at, buffer.size()));
    *piece = buffer.data();
    if (*size != 0 &&
        !read_some(r.offset + at, *size, reinterpret_cast<char*>(buffer.data()), why)) {
      return false;
    }
    at += *size;
    return true;
  };
  uint64_t produced = 0;
  const Inflated result =
      inflate_pieces(length, next, std::min(limit, file_left), sink, &produced, &what);
  inflated_[i] = std::max(inflated_[i], produced);
  if (result == Inflated::kOk) return true;
  if (result == Inflated::kStopped) return false;
  if (result == Inflated::kOverLimit && file_left < limit) {
    what = "the records of this file inflate to more than " + std::to_string(kMaxInflated) +
           " bytes in all (refused)";
  }
  *error = prefix + what;
  return false;
}

bool InvReader::content(size_t i, std::string* out, std::string* error, uint64_t limit) {
  out->clear();
  const Sink append = [out](const char* data, size_t size) {
    out->append(data, size);
    return true;
  };
  if (stream(i, append, error, limit)) return true;
  out->clear();
  return false;
}

bool check_file(const std::string& path, std::string* summary, std::string* error, uint64_t limit) {
  InvReader reader;
  if (!reader.open(path, error)) return false;
  const Header& h = reader.header();
  uint64_t snapshots = 0;
  for (size_t i = 0; i < h.records.size(); ++i) {
    const bool document = h.records[i].is_document();
    DocumentParser parser(nullptr);
    Utf8Checker utf8;
    bool parsed = true, valid = true;
    // The whole record is inflated even after the text is found bad, so
    // that damaged compressed data is reported first.
    const Sink check = [&](const char* data, size_t size) {
      if (document && parsed) parsed = parser.feed(data, size);
      if (document && valid) valid = utf8.feed(data, size);
      return true;
    };
    if (!reader.stream(i, check, error, limit)) return false;
    if (!document) continue;
    if (!parsed || !parser.finish()) {
      *error = "record " + std::to_string(i) + ": " + parser.error();
      return false;
    }
    if (!valid || !utf8.finish()) {
      *error = "record " + std::to_string(i) + ": invalid UTF-8 at byte " +
               std::to_string(utf8.bad_offset()) + " of the document";
      return false;
    }
    if (parser.top_name() == "Snapshot") ++snapshots;
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
