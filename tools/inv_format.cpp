#include "tools/inv_format.h"

#include <cstdio>

namespace invread {
namespace {

// Length of the strictly valid UTF-8 sequence starting at i, or 0.
size_t utf8_sequence(std::string_view s, size_t i) {
  const unsigned char b = static_cast<unsigned char>(s[i]);
  size_t need;
  uint32_t cp;
  if (b >= 0xC2 && b <= 0xDF) {
    need = 1;
    cp = b & 0x1F;
  } else if (b >= 0xE0 && b <= 0xEF) {
    need = 2;
    cp = b & 0x0F;
  } else if (b >= 0xF0 && b <= 0xF4) {
    need = 3;
    cp = b & 0x07;
  } else {
    return 0;
  }
  if (i + need >= s.size()) return 0;
  for (size_t k = 1; k <= need; ++k) {
    const unsigned char c = static_cast<unsigned char>(s[i + k]);
    if ((c & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (c & 0x3F);
  }
  if (need == 2 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))) return 0;
  if (need == 3 && (cp < 0x10000 || cp > 0x10FFFF)) return 0;
  return need + 1;
}

void append_u(unsigned c, std::string* out) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "\\u%04x", c);
  *out += buf;
}

void append_escape(unsigned char c, std::string* out) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "\\x%02x", c);
  *out += buf;
}

// Appends bytes as outline_text does; with keep_lines (raw text), line
// feeds, tabs and backslashes are copied: only what a terminal would act on
// is escaped.
void append_outline(std::string_view bytes, bool keep_lines, std::string* out) {
  size_t i = 0;
  while (i < bytes.size()) {
    const unsigned char c = static_cast<unsigned char>(bytes[i]);
    if (c >= 0x80) {
      const size_t n = utf8_sequence(bytes, i);
      if (n == 2 && c == 0xC2 && static_cast<unsigned char>(bytes[i + 1]) < 0xA0) {
        append_escape(c, out);  // U+0080-U+009F
        append_escape(static_cast<unsigned char>(bytes[i + 1]), out);
      } else if (n != 0) {
        out->append(bytes.data() + i, n);
      } else if (c < 0xA0) {
        append_escape(c, out);
      } else {
        out->push_back(static_cast<char>(c));
      }
      i += n != 0 ? n : 1;
      continue;
    }
    if (c == '\\') {
      *out += keep_lines ? "\\" : "\\\\";
    } else if (c == '\r') {
      *out += "\\r";
    } else if (c == '\n') {
      *out += keep_lines ? "\n" : "\\n";
    } else if (c == '\t') {
      *out += keep_lines ? "\t" : "\\t";
    } else if (c < 0x20 || c == 0x7F) {
      append_escape(c, out);
    } else {
      out->push_back(static_cast<char>(c));
    }
    ++i;
  }
}

}  // namespace

std::string json_string(std::string_view bytes) {
  std::string out = "\"";
  size_t i = 0;
  while (i < bytes.size()) {
    const unsigned char c = static_cast<unsigned char>(bytes[i]);
    if (c >= 0x80) {
      const size_t n = utf8_sequence(bytes, i);
      if (n != 0) {
        out.append(bytes, i, n);
        i += n;
      } else {
        append_u(c, &out);
        ++i;
      }
      continue;
    }
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c < 0x20 || c == 0x7F) {
          append_u(c, &out);
        } else {
          out.push_back(static_cast<char>(c));
        }
    }
    ++i;
  }
  return out + "\"";
}

void JsonWriter::enter_children(Open* e) {
  if (e->section == kAnnotations) *out_ += "],\"attributes\":[],\"children\":[";
  if (e->section == kAttributes) *out_ += "]}],\"children\":[";
  if (e->section == kChildren && !e->first) *out_ += ",";
  e->section = kChildren;
  e->first = false;
}

void JsonWriter::finish(const Open& e) {
  if (e.section == kAnnotations) *out_ += "],\"attributes\":[],\"children\":[]}";
  if (e.section == kAttributes) *out_ += "]}],\"children\":[]}";
  if (e.section == kChildren) *out_ += "]}";
}

