#include "zxml/tag.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>

#include "zxml/chunked_deflate.h"

// ---------------------------------------------------------------- zvalue

zvalue::zvalue(bool b) : kind_(kBool), bool_(b) {}

zvalue::zvalue(double d) : kind_(kReal), real_(d) {}

zvalue::zvalue(const std::string& text) : kind_(kText), text_(normalise_text(text)) {}

// A null pointer is taken as the empty text.
zvalue::zvalue(const char* text)
    : kind_(kText), text_(normalise_text(text != nullptr ? std::string(text) : std::string())) {}

zvalue& zvalue::operator=(const zvalue& other) {
  if (this == &other) return *this;
  if (other.kind_ != kind_) reset();
  kind_ = other.kind_;
  bool_ = other.bool_;
  int_ = other.int_;
  real_ = other.real_;
  text_ = other.text_;
  return *this;
}

void zvalue::reset() {
  kind_ = kNone;
  bool_ = false;
  int_ = 0;
  real_ = 0.0;
  std::string().swap(text_);
}

namespace {

// Writes the decimal digits of v so that they end at end; returns where
// they start.
char* decimal_digits(uint64_t v, char* end) {
  do {
    *--end = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v != 0);
  return end;
}

// "%lld" of v.
size_t print_int(int64_t v, char* out) {
  char tmp[24];
  char* end = tmp + sizeof tmp;
  const uint64_t magnitude = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
  char* start = decimal_digits(magnitude, end);
  if (v < 0) *--start = '-';
  const size_t n = static_cast<size_t>(end - start);
  std::memcpy(out, start, n);
  return n;
}

// "%.2lf" of d without going through the C library, for finite values
// below 2^63 hundredths. A long double with at least 60 significand bits
// holds d * 100 exactly (53 bits times the 5 odd bits of 100), so the
// rounding below sees the exact value that printf rounds: to the nearest
// hundredth, exact halves to the even neighbour. Returns 0 when the value
// is out of that range (the caller then uses printf).
size_t print_real_fast(double d, char* out) {
  if (std::numeric_limits<long double>::digits < 60 || !std::isfinite(d)) return 0;
  const long double scaled = std::fabs(static_cast<long double>(d)) * 100.0L;
  if (!(scaled < 9.0e18L)) return 0;
  const long double whole = std::floor(scaled);
  const long double fraction = scaled - whole;  // exact: only the low bits of scaled
  uint64_t cents = static_cast<uint64_t>(whole);
  if (fraction > 0.5L || (fraction == 0.5L && (cents & 1) != 0)) ++cents;
  char tmp[32];
  char* const end = tmp + sizeof tmp;
  end[-1] = static_cast<char>('0' + cents % 10);
  end[-2] = static_cast<char>('0' + cents / 10 % 10);
  end[-3] = '.';
  char* start = decimal_digits(cents / 100, end - 3);
  if (std::signbit(d)) *--start = '-';
  const size_t n = static_cast<size_t>(end - start);
  std::memcpy(out, start, n);
  return n;
}

// "%lld" or "%.2lf" of a number; the longest double ("%.2lf" of -DBL_MAX)
// is 313 characters, so a buffer of kNumberBuffer holds the whole text.
size_t print_number(const zvalue& v, char* out, size_t size) {
  if (v.kind() == zvalue::kInt) return print_int(v.as_int(), out);
  if (size_t n = print_real_fast(v.as_real(), out)) return n;
  const int n = std::snprintf(out, size, "%.2lf", v.as_real());
  if (n <= 0) return 0;
  return static_cast<size_t>(n) < size ? static_cast<size_t>(n) : size - 1;
}

constexpr size_t kNumberBuffer = 400;

}  // namespace

size_t zvalue::printed_length() const {
  switch (kind_) {
    case kBool:
      return bool_ ? 4 : 5;
    case kInt:
    case kReal: {
      char buf[kNumberBuffer];
      return print_number(*this, buf, sizeof buf);
    }
    case kText:
      return text_.size();
    case kNone:
      break;
  }
  return 0;
}

size_t zvalue::print(char* buf) const {
  switch (kind_) {
    case kBool:
      if (bool_) {
        std::memcpy(buf, "true", 4);
        return 4;
      }
      std::memcpy(buf, "false", 5);
      return 5;
    case kInt:
      return print_int(int_, buf);
    case kReal: {
      char tmp[kNumberBuffer];
      size_t n = print_number(*this, tmp, sizeof tmp);
      std::memcpy(buf, tmp, n);
      return n;
    }
    case kText:
      if (!text_.empty()) std::memcpy(buf, text_.data(), text_.size());
      return text_.size();
    case kNone:
      break;
  }
  return 0;
}

