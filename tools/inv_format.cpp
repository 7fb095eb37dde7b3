#include "tools/inv_format.h"

#include <cstdio>

namespace invread {
namespace {

// Length of the strictly valid UTF-8 sequence starting at i, or 0.
size_t utf8_sequence(const std::string& s, size_t i) {
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

void append_annotations_json(const Annotations& meta, std::string* out) {
  *out += "[";
  for (size_t i = 0; i < meta.size(); ++i) {
    if (i != 0) *out += ",";
    *out +=
        "{\"key\":" + json_string(meta[i].first) + ",\"text\":" + json_string(meta[i].second) + "}";
  }
  *out += "]";
}

}  // namespace

std::string json_string(const std::string& bytes) {
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

void append_element_json(const Element& e, std::string* out) {
  *out += "{\"name\":" + json_string(e.name) + ",\"value\":" + json_string(e.value) +
          ",\"annotations\":";
  append_annotations_json(e.meta, out);
  *out += ",\"attributes\":[";
  for (size_t i = 0; i < e.attrs.size(); ++i) {
    if (i != 0) *out += ",";
    *out += "{\"name\":" + json_string(e.attrs[i].name) +
            ",\"value\":" + json_string(e.attrs[i].value) + ",\"annotations\":";
    append_annotations_json(e.attrs[i].meta, out);
    *out += "}";
  }
  *out += "],\"children\":[";
  for (size_t i = 0; i < e.children.size(); ++i) {
    if (i != 0) *out += ",";
    append_element_json(e.children[i], out);
  }
  *out += "]}";
}

std::string outline_text(const std::string& bytes) {
  std::string out;
  for (char ch : bytes) {
    const unsigned char c = static_cast<unsigned char>(ch);
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || c == 0x7F) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\x%02x", c);
      out += buf;
    } else {
      out.push_back(ch);
    }
  }
  return out;
}

void append_element_outline(const Element& e, int indent, std::string* out) {
  const std::string pad(static_cast<size_t>(indent), ' ');
  const std::string inner(static_cast<size_t>(indent) + 2, ' ');
  *out += pad + "<" + outline_text(e.name) + ">";
  if (!e.value.empty()) *out += " " + outline_text(e.value);
  *out += "\n";
  for (const auto& m : e.meta)
    *out += inner + "~" + outline_text(m.first) + "=" + outline_text(m.second) + "\n";
  for (const Attribute& a : e.attrs) {
    *out += inner + outline_text(a.name) + "=" + outline_text(a.value) + "\n";
    for (const auto& m : a.meta) {
      *out += inner + "  ~" + outline_text(m.first) + "=" + outline_text(m.second) + "\n";
    }
  }
  for (const Element& c : e.children) append_element_outline(c, indent + 2, out);
}

}  // namespace invread