void JsonWriter::element(bool parent, std::string_view name, std::string_view value, size_t depth) {
  // A leaf (or any element deeper than this one) ends where the next
  // element at its own depth or above begins.
  while (open_.size() > depth) {
    finish(open_.back());
    open_.pop_back();
  }
  if (!open_.empty()) {
    enter_children(&open_.back());
  } else if (record_fields_) {
    if (roots_ == 0) *out_ += ",\"document\":";
    if (roots_ == 1) *out_ += ",\"root_siblings\":[";
    if (roots_ > 1) *out_ += ",";
  }
  if (open_.empty()) ++roots_;
  *out_ +=
      "{\"name\":" + json_string(name) + ",\"value\":" + json_string(value) + ",\"annotations\":[";
  open_.push_back(Open{parent, kAnnotations, true});
}

void JsonWriter::close() {
  while (!open_.empty() && !open_.back().parent) {
    finish(open_.back());
    open_.pop_back();
  }
  if (open_.empty()) return;
  finish(open_.back());
  open_.pop_back();
}

void JsonWriter::attribute(std::string_view name, std::string_view value) {
  Open& e = open_.back();
  *out_ += e.section == kAnnotations ? "],\"attributes\":[" : "]},";
  *out_ +=
      "{\"name\":" + json_string(name) + ",\"value\":" + json_string(value) + ",\"annotations\":[";
  e.section = kAttributes;
  e.first = true;
}

void JsonWriter::annotation(bool, std::string_view key, std::string_view text) {
  Open& e = open_.back();
  if (!e.first) *out_ += ",";
  e.first = false;
  *out_ += "{\"key\":" + json_string(key) + ",\"text\":" + json_string(text) + "}";
}

void JsonWriter::end() {
  while (!open_.empty()) {
    finish(open_.back());
    open_.pop_back();
  }
  if (!record_fields_) return;
  *out_ += roots_ <= 1 ? ",\"root_siblings\":[]" : "]";
}

void OutlineWriter::element(bool, std::string_view name, std::string_view value, size_t depth) {
  const size_t pad = static_cast<size_t>(indent_) + 2 * depth;
  *out_ += std::string(pad, ' ') + "<" + outline_text(name) + ">";
  if (!value.empty()) *out_ += " " + outline_text(value);
  *out_ += "\n";
  inner_.assign(pad + 2, ' ');
}

void OutlineWriter::attribute(std::string_view name, std::string_view value) {
  *out_ += inner_ + outline_text(name) + "=" + outline_text(value) + "\n";
}

void OutlineWriter::annotation(bool on_attribute, std::string_view key, std::string_view text) {
  *out_ +=
      inner_ + (on_attribute ? "  ~" : "~") + outline_text(key) + "=" + outline_text(text) + "\n";
}

void replay(const Element& e, DocumentHandler* handler, size_t depth) {
  handler->element(e.parent, e.name, e.value, depth);
  for (const auto& m : e.meta) handler->annotation(false, m.first, m.second);
  for (const Attribute& a : e.attrs) {
    handler->attribute(a.name, a.value);
    for (const auto& m : a.meta) handler->annotation(true, m.first, m.second);
  }
  if (!e.parent) return;
  for (const Element& c : e.children) replay(c, handler, depth + 1);
  handler->close();
}

void append_element_json(const Element& e, std::string* out) {
  JsonWriter writer(out, false);
  replay(e, &writer);
  writer.end();
}

std::string outline_text(std::string_view bytes) {
  std::string out;
  append_outline(bytes, false, &out);
  return out;
}

void RawTextEscaper::feed(const char* data, size_t size, std::string* out) {
  std::string text = carry_;
  text.append(data, size);
  carry_.clear();
  // A lead byte among the last three bytes whose sequence is not complete
  // yet waits for the next piece.
  for (size_t back = 1; back <= 3 && back <= text.size(); ++back) {
    const unsigned char c = static_cast<unsigned char>(text[text.size() - back]);
    if ((c & 0xC0) == 0x80) continue;
    const size_t need = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
    if (need > back) {
      carry_ = text.substr(text.size() - back);
      text.resize(text.size() - back);
    }
    break;
  }
  append_outline(text, true, out);
}

void RawTextEscaper::finish(std::string* out) {
  append_outline(carry_, true, out);
  carry_.clear();
}

void append_element_outline(const Element& e, int indent, std::string* out) {
  OutlineWriter writer(out, indent);
  replay(e, &writer);
}

}  // namespace invread
