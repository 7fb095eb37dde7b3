#include "zxml/zXML.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "zxml/chunked_deflate.h"

namespace {

// Bytes after the compressed text of a document body.
const unsigned char kFraming[6] = {0x00, 0x01, 'Z', 'X', 'M', 'L'};
// Spare room after the measured text; the writer never needs it, it only
// keeps a measuring slip from turning into an overflow.
constexpr size_t kTextSpare = 105;

}  // namespace

zXML::zXML(bool flag, const std::string& top_name)
    : flag_(flag), root_(new ztag(ztag::kRoot, top_name)) {}

void* zXML::data_deflate(const void* data, unsigned long& length) {
  return zxml_internal::chunked_deflate(
      data, length, 0, "zxml/zXML", "void* zXML::data_deflate(const void*, long unsigned int&)");
}

namespace {

// The text form of `node` and everything under it into `out`, one
// element's own lines at a time.
void stream_text(const ztag& node, zxml_internal::DeflateStream& out) {
  if (node.kind() == ztag::kRoot) {
    out.append("\xEF\xBB\xBF?zxml\n", 9);
  } else {
    const size_t own = node.text_length(true);
    out.commit(node.write_text(out.reserve(own + kTextSpare), 0, true, true));
    if (node.kind() != ztag::kParent) return;
  }
  for (const auto& c : node.children()) stream_text(*c, out);
  if (node.kind() == ztag::kParent) out.append("-\n", 2);
}

}  // namespace

unsigned char* zXML::serialize(unsigned long& length, bool sectioned, bool compressed) const {
  if (sectioned) return serialize_sections(length, compressed);
  if (compressed) {
    zxml_internal::DeflateStream out(sizeof kFraming, "zxml/zXML",
                                     "void* zXML::data_deflate(const void*, long unsigned int&)");
    stream_text(*root_, out);
    unsigned long n = 0;
    unsigned char* body = out.finish(n);
    std::memcpy(body + n, kFraming, sizeof kFraming);
    length = n + sizeof kFraming;
    return body;
  }

  const size_t measured = root_->text_length(false);
  // Only the bytes written are read: the buffer need not be cleared.
  std::unique_ptr<char[]> text(new char[measured + kTextSpare + 1]);
  const unsigned long written = root_->write_text(text.get(), 0, false, false);

  unsigned char* out = new unsigned char[written + 2];
  std::memcpy(out, text.get(), written);
  out[written] = 0;
  out[written + 1] = 0;
  length = written + 2;
  return out;
}

unsigned char* zXML::serialize_sections(unsigned long& length, bool compressed) const {
  struct Section {
    std::string name;
    std::string bytes;
  };
  std::vector<Section> sections;
  const ztag* top_node = top();

  auto store = [&](const std::string& name, const std::string& plain, bool whole_node,
                   const ztag* node) {
    Section s{name, std::string()};
    if (!compressed) {
      s.bytes = plain;
    } else {
      unsigned long n = plain.size();
      unsigned char* packed =
          whole_node ? node->pack(n)
                     : static_cast<unsigned char*>(ztag::data_deflate(plain.data(), n));
      s.bytes.assign(reinterpret_cast<char*>(packed), n);
      delete[] packed;
    }
    sections.push_back(std::move(s));
  };

  // Root: document start and the top element's own lines.
  {
    const size_t size = 9 + top_node->text_length(true);
    std::unique_ptr<char[]> buf(new char[size + kTextSpare]);
    std::memcpy(buf.get(), "\xEF\xBB\xBF?zxml\n", 9);
    const size_t n = 9 + top_node->write_text(buf.get(), 9, true, true);
    store("Root", std::string(buf.get(), n), false, nullptr);
  }
  for (const auto& c : top_node->children()) {
    const size_t size = c->text_length(false);
    std::unique_ptr<char[]> buf(new char[size + kTextSpare]);
    const size_t n = c->write_text(buf.get(), 0, false, false);
    store(c->name(), std::string(buf.get(), n), true, c.get());
  }

  std::string body;
  std::string index;
  for (const Section& s : sections) {
    index += "[" + s.name + "]\n";
    index += format_string("offset=%u\nlength=%u\n", static_cast<unsigned>(body.size()),
                           static_cast<unsigned>(s.bytes.size()));
    body += s.bytes;
  }
  const uint32_t index_at = static_cast<uint32_t>(body.size());
  if (compressed) {
    unsigned long n = index.size();
    unsigned char* packed = static_cast<unsigned char*>(data_deflate(index.data(), n));
    body.append(reinterpret_cast<char*>(packed), n);
    delete[] packed;
  } else {
    body += index;
  }
  unsigned char pos[4];
  std::memcpy(pos, &index_at, sizeof pos);
  if (!flag_) {
    std::swap(pos[0], pos[3]);
    std::swap(pos[1], pos[2]);
  }
  body.append(reinterpret_cast<char*>(pos), sizeof pos);
  body.push_back('\x01');
  body.push_back(compressed ? '\x01' : '\x00');

  unsigned char* out = new unsigned char[body.size()];
  std::memcpy(out, body.data(), body.size());
  length = body.size();
  return out;
}
