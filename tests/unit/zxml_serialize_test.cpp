// Text form of trees, its measuring, the compressed document body and the
// shared compression routine.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "zxml/INVfile.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

std::string fixture(const std::string& name) {
  std::ifstream in(std::string(QS_FIXTURES) + "/zxml/" + name, std::ios::binary);
  EXPECT_TRUE(in.good()) << name;
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// Text form written into a buffer of exactly the measured size, so that a
// write past the measured end is caught by the sanitizer build.
std::string text_of(const ztag* node) {
  const size_t n = node->text_length(false);
  std::unique_ptr<char[]> buf(new char[n == 0 ? 1 : n]);
  const size_t written = node->write_text(buf.get(), 0, false, false);
  EXPECT_EQ(written, n);
  return std::string(buf.get(), written);
}

std::string inflate_all(const unsigned char* data, size_t size) {
  z_stream s;
  std::memset(&s, 0, sizeof s);
  EXPECT_EQ(inflateInit(&s), Z_OK);
  s.next_in = const_cast<unsigned char*>(data);
  s.avail_in = static_cast<uInt>(size);
  std::string out;
  unsigned char buf[4096];
  int ret;
  do {
    s.next_out = buf;
    s.avail_out = sizeof buf;
    ret = inflate(&s, Z_NO_FLUSH);
    out.append(reinterpret_cast<char*>(buf), sizeof buf - s.avail_out);
  } while (ret == Z_OK);
  EXPECT_EQ(ret, Z_STREAM_END);
  EXPECT_EQ(s.avail_in, 0u) << "bytes after the zlib stream";
  inflateEnd(&s);
  return out;
}

// Body of a document as the container stores it, and its inflated text.
std::string body_text(const zXML& doc) {
  unsigned long n = 0;
  std::unique_ptr<unsigned char[]> body(doc.serialize(n, false, true));
  EXPECT_GE(n, 6u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(body.get()) + n - 6, 6),
            std::string("\x00\x01ZXML", 6));
  return inflate_all(body.get(), n - 6);
}

TEST(ZxmlSerialize, SmallDocumentsByteExact) {
  zXML os(true, "Snapshot");
  os.top()->set_attr("timestamp", zvalue("20140312101500.000000+180"));
  os.top()->child("os:1")->set_attr("name", zvalue("ESXi"));
  EXPECT_EQ(text_of(os.root()), fixture("os_leaf.txt"));
  EXPECT_EQ(body_text(os), fixture("os_leaf.txt"));

  zXML empty(true, "Snapshot");
  EXPECT_EQ(text_of(empty.root()), fixture("empty_top.txt"));
  EXPECT_EQ(body_text(empty), fixture("empty_top.txt"));

  zXML doc(false, "Snapshot");
  ztag* top = doc.top();
  top->add_meta("kind", "esx");
  top->add_meta("kind", "esx_fw");
  top->set_attr("x", zvalue(false), "pos", "1");
  top->set_attr("y", zvalue(-5));
  zattr* r = top->set_attr("r", zvalue(2.5), "base-value", "2621440");
  r->add_meta("units", "MB");
  top->set_attr("none", zvalue());
  top->set_attr("text", zvalue("two\nlines\n"));
  ztag* hw = top->child("Hardware", zvalue("v"));
  ztag* cpu = hw->child("cpu:1", zvalue(3));
  cpu->add_meta("field-source", "");
  cpu->set_attr("speed", zvalue(2.0));
  hw->child("Slots")->child("slot:1", zvalue("caf\xE9"));
  hw->child("empty");
  top->child("tail", zvalue(true));
  EXPECT_EQ(text_of(doc.root()), fixture("annotated.txt"));
  EXPECT_EQ(body_text(doc), fixture("annotated.txt"));
}

