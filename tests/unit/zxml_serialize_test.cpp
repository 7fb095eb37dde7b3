// The document text and body, the shared compression routine and the .inv
// container: image layout, writing, timestamps and the debug-run records.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <regex>
#include <string>

#include "inv_test_util.h"
#include "tools/inv_reader.h"
#include "zxml/INVfile.h"

namespace {

// The body as stored: compressed, zlib level 9 of the text then 00 01
// "ZXML"; plain, the text then two zero bytes. Returns the text.
std::string body_text(const zXML& doc) {
  const std::string plain = invtest::body(doc, false), text = plain.substr(0, plain.size() - 2);
  EXPECT_EQ(plain, text + std::string(2, '\0'));
  EXPECT_EQ(invtest::body(doc, true), invtest::doc_body(text));
  return text;
}

TEST(ZxmlSerialize, SmallDocumentsByteExact) {
  zXML os(true, "Snapshot"), empty(true, "Snapshot"), doc(false, "Snapshot");
  os.top()->set_attr("timestamp", zvalue("20140312101500.000000+180"));
  os.top()->child("os:1")->set_attr("name", zvalue("ESXi"));
  ztag* top = doc.top();
  top->add_meta("kind", "esx");
  top->add_meta("kind", "esx_fw");
  top->set_attr("x", zvalue(false), "pos", "1");
  top->set_attr("y", zvalue(-5));
  top->set_attr("r", zvalue(2.5), "base-value", "2621440")->add_meta("units", "MB");
  top->set_attr("none", zvalue());
  top->set_attr("text", zvalue("two\nlines\n"));
  ztag* hw = top->child("Hardware", zvalue("v"));
  hw->child("cpu:1", zvalue(3))->set_attr("speed", zvalue(2.0));
  hw->child("cpu:1")->add_meta("field-source", "");  // annotations come before attributes
  hw->child("Slots")->child("slot:1", zvalue("caf\xE9"));
  hw->child("empty");
  top->child("tail", zvalue(true));
  const std::pair<const zXML*, const char*> cases[] = {
      {&os, "os_leaf.txt"}, {&empty, "empty_top.txt"}, {&doc, "annotated.txt"}};
  for (const auto& c : cases) {
    const std::string expected = invtest::read_all(std::string(QS_FIXTURES) + "/zxml/" + c.second);
    EXPECT_EQ(invtest::text_of(*c.first->root()), expected) << c.second;
    EXPECT_EQ(body_text(*c.first), expected) << c.second;
  }
}

std::string deflated(void* (*fn)(const void*, unsigned long&), const std::string& src) {
  unsigned long n = src.size();
  std::unique_ptr<unsigned char[]> out(static_cast<unsigned char*>(fn(src.data(), n)));
  return std::string(reinterpret_cast<char*>(out.get()), n);
}

// Input goes in 16384-byte chunks, finished on the last one: around the
// chunk size the stream must still be exactly zlib's level 9 of the input.
TEST(ZxmlDeflate, ChunkBoundariesAndIncompressibleInput) {
  std::mt19937 rng(7);
  std::string noise(70000, '\0');
  for (char& c : noise) c = static_cast<char>(rng());
  for (size_t size : {0, 1, 16383, 16384, 16385, 32768, 32769, 70000}) {
    for (const std::string& src : {noise.substr(0, size), std::string(size, 'a')}) {
      const std::string out = deflated(InvFile::data_deflate, src);
      EXPECT_EQ(out, invtest::zlib(src)) << size;
      EXPECT_EQ(deflated(ztag::data_deflate, src) + deflated(zXML::data_deflate, src), out + out);
    }
  }
}

// A document is compressed as it is written, a batch of text at a time (one
// element's text larger than a batch): the bytes are still zlib's level 9 of
// the whole text, then the framing.
TEST(ZxmlSerialize, StreamedBodyIsTheWholeTextCompressed) {
  std::mt19937 rng(11);
  zXML doc(true, "Snapshot");
  for (int i = 0; i < 200; ++i) {
    ztag* parent = doc.top()->child("p:" + std::to_string(i));
    for (int j = 0; j < 100; ++j) {
      ztag* leaf = parent->child("c:" + std::to_string(j), zvalue(static_cast<int64_t>(rng())));
      leaf->set_attr("r", zvalue((rng() % 100000) / 100.0), "units", "%");
    }
  }
  std::string big(600000, 'a');
  for (char& c : big) c = static_cast<char>('a' + rng() % 26);
  doc.top()->child("big", zvalue(big));
  unsigned long plain = 0, packed = 0;
  std::unique_ptr<unsigned char[]> text(doc.serialize(plain, false, false));
  std::unique_ptr<unsigned char[]> body(doc.serialize(packed, false, true));
  const std::string whole(reinterpret_cast<char*>(text.get()), plain - 2);
  EXPECT_GT(whole.size(), 1000000u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(body.get()), packed),
            invtest::zlib(whole) + std::string("\0\1ZXML", 6));
}