std::string zvalue::printed() const {
  if (kind_ == kText) return text_;
  char tmp[kNumberBuffer];
  size_t n = print(tmp);
  return std::string(tmp, n);
}

void zvalue::print_stderr() const {
  std::string text = printed();
  std::fwrite(text.data(), 1, text.size(), stderr);
}

// ------------------------------------------------------ text normalisation

namespace {

// Step 1: every LF becomes CR; a lone CR swallows the byte after it. The
// pair CR LF is treated as one line end: it becomes a single CR and the
// walk goes on after it. (Left alone, the pair would be found again and
// again without the walk ever advancing.)
std::string normalise_line_ends(const std::string& in) {
  std::string out;
  out.reserve(in.size());
  const size_t n = in.size();
  for (size_t i = 0; i < n; ++i) {
    const char c = in[i];
    if (c == '\n') {
      out.push_back('\r');
    } else if (c == '\r') {
      out.push_back('\r');
      // Either the LF of a CR LF pair or the byte deleted after a lone CR.
      if (i + 1 < n) ++i;
    } else {
      out.push_back(c);
    }
  }
  return out;
}

// Step 2: only spaces are trimmed, and only in texts of two bytes or more
// that begin or end with one. Leading spaces go first; the trailing ones
// are then removed while at least two bytes remain, never the first byte.
void trim_spaces(std::string& s) {
  if (s.size() < 2 || (s.front() != ' ' && s.back() != ' ')) return;
  size_t first = s.find_first_not_of(' ');
  if (first == std::string::npos) {
    s.clear();
    return;
  }
  s.erase(0, first);
  if (s.size() < 2) return;
  size_t last = s.size() - 1;
  while (last >= 1 && s[last] == ' ') --last;
  s.resize(last + 1);
}

// Number of continuation bytes a lead byte announces, or -1 when the byte
// cannot start a sequence. 0xFE and 0xFF start none and are repaired as
// Latin-1 like any other invalid byte, so the stored text stays UTF-8.
int continuation_count(unsigned char b) {
  if ((b & 0xE0) == 0xC0) return 1;
  if ((b & 0xF0) == 0xE0) return 2;
  if ((b & 0xF8) == 0xF0) return 3;
  if ((b & 0xFC) == 0xF8) return 4;
  if ((b & 0xFE) == 0xFC) return 5;
  return -1;
}

// Step 3: bytes that do not form a UTF-8 sequence (lead byte followed by
// the announced number of continuation bytes; overlong forms and
// surrogates pass) are read as Latin-1 and written as two-byte UTF-8.
std::string repair_encoding(const std::string& s) {
  size_t i = 0;
  const size_t n = s.size();
  // Fast path: most texts are plain ASCII.
  while (i < n && static_cast<unsigned char>(s[i]) < 0x80) ++i;
  if (i == n) return s;
  std::string out(s, 0, i);
  out.reserve(n + 16);
  while (i < n) {
    const unsigned char b = static_cast<unsigned char>(s[i]);
    if (b < 0x80) {
      out.push_back(static_cast<char>(b));
      ++i;
      continue;
    }
    const int need = continuation_count(b);
    bool valid = need > 0 && i + static_cast<size_t>(need) < n;
    for (int k = 1; valid && k <= need; ++k) {
      valid = (static_cast<unsigned char>(s[i + k]) & 0xC0) == 0x80;
    }
    if (valid) {
      out.append(s, i, static_cast<size_t>(need) + 1);
      i += static_cast<size_t>(need) + 1;
    } else if (b < 0xC0) {
      out.push_back(static_cast<char>(0xC2));
      out.push_back(static_cast<char>(b));
      ++i;
    } else {
      out.push_back(static_cast<char>(0xC3));
      out.push_back(static_cast<char>(b - 0x40));
      ++i;
    }
  }
  return out;
}

}  // namespace

std::string normalise_text(const std::string& text) {
  std::string s =
      text.find_first_of("\r\n") == std::string::npos ? text : normalise_line_ends(text);
  trim_spaces(s);
  return repair_encoding(s);
}

// ----------------------------------------------------------------- zmeta

void zmeta::add(const std::string& key, const std::string& text) {
  items_.emplace_back(key, text);
}

void zmeta::append_all(const zmeta& other) {
  // Copy first: other may be this list.
  std::vector<Pair> copy = other.items_;
  items_.insert(items_.end(), copy.begin(), copy.end());
}

const std::string* zmeta::find(const std::string& key) const {
  for (const Pair& p : items_) {
    if (p.first == key) return &p.second;
  }
  return nullptr;
}