TEST(ZxmlSerialize, WriteFlags) {
  zXML doc(true, "Snapshot");
  doc.top()->set_attr("a", zvalue(1));
  doc.top()->child("c")->set_attr("b", zvalue(2));
  const ztag* top = doc.top();
  char buf[256];
  // header-only: own line, annotations and attributes, no children, no close
  size_t n = top->write_text(buf, 0, false, true);
  EXPECT_EQ(std::string(buf, n), "+Snapshot=\na=1\n");
  EXPECT_EQ(top->text_length(true), n);
  // no-close: children but no "-" line; position is honoured
  std::memcpy(buf, "XY", 2);
  n = top->write_text(buf, 2, true, false);
  EXPECT_EQ(std::string(buf, n + 2), "XY+Snapshot=\na=1\n*c=\nb=2\n");
  EXPECT_EQ(top->text_length(false), n + 2);
}

// Random trees: names and values of every kind, annotations everywhere,
// deep and wide nesting. The measured length must equal the bytes written.
void grow(ztag* node, std::mt19937& rng, int depth) {
  std::uniform_int_distribution<int> pick(0, 99);
  const char* texts[] = {"",         " ",   "  padded  ", "a\nb\r\nc\rd", "caf\xE9", "\xE2\x82\xAC",
                         "\xFF\xFE", "x=y", "~tilde"};
  auto text = [&]() { return std::string(texts[pick(rng) % 9]) + std::to_string(pick(rng)); };
  auto value = [&]() -> zvalue {
    switch (pick(rng) % 6) {
      case 0:
        return zvalue();
      case 1:
        return zvalue(pick(rng) % 2 == 0);
      case 2:
        return zvalue(static_cast<int64_t>(rng()) * (pick(rng) % 2 == 0 ? -1 : 1) * 997);
      case 3:
        return zvalue((static_cast<double>(rng()) - 2e9) / 7.0);
      case 4:
        return zvalue(std::exp(pick(rng) * 7.0) * (pick(rng) % 2 == 0 ? -1 : 1));
      default:
        return zvalue(text());
    }
  };
  const int metas = pick(rng) % 3;
  for (int i = 0; i < metas; ++i) node->add_meta("k" + text(), text());
  if (pick(rng) < 30) node->set_value(value());
  const int attrs = pick(rng) % 6;
  for (int i = 0; i < attrs; ++i) {
    zattr* a = node->set_attr("a" + std::to_string(pick(rng) % 5), value(),
                              pick(rng) < 30 ? "pos" : nullptr, "p");
    if (pick(rng) < 20) a->add_meta("units", text());
  }
  if (depth < 5) {
    const int children = pick(rng) % (depth == 0 ? 8 : 4);
    for (int i = 0; i < children; ++i) {
      grow(node->child(format_string("c:%d", node->next_index("c:", true))), rng, depth + 1);
    }
  }
}

TEST(ZxmlSerialize, MeasuredLengthMatchesWrittenOnRandomTrees) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 200; ++round) {
    zXML doc(true, "Snapshot");
    grow(doc.top(), rng, 0);
    const std::string text = text_of(doc.root());
    ASSERT_EQ(text.size(), doc.root()->text_length(false)) << "round " << round;
    EXPECT_EQ(text.compare(0, 9, "\xEF\xBB\xBF?zxml\n"), 0);
    EXPECT_EQ(text.back(), '\n');
    // Header-only and skip-children agree too, for every node of the top level.
    for (const auto& c : doc.top()->children()) {
      std::unique_ptr<char[]> buf(new char[c->text_length(true)]);
      EXPECT_EQ(c->write_text(buf.get(), 0, false, true), c->text_length(true));
    }
    EXPECT_EQ(body_text(doc), text);
  }
}

