// Text form of trees, its measuring, the compressed document body and the
// shared compression routine.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "inv_test_util.h"
#include "tools/inv_reader.h"
#include "zxml/INVfile.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

std::string fixture(const std::string& name) {
  return invtest::read_all(std::string(QS_FIXTURES) + "/zxml/" + name);
}

std::string bytes(const void* p, size_t n) {
  return std::string(static_cast<const char*>(p), n);
}

std::string inflated(const std::string& stream) {
  std::string out, error;
  EXPECT_TRUE(invread::inflate_limited(stream, 1u << 30, &out, &error)) << error;
  return out;
}

// Text form written into a buffer of exactly the measured size, so that a
// write past the measured end is caught by the sanitizer build.
std::string text_of(const ztag* node) {
  const size_t n = node->text_length(false);
  std::unique_ptr<char[]> buf(new char[n]);
  const size_t written = node->write_text(buf.get(), 0, false, false);
  EXPECT_EQ(written, n);
  return std::string(buf.get(), written);
}

// Body of a document as the container stores it, and its inflated text.
std::string body_text(const zXML& doc) {
  unsigned long n = 0;
  std::unique_ptr<unsigned char[]> body(doc.serialize(n, false, true));
  const std::string b = bytes(body.get(), n);
  EXPECT_EQ(b.substr(b.size() - 6), std::string("\x00\x01ZXML", 6));
  return inflated(b.substr(0, b.size() - 6));
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

TEST(ZxmlSerialize, MeasuredLengthMatchesWrittenOnRandomTrees) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 200; ++round) {
    zXML doc(true, "Snapshot");
    invtest::grow(doc.top(), rng, 0);
    const std::string text = text_of(doc.root());  // checks the length
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
  EXPECT_EQ(bytes(plain.get(), n), text + std::string(2, '\0'));
  std::unique_ptr<unsigned char[]> packed(doc.top()->pack(n));
  EXPECT_EQ(inflated(bytes(packed.get(), n)), text.substr(9));
}

TEST(ZxmlSerialize, SectionedPlainLayout) {
  zXML doc(true, "Snapshot");
  doc.top()->set_attr("t", zvalue("1"));
  doc.top()->child("OS")->set_attr("name", zvalue("ESXi"));
  doc.top()->child("Net")->child("nic:1");
  unsigned long n = 0;
  std::unique_ptr<unsigned char[]> body(doc.serialize(n, true, false));
  const std::string s = bytes(body.get(), n);
  const std::string sections =
      "\xEF\xBB\xBF?zxml\n+Snapshot=\nt=1\n*OS=\nname=ESXi\n+Net=\n*nic:1=\n-\n";
  const std::string index =
      "[Root]\noffset=0\nlength=24\n[OS]\noffset=24\nlength=15\n[Net]\noffset=39\nlength=16\n";
  EXPECT_EQ(s, sections + index + std::string("\x37\0\0\0\x01\0", 6));

  std::unique_ptr<unsigned char[]> packed(doc.serialize(n, true, true));
  EXPECT_EQ(packed[n - 2], 1);
  EXPECT_EQ(packed[n - 1], 1);
}

using DeflateFn = void* (*)(const void*, unsigned long&);

std::string deflated(DeflateFn fn, const char* data, size_t size) {
  unsigned long n = size;
  std::unique_ptr<unsigned char[]> out(static_cast<unsigned char*>(fn(data, n)));
  return bytes(out.get(), n);
}

TEST(ZxmlDeflate, ChunkBoundariesAndIncompressibleInput) {
  std::mt19937 rng(7);
  std::string noise(70000, '\0');
  for (char& c : noise) c = static_cast<char>(rng());
  for (size_t size : {0, 1, 16383, 16384, 16385, 32768, 32769, 70000}) {
    for (const std::string& src : {noise.substr(0, size), std::string(size, 'a')}) {
      const std::string out = deflated(InvFile::data_deflate, src.data(), src.size());
      EXPECT_EQ(inflated(out), src) << size;
      // Chunked input gives the same stream as zlib's one-shot level 9.
      EXPECT_EQ(out, invtest::zlib(src)) << size;
      EXPECT_EQ(deflated(ztag::data_deflate, src.data(), src.size()), out);
      EXPECT_EQ(deflated(zXML::data_deflate, src.data(), src.size()), out);
    }
  }
  // Random bytes do not compress: the stream is longer than the input.
  EXPECT_GT(deflated(InvFile::data_deflate, noise.data(), noise.size()).size(), noise.size());
  EXPECT_EQ(inflated(deflated(InvFile::data_deflate, nullptr, 0)), "");
}

// A stream error stops the program with the assertion text of the caller's
// source and function. (A null input with a non-zero length is the one way
// to make deflate report a stream error from outside.)
TEST(ZxmlDeflateDeathTest, AssertionNamesSourceAndFunction) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  unsigned long n = 5;
  const std::string tail =
      "::data_deflate\\(const void\\*, long unsigned int&\\): Assertion "
      "`ret != \\(-2\\)' failed\\.";
  EXPECT_DEATH(InvFile::data_deflate(nullptr, n), ": zxml/INVfile:[0-9]+: void\\* InvFile" + tail);
  EXPECT_DEATH(ztag::data_deflate(nullptr, n), ": zxml/tag:[0-9]+: void\\* ztag" + tail);
  EXPECT_DEATH(zXML::data_deflate(nullptr, n), ": zxml/zXML:[0-9]+: void\\* zXML" + tail);
}

}  // namespace