// ----------------------------------------------------------------- zattr

zattr::zattr(const std::string& name, const zvalue& value, const char* meta_key,
             const char* meta_text)
    : value(value), name(name) {
  if (meta_key != nullptr) meta.add(meta_key, meta_text != nullptr ? meta_text : "");
}

// ------------------------------------------------------------------ ztag

ztag::ztag(const std::string& name) : kind_(kLeaf), name_(name) {}

ztag::ztag(int kind, const std::string& top_name) : kind_(kind) {
  children_.push_back(std::unique_ptr<ztag>(new ztag(top_name)));
}

ztag* ztag::find_child(const std::string& name) const {
  for (const auto& c : children_) {
    if (c->name_ == name) return c.get();
  }
  return nullptr;
}

ztag* ztag::child(const std::string& name) {
  if (ztag* found = find_child(name)) return found;
  return append_child(std::unique_ptr<ztag>(new ztag(name)));
}

ztag* ztag::child(const std::string& name, const zvalue& value) {
  ztag* c = child(name);
  c->set_value(value);
  return c;
}

ztag* ztag::child_at(size_t i) const {
  return i < children_.size() ? children_[i].get() : nullptr;
}

zattr* ztag::find_attr(const std::string& name) const {
  for (const auto& a : attrs_) {
    if (a->name == name) return a.get();
  }
  return nullptr;
}

zattr* ztag::set_attr(const std::string& name, const zvalue& value, const char* meta_key,
                      const char* meta_text) {
  if (zattr* existing = find_attr(name)) {
    existing->value = value;
    return existing;
  }
  attrs_.push_back(std::unique_ptr<zattr>(new zattr(name, value, meta_key, meta_text)));
  return attrs_.back().get();
}

int ztag::next_index(const char* prefix, bool among_children) const {
  // The answer is the first n >= 1 for which prefix followed by "%d" of n is
  // unused. With k names it is at most k + 1, so one pass that marks the
  // numbers in use finds it without formatting every candidate.
  const std::string pre = prefix != nullptr ? prefix : "";
  const size_t count = among_children ? children_.size() : attrs_.size();
  std::vector<bool> used(count + 2, false);
  for (size_t i = 0; i < count; ++i) {
    const std::string& name = among_children ? children_[i]->name_ : attrs_[i]->name;
    if (name.size() <= pre.size() || name.compare(0, pre.size(), pre) != 0) continue;
    // Only the exact "%d" form of a positive number: digits, no leading 0.
    if (name[pre.size()] == '0') continue;
    size_t n = 0;
    bool digits = true;
    for (size_t j = pre.size(); j < name.size() && digits; ++j) {
      const char c = name[j];
      if (c < '0' || c > '9') {
        digits = false;
      } else if (n <= count + 1) {
        n = n * 10 + static_cast<size_t>(c - '0');
      }
    }
    if (digits && n <= count + 1) used[n] = true;
  }
  size_t n = 1;
  while (used[n]) ++n;
  return static_cast<int>(n);
}

void ztag::set_value(const zvalue& value) {
  if (value_) {
    *value_ = value;
  } else {
    value_.reset(new zvalue(value));
  }
}

ztag* ztag::append_child(std::unique_ptr<ztag> child) {
  if (kind_ == kLeaf) kind_ = kParent;
  children_.push_back(std::move(child));
  return children_.back().get();
}

std::unique_ptr<ztag> ztag::deep_copy() const {
  std::unique_ptr<ztag> copy(new ztag(name_));
  copy->kind_ = kind_;
  copy->meta_.append_all(meta_);
  if (value_) copy->value_.reset(new zvalue(*value_));
  for (const auto& a : attrs_) {
    std::unique_ptr<zattr> attr(new zattr(a->name, a->value));
    attr->meta.append_all(a->meta);
    copy->attrs_.push_back(std::move(attr));
    ++copy->copied_attrs_;
  }
  for (const auto& c : children_) {
    copy->children_.push_back(c->deep_copy());
    ++copy->copied_children_;
  }
  return copy;
}

// --------------------------------------------------------- serialization

namespace {

size_t meta_length(const zmeta& meta) {
  size_t n = 0;
  for (size_t i = 0; i < meta.count(); ++i) {
    const zmeta::Pair* p = meta.item(i);
    n += p->first.size() + p->second.size() + 3;
  }
  return n;
}

inline size_t put(char* buffer, size_t pos, const std::string& s) {
  if (!s.empty()) std::memcpy(buffer + pos, s.data(), s.size());
  return s.size();
}

inline size_t put(char* buffer, size_t pos, char c) {
  buffer[pos] = c;
  return 1;
}

size_t write_meta(const zmeta& meta, char* buffer, size_t pos) {
  const size_t start = pos;
  for (size_t i = 0; i < meta.count(); ++i) {
    const zmeta::Pair* p = meta.item(i);
    pos += put(buffer, pos, '~');
    pos += put(buffer, pos, p->first);
    pos += put(buffer, pos, '=');
    pos += put(buffer, pos, p->second);
    pos += put(buffer, pos, '\n');
  }
  return pos - start;
}

}  // namespace