TEST(ZxmlSerialize, UncompressedAndPackedForms) {
  zXML doc(true, "Snapshot");
  doc.top()->child("a:1")->set_attr("x", zvalue("y"));
  const std::string text = text_of(doc.root());
  unsigned long n = 0;
  std::unique_ptr<unsigned char[]> plain(doc.serialize(n, false, false));
  EXPECT_EQ(std::string(reinterpret_cast<char*>(plain.get()), n), text + std::string(2, '\0'));

  std::unique_ptr<unsigned char[]> packed(doc.top()->pack(n));
  EXPECT_EQ(inflate_all(packed.get(), n), text.substr(9));
}

TEST(ZxmlSerialize, SectionedPlainLayout) {
  zXML doc(true, "Snapshot");
  doc.top()->set_attr("t", zvalue("1"));
  doc.top()->child("OS")->set_attr("name", zvalue("ESXi"));
  doc.top()->child("Net")->child("nic:1");
  unsigned long n = 0;
  std::unique_ptr<unsigned char[]> body(doc.serialize(n, true, false));
  const std::string s(reinterpret_cast<char*>(body.get()), n);
  const std::string sections =
      "\xEF\xBB\xBF?zxml\n+Snapshot=\nt=1\n*OS=\nname=ESXi\n+Net=\n*nic:1=\n-\n";
  const std::string index =
      "[Root]\noffset=0\nlength=24\n[OS]\noffset=24\nlength=15\n[Net]\noffset=39\nlength=16\n";
  const unsigned char trailer[] = {55, 0, 0, 0, 1, 0};
  EXPECT_EQ(s, sections + index + std::string(reinterpret_cast<const char*>(trailer), 6));

  std::unique_ptr<unsigned char[]> packed(doc.serialize(n, true, true));
  EXPECT_EQ(packed[n - 2], 1);
  EXPECT_EQ(packed[n - 1], 1);
}

TEST(ZxmlDeflate, ChunkBoundariesAndIncompressibleInput) {
  std::mt19937 rng(7);
  std::string noise(70000, '\0');
  for (char& c : noise) c = static_cast<char>(rng());
  const size_t sizes[] = {0, 1, 16383, 16384, 16385, 32768, 32769, 70000};
  for (size_t size : sizes) {
    for (const std::string& src : {noise.substr(0, size), std::string(size, 'a')}) {
      unsigned long n = src.size();
      std::unique_ptr<unsigned char[]> out(
          static_cast<unsigned char*>(InvFile::data_deflate(src.data(), n)));
      EXPECT_EQ(inflate_all(out.get(), n), src) << size;
      // Chunked input gives the same stream as zlib's one-shot level 9.
      uLongf ref_len = compressBound(src.size());
      std::vector<unsigned char> ref(ref_len);
      ASSERT_EQ(compress2(ref.data(), &ref_len, reinterpret_cast<const Bytef*>(src.data()),
                          src.size(), 9),
                Z_OK);
      EXPECT_EQ(std::string(reinterpret_cast<char*>(out.get()), n),
                std::string(reinterpret_cast<char*>(ref.data()), ref_len))
          << size;
      // The three entry points share one routine.
      unsigned long m = src.size();
      std::unique_ptr<unsigned char[]> t(
          static_cast<unsigned char*>(ztag::data_deflate(src.data(), m)));
      EXPECT_EQ(m, n);
      m = src.size();
      std::unique_ptr<unsigned char[]> z(
          static_cast<unsigned char*>(zXML::data_deflate(src.data(), m)));
      EXPECT_EQ(m, n);
    }
  }
  // Random bytes do not compress: the stream is longer than the input.
  unsigned long n = noise.size();
  std::unique_ptr<unsigned char[]> out(
      static_cast<unsigned char*>(InvFile::data_deflate(noise.data(), n)));
  EXPECT_GT(n, noise.size());
  // An empty input is a valid (empty) stream, also from a null pointer.
  n = 0;
  std::unique_ptr<unsigned char[]> empty(
      static_cast<unsigned char*>(InvFile::data_deflate(nullptr, n)));
  EXPECT_EQ(inflate_all(empty.get(), n), "");
}

}  // namespace