// A stream error (null input, non-zero length) fails an assertion naming the caller.
TEST(ZxmlDeflateDeathTest, AssertionNamesSourceAndFunction) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  unsigned long n = 5;
  EXPECT_DEATH(InvFile::data_deflate(nullptr, n),
               ": zxml/INVfile:[0-9]+: void\\* InvFile::data_deflate\\(const void\\*, long "
               "unsigned int&\\): Assertion `ret != \\(-2\\)' failed\\.");
}

// Bodies back to back, the header, the header position in the documents'
// byte order, version 3, the write flag and "INV!". A timestamp that is
// missing or not text leaves "timestamp=" empty.
TEST(InvFile, ImageLayoutAndWrite) {
  invtest::ScratchDir dir;
  for (bool little : {true, false}) {
    for (const zvalue& stamp : {zvalue("20140312101500.000000+180"), zvalue(), zvalue(5)}) {
      zXML *d0 = new zXML(little, "Snapshot"), *d1 = new zXML(little, "AssetInfo");
      if (stamp.kind() != zvalue::kNone) d0->top()->set_attr("timestamp", stamp);
      const std::string b0 = invtest::body(*d0, true), b1 = invtest::body(*d1, true);
      InvFile file(little);
      file.add_document(d0, InvFile::kSnapshot, false, true);
      file.add_document(d1, InvFile::kAssetInfo, false, true);
      std::string image = invtest::assemble(
          {{"type=snapshot\ntimestamp=" + stamp.as_text() + "\nsnaptype=esx:1\n", b0},
           {invtest::kAsset, b1}},
          1, little);
      EXPECT_EQ(file.build_image(), image);
      ASSERT_TRUE(file.write(dir.file("f.inv").c_str(), false));
      image[image.size() - 5] = '\0';  // the write flag
      EXPECT_EQ(invtest::read_all(dir.file("f.inv")), image);
      EXPECT_FALSE(file.write(dir.file("missing/f.inv").c_str(), true));
    }
  }
}

TEST(InvFile, TimestampSignAndUnpaddedMinutes) {
  const std::pair<const char*, long> zones[] = {
      {"XXX-3", 180}, {"XXX5", -300}, {"UTC0", 0}, {"XXX-5:30", 330}, {"XXX-0:05", 5}};
  const char* old = getenv("TZ");
  const std::string saved = old != nullptr ? old : "";
  for (const auto& z : zones) {
    setenv("TZ", z.first, 1);
    tzset();
    // 2014-03-12 10:15 UTC, moved to 10:15 local time in the zone.
    EXPECT_EQ(format_timestamp(1394619300 - z.second * 60),
              format_string("20140312101500.000000%+ld", z.second));
  }
  old != nullptr ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
  tzset();
}

// The asset record: 26 attributes in order, the second "inv-number" in the
// first one's place; then the raw text as a bare zlib stream.
TEST(InvFile, DebugRecords) {
  const std::string raw = "== uname -a\nVMkernel esx-01 6.7.0\n";
  InvFile file(true);
  add_debug_records(&file, "esx-01", "10.0.0.5", "00-50-56-6A-11-22", true, raw.data(), raw.size());
  invtest::ScratchDir dir;
  invtest::write_all(dir.file("d.inv"), file.build_image());
  invread::InvReader reader;
  std::string error, text, body;
  ASSERT_TRUE(reader.open(dir.file("d.inv"), &error)) << error;
  const std::string& h = reader.header().text;
  EXPECT_EQ(h.substr(0, 28) + h.substr(h.find("type=customdata")),
            "[H]\ncount=2\nsnapshotcount=0\ntype=customdata\nID=rawdata\n");
  ASSERT_TRUE(reader.content(0, &text, &error)) << error;
  EXPECT_TRUE(std::regex_match(
      text, std::regex("\xEF\xBB\xBF\\?zxml\n\\*AssetInfo=\nhostname=esx-01\nip-address=10.0.0.5\n"
                       "static-ip=1\nint-name=esx-01\nalias=esx-01\ndescription=\ncomment=\n"
                       "inv-number=\nlogin=\nuser-name=\nasset-type=natLinux\n"
                       "virtual-type=nvtPhysical\nscan-type=nstNone\nscan-subtype=sstNone\n"
                       "auto-icon-type=nitLinDesktop\nicon-type=nitLinDesktop\nfirst-scan=\n"
                       "last-scan=\nsnapshot-list=\nsnapshot-types=\n"
                       "mac-address=00-50-56-6A-11-22\nuuid=\nserial-number=\nasset-tag=\n"
                       "scan-attempt=[0-9]{14}\\.000000[-+][0-9]+\nerror-message=Debug scan\n")))
      << text;
  ASSERT_TRUE(reader.body(1, &body, &error));
  EXPECT_EQ(body, invtest::zlib(raw));
}

}  // namespace
