// Reading .inv files back: round trips through the container, damaged
// files, the inflate limit, JSON strings and the decoder's command line.
#include "tools/inv_reader.h"

#include <gtest/gtest.h>

#include "inv_test_util.h"
#include "tools/inv_format.h"
#include "zxml/INVfile.h"

namespace {

using namespace invtest;

// Random trees with an element beside the top one at the document root, through
// the container and back: the header as written, the same text and tree.
TEST(InvReader, RoundTripTreeAndHeader) {
  ScratchDir dir;
  std::mt19937 rng(11);
  for (int round = 0; round < 20; ++round) {
    zXML* snap = new zXML(round % 2 == 0, "Snapshot");
    snap->top()->set_attr("timestamp", zvalue("20240611120000.000000+120"));
    grow(snap->top(), rng, 0);
    snap->root()->child("/Memory");
    const std::string written = text_of(*snap->root());
    for (const auto& c : snap->top()->children()) text_of(*c, true);  // measured header only
    InvFile file(round % 2 == 0);
    file.add_document(snap, InvFile::kSnapshot, false, true);
    ASSERT_TRUE(file.write(dir.file("rt.inv").c_str(), true));

    invread::InvReader reader;
    std::string error, summary, text;
    ASSERT_TRUE(reader.open(dir.file("rt.inv"), &error)) << error;
    const invread::Header& h = reader.header();
    EXPECT_EQ(h.text,
              "[H]\ncount=1\nsnapshotcount=1\n[0]\noffset=0\nlength=" + std::to_string(h.position) +
                  "\ntype=snapshot\ntimestamp=20240611120000.000000+120\nsnaptype=esx:1\n");
    EXPECT_EQ(h.little_endian, round % 2 == 0);
    invread::Element top;
    std::vector<invread::Element> more;
    ASSERT_TRUE(reader.content(0, &text, &error)) << error;
    EXPECT_EQ(text, written);
    ASSERT_TRUE(invread::parse_document(text, &top, &error, &more)) << error;
    EXPECT_EQ(invread::document_text(top, &more), written);
    EXPECT_TRUE(invread::check_file(dir.file("rt.inv"), &summary, &error)) << error;
    EXPECT_EQ(summary, "1 record, snapshotcount=1");
  }
}

// A small valid file: snapshot, asset document and raw text.
std::string small_file() {
  return assemble({{"type=snapshot\ntimestamp=20140312101500.000000+180\nsnaptype=esx:1\n",
                    doc_body(kStart + "+Snapshot=\nt=1\n*os:1=\n-\n")},
                   {kAsset, doc_body(kStart + "*AssetInfo=\nhostname=h\n")},
                   {kRaw, zlib("raw\n")}},
                  1);
}

// Writes bytes as case.inv and checks it: "error: " and the message, or
// the content of every record.
std::string check_bytes(const ScratchDir& dir, const std::string& bytes) {
  write_all(dir.file("case.inv"), bytes);
  std::string error, all, text;
  invread::InvReader reader;
  if (!invread::check_file(dir.file("case.inv"), &text, &error, 1u << 20)) return "error: " + error;
  EXPECT_TRUE(reader.open(dir.file("case.inv"), &error)) << error;
  for (size_t i = 0; reader.content(i, &text, &error); ++i) all += text + "|";
  return all;
}

TEST(InvReader, TruncatedOrFlippedFiles) {
  ScratchDir dir;
  const std::string good = small_file(), expected = check_bytes(dir, good);
  ASSERT_EQ(expected,
            kStart + "+Snapshot=\nt=1\n*os:1=\n-\n|" + kStart + "*AssetInfo=\nhostname=h\n|raw\n|");
  for (size_t n = 0; n < good.size(); ++n) {
    EXPECT_EQ(check_bytes(dir, good.substr(0, n)).find("error: "), 0u) << n;
  }
  // A flip is caught, or it hit bytes that carry no data (the header
  // timestamp, the write flag, unused bits at the end of a compressed
  // stream) and every record still reads the same.
  int rejected = 0, accepted = 0;
  for (size_t i = 0; i < good.size(); ++i) {
    for (unsigned char mask : {0x01, 0x80, 0xFF}) {
      std::string bad = good;
      bad[i] = static_cast<char>(bad[i] ^ mask);
      const std::string result = check_bytes(dir, bad);
      const bool caught = result.compare(0, 7, "error: ") == 0;
      ++(caught ? rejected : accepted);
      EXPECT_TRUE(caught || result == expected) << "byte " << i << " mask " << +mask << result;
    }
  }
  EXPECT_GT(rejected, accepted * 5);
}

TEST(InvReader, DamagedFilesNameTheProblem) {
  const std::string good = small_file();
  auto edit = [&](const std::string& from, const std::string& to) {
    return std::string(good).replace(good.find(from), from.size(), to);
  };
  auto doc = [](const std::string& text) { return assemble({{kAsset, doc_body(text)}}, 0); };
  const size_t first = doc_body(kStart + "+Snapshot=\nt=1\n*os:1=\n-\n").size();
  const size_t second = doc_body(kStart + "*AssetInfo=\nhostname=h\n").size();
  const std::string raw = zlib("raw\n");
  std::string with_unused_bytes = assemble({{kRaw, raw + "xx"}}, 0);
  const std::string length = "length=" + std::to_string(raw.size() + 2);
  with_unused_bytes.replace(with_unused_bytes.find(length), length.size(),
                            "length=" + std::to_string(raw.size()));
  const std::pair<std::string, std::string> cases[] = {
      {"", "too short for an inventory file (0 bytes)"},
      {edit("INV!", "INV?"), "no \"INV!\" magic at the end"},
      {good.substr(1), "trailer does not point at a header"},
      {edit("count=3", "count=4"), "header: count=4 but 3 record blocks"},
      {edit("snapshotcount=1", "snapshotcount=0"),
       "header: snapshotcount=0 but 1 Snapshot documents"},
      {edit("offset=0", "offset=9999"), "record 0: offset 9999 and length"},
      {edit("length=", "length=99999"), "run past the bodies"},
      {assemble({{kAsset, zlib("x")}}, 0), "record 0: body does not end with 0x00 0x01 \"ZXML\""},
      {assemble({{kRaw, zlib("raw\n") + "junk"}}, 0), "record 0: 4 bytes after the end of the"},
      {assemble({{kRaw, "plain text"}}, 0), "record 0: compressed data is corrupt"},
      {assemble({{kRaw, zlib(std::string(2u << 20, 'x'))}}, 0),  // a zip bomb
       "record 0: inflates to more than 1048576 bytes (refused)"},
      {doc("?zxml\n*A=\n"), "record 0: document: no byte order mark"},
      {doc(kStart + "+A=\n*a=\n"), "record 0: document: element \"A\" is not closed"},
      {doc(kStart + "+A=\n-\n-\n"), "document line 4: closing line without an open element"},
      {doc(kStart + "+A=\n*c=\n-\nx=1\n"), "document line 5: attribute outside an element"},
      {doc(kStart + "*A=\nx=1"), "document line 3: not ended by a line feed"},
      {doc(kStart + "+A=\n*c=\n-\n~k=v\n"), "line 5: annotation with nothing to annotate"},
      {doc(kStart + "*A=\nn=caf\xE9\n"), "record 0: invalid UTF-8 at byte 18 of the document"},
      // Bodies lie back to back from byte 0 up to the header, nothing listed
      // twice, nothing unaccounted for.
      {edit("offset=" + std::to_string(first), "offset=0"),
       "record 1: starts at byte 0, not where record 0 ends (byte " + std::to_string(first) + ")"},
      {edit("length=" + std::to_string(second), "length=" + std::to_string(second - 1)),
       "record 2: starts at byte " + std::to_string(first + second) +
           ", not where record 1 ends (byte " + std::to_string(first + second - 1) + ")"},
      {with_unused_bytes, "header: the records end at byte " + std::to_string(raw.size()) +
                              ", not where the header starts (byte " +
                              std::to_string(raw.size() + 2) + ")"},
  };
  ScratchDir dir;
  for (const auto& c : cases) {
    const std::string result = check_bytes(dir, c.first);
    EXPECT_TRUE(result.find("error: ") == 0 && result.find(c.second) != std::string::npos)
        << result;
  }
}

// Documents arrive in pieces of any size; the JSON and the outline written
// line by line are those of the whole tree (leaves before parents' further
// children, annotations of elements and of attributes, root siblings).
TEST(InvReader, StreamedJsonAndOutline) {
  const std::string text =
      kStart +
      "+Top=v\n~tk=tv\na=1\n~ak=av\n~ak2=av2\nb=2\n*leaf=\nc=3\n+mid=\n*inner=x\n-\n"
      "*leaf2=\n-\n*/Memory=\n+sib=\n*x=\n-\n";
  std::string json, outline;
  invread::JsonWriter json_writer(&json, true);
  invread::OutlineWriter outline_writer(&outline, 2);
  for (invread::DocumentHandler* handler :
       std::vector<invread::DocumentHandler*>{&json_writer, &outline_writer}) {
    invread::DocumentParser parser(handler);
    for (char c : text) ASSERT_TRUE(parser.feed(&c, 1)) << parser.error();
    ASSERT_TRUE(parser.finish()) << parser.error();
  }
  EXPECT_EQ(
      json,
      ",\"document\":{\"name\":\"Top\",\"value\":\"v\",\"annotations\":[{\"key\":\"tk\",\"text\":"
      "\"tv\"}],\"attributes\":[{\"name\":\"a\",\"value\":\"1\",\"annotations\":[{\"key\":\"ak\","
      "\"text\":\"av\"},{\"key\":\"ak2\",\"text\":\"av2\"}]},{\"name\":\"b\",\"value\":\"2\","
      "\"annotations\":[]}],\"children\":[{\"name\":\"leaf\",\"value\":\"\",\"annotations\":[],"
      "\"attributes\":[{\"name\":\"c\",\"value\":\"3\",\"annotations\":[]}],\"children\":[]},{"
      "\"name\":\"mid\",\"value\":\"\",\"annotations\":[],\"attributes\":[],\"children\":[{"
      "\"name\":\"inner\",\"value\":\"x\",\"annotations\":[],\"attributes\":[],\"children\":[]}]},"
      "{\"name\":\"leaf2\",\"value\":\"\",\"annotations\":[],\"attributes\":[],\"children\":[]}]},"
      "\"root_siblings\":[{\"name\":\"/"
      "Memory\",\"value\":\"\",\"annotations\":[],\"attributes\":[],"
      "\"children\":[]},{\"name\":\"sib\",\"value\":\"\",\"annotations\":[],\"attributes\":[],"
      "\"children\":[{\"name\":\"x\",\"value\":\"\",\"annotations\":[],\"attributes\":[],"
      "\"children\":[]}]}]");
  EXPECT_EQ(outline,
            "  <Top> v\n    ~tk=tv\n    a=1\n      ~ak=av\n      ~ak2=av2\n    b=2\n    <leaf>\n"
            "      c=3\n    <mid>\n      <inner> x\n    <leaf2>\n  </Memory>\n  <sib>\n    <x>\n");
}

TEST(InvDecoderCli, OutputErrorLineAndStatus) {
  ScratchDir dir;
  const std::string good = dir.file("good.inv"), bad = dir.file("bad.inv"), e = "quillscan-inv: ";
  write_all(good, small_file());
  write_all(bad, small_file().substr(1));
  const std::string ok = ": ok, 3 records, snapshotcount=1\n";
  const std::string bad_err = e + bad + ": trailer does not point at a header\n";
  const std::pair<std::string, std::string> cases[] = {
      {"check " + good + " " + bad + " " + good, "1|" + good + ok + good + ok + "|" + bad_err},
      {"json " + bad, "1||" + bad_err},
      {"show " + dir.file("x"), "1||" + e + dir.file("x") + ": No such file or directory\n"},
      {"text " + good + " 2",
       "1||" + e + good + ": record 2 is not a document (type=customdata)\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(run_decoder(dir, c.first), c.second);
  // JSON strings stay valid for any bytes: escapes, UTF-8 kept, other bytes as Latin-1.
  EXPECT_EQ(invread::json_string(std::string("\"\\\r\x01\0\xC3\xA9\xE9\xC0\x80\xED\xA0\x80", 13)),
            "\"\\\"\\\\\\r\\u0001\\u0000\xC3\xA9\\u00e9\\u00c0\\u0080\\u00ed\\u00a0\\u0080\"");
  for (const char* args : {"", "bogus x", "text a -1", "check"}) {
    EXPECT_EQ(run_decoder(dir, args).substr(0, 23), "2||usage: quillscan-inv") << args;
  }
}

}  // namespace