size_t ztag::text_length(bool skip_children) const {
  if (kind_ == kRoot) {
    size_t n = 9;  // byte order mark, "?zxml", LF
    for (const auto& c : children_) n += c->text_length(skip_children);
    return n;
  }
  size_t n = name_.size() + 3 + (value_ ? value_->printed_length() : 0);
  n += meta_length(meta_);
  for (const auto& a : attrs_) {
    n += a->name.size() + a->value.printed_length() + 2 + meta_length(a->meta);
  }
  if (!skip_children && kind_ == kParent) {
    for (const auto& c : children_) n += c->text_length(false);
    n += 2;
  }
  return n;
}

size_t ztag::write_text(char* buffer, size_t position, bool no_close, bool header_only) const {
  size_t pos = position;
  if (kind_ == kRoot) {
    pos += put(buffer, pos, '\xEF');
    pos += put(buffer, pos, '\xBB');
    pos += put(buffer, pos, '\xBF');
    std::memcpy(buffer + pos, "?zxml\n", 6);
    pos += 6;
    for (const auto& c : children_) pos += c->write_text(buffer, pos, no_close, header_only);
    return pos - position;
  }
  pos += put(buffer, pos, kind_ == kParent ? '+' : '*');
  pos += put(buffer, pos, name_);
  pos += put(buffer, pos, '=');
  if (value_) pos += value_->print(buffer + pos);
  pos += put(buffer, pos, '\n');
  pos += write_meta(meta_, buffer, pos);
  for (const auto& a : attrs_) {
    pos += put(buffer, pos, a->name);
    pos += put(buffer, pos, '=');
    pos += a->value.print(buffer + pos);
    pos += put(buffer, pos, '\n');
    pos += write_meta(a->meta, buffer, pos);
  }
  if (kind_ == kParent && !header_only) {
    for (const auto& c : children_) pos += c->write_text(buffer, pos, false, false);
    if (!no_close) {
      pos += put(buffer, pos, '-');
      pos += put(buffer, pos, '\n');
    }
  }
  return pos - position;
}

void* ztag::data_deflate(const void* data, unsigned long& length) {
  return zxml_internal::chunked_deflate(
      data, length, 0, "zxml/tag", "void* ztag::data_deflate(const void*, long unsigned int&)");
}

unsigned char* ztag::pack(unsigned long& length) const {
  const size_t size = text_length(false);
  std::unique_ptr<char[]> text(new char[size + 1]);
  unsigned long n = write_text(text.get(), 0, false, false);
  length = n;
  return static_cast<unsigned char*>(data_deflate(text.get(), length));
}

// ------------------------------------------------------- string helpers

namespace {

int vmeasure(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int n = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  return n;
}

// Formats into a new array of exactly n + 1 bytes and sets length to n. A
// format the C library cannot print (an encoding error) yields the empty
// text.
char* vformat_alloc(const char* format, va_list args, size_t& length) {
  const int n = vmeasure(format, args);
  if (n < 0) {
    char* empty = new char[1];
    empty[0] = '\0';
    length = 0;
    return empty;
  }
  length = static_cast<size_t>(n);
  char* out = new char[length + 1];
  std::vsnprintf(out, length + 1, format, args);
  return out;
}

}  // namespace

char* format_alloc(const char* format, ...) {
  va_list args;
  va_start(args, format);
  size_t length = 0;
  char* out = vformat_alloc(format, args, length);
  va_end(args);
  return out;
}

std::string format_string(const char* format, ...) {
  va_list args;
  va_start(args, format);
  size_t length = 0;
  std::unique_ptr<char[]> out(vformat_alloc(format, args, length));
  va_end(args);
  return std::string(out.get(), length);
}

int measure_format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = vmeasure(format, args);
  va_end(args);
  return n;
}

std::string text_between(const std::string& text, const std::string& open, const std::string& close,
                         size_t from) {
  const size_t at = text.find(open, from);
  if (at == std::string::npos) return std::string();
  const size_t start = at + open.size();
  const size_t end = text.find(close, start);
  if (end == std::string::npos) return text.substr(start);
  return text.substr(start, end - start);
}
