// Reading .inv files back: round trips through the container, every kind
// of damaged file, the size limit, JSON escaping and the decoder's command
// line.
#include "tools/inv_reader.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "inv_test_util.h"
#include "tools/inv_format.h"
#include "zxml/INVfile.h"

namespace {

using invtest::assemble;
using invtest::doc_body;
using invtest::kAssetBlock;
using invtest::kRawBlock;
using invtest::kSnapshotBlock;
using invtest::ScratchDir;

std::string text_of(const zXML& doc) {
  std::string s(doc.root()->text_length(false), '\0');
  s.resize(doc.root()->write_text(&s[0], 0, false, false));
  return s;
}

// Random trees through the container and back: the same bytes, the same
// tree (parsed and written again), the header as written, either byte order.
TEST(InvReader, RoundTripTreeAndHeader) {
  ScratchDir dir;
  std::mt19937 rng(11);
  for (int round = 0; round < 20; ++round) {
    const bool little = round % 2 == 0;
    zXML* snap = new zXML(little, "Snapshot");
    snap->top()->set_attr("timestamp", zvalue("20240611120000.000000+120"));
    invtest::grow(snap->top(), rng, 0);
    zXML* asset = new zXML(little, "AssetInfo");
    asset->top()->set_attr("hostname", zvalue("esx-01"));
    const std::string snap_text = text_of(*snap), asset_text = text_of(*asset);
    InvFile file(little);
    file.add_document(snap, InvFile::kSnapshot, false, true);
    file.add_document(asset, InvFile::kAssetInfo, false, true);
    const std::string path = dir.file("rt.inv");
    ASSERT_TRUE(file.write(path.c_str(), true));

    invread::InvReader reader;
    std::string error, text, summary;
    ASSERT_TRUE(reader.open(path, &error)) << error;
    const invread::Header& h = reader.header();
    EXPECT_EQ(h.little_endian, little);
    ASSERT_EQ(h.records.size(), 2u);
    EXPECT_EQ(h.records[0].field("timestamp"), "20240611120000.000000+120");
    EXPECT_EQ(h.records[1].offset, h.records[0].length);
    EXPECT_EQ(reader.file_size(), h.position + h.text.size() + 14);
    ASSERT_TRUE(reader.content(0, &text, &error)) << error;
    EXPECT_EQ(text, snap_text);
    invread::Element top;
    ASSERT_TRUE(invread::parse_document(text, &top, &error)) << error;
    EXPECT_EQ(invread::document_text(top), snap_text);
    ASSERT_TRUE(reader.content(1, &text, &error)) << error;
    EXPECT_EQ(text, asset_text);
    EXPECT_TRUE(invread::check_file(path, &summary, &error)) << error;
    EXPECT_EQ(summary, "2 records, snapshotcount=1");
  }
}

// A small valid file: snapshot, asset document and raw text.
std::string small_file() {
  return assemble({{kSnapshotBlock, doc_body("\xEF\xBB\xBF?zxml\n+Snapshot=\nt=1\n*os:1=\n-\n")},
                   {kAssetBlock, doc_body("\xEF\xBB\xBF?zxml\n*AssetInfo=\nhostname=h\n")},
                   {kRawBlock, invtest::zlib("raw\n")}},
                  1);
}

bool check_bytes(const ScratchDir& dir, const std::string& bytes, std::string* error,
                 uint64_t limit = invread::kMaxInflated) {
  const std::string path = dir.file("case.inv");
  invtest::write_all(path, bytes);
  std::string summary;
  return invread::check_file(path, &summary, error, limit);
}

TEST(InvReader, EveryTruncationIsRejected) {
  ScratchDir dir;
  const std::string good = small_file();
  std::string error;
  ASSERT_TRUE(check_bytes(dir, good, &error)) << error;
  for (size_t n = 0; n < good.size(); ++n) {
    EXPECT_FALSE(check_bytes(dir, good.substr(0, n), &error)) << n;
    EXPECT_FALSE(error.empty());
  }
}

// Contents of every record, or an empty list when the file does not open.
std::vector<std::string> contents(const std::string& path) {
  std::vector<std::string> all;
  invread::InvReader reader;
  std::string error;
  if (!reader.open(path, &error)) return all;
  for (size_t i = 0; i < reader.header().records.size(); ++i) {
    std::string text;
    if (!reader.content(i, &text, &error)) return std::vector<std::string>();
    all.push_back(text);
  }
  return all;
}

TEST(InvReader, FlippedBytesAreRejectedOrHarmless) {
  ScratchDir dir;
  const std::string good = small_file();
  invtest::write_all(dir.file("case.inv"), good);
  const std::vector<std::string> expected = contents(dir.file("case.inv"));
  ASSERT_EQ(expected.size(), 3u);
  std::string error;
  int rejected = 0, accepted = 0;
  for (size_t i = 0; i < good.size(); ++i) {
    for (unsigned char mask : {0x01, 0x80, 0xFF}) {
      std::string bad = good;
      bad[i] = static_cast<char>(bad[i] ^ mask);
      // A flip is either caught, or it touched something that carries no
      // data (a header timestamp, the write flag, unused bits at the end of
      // a compressed stream): every record then still reads the same.
      if (check_bytes(dir, bad, &error)) {
        ++accepted;
        EXPECT_EQ(contents(dir.file("case.inv")), expected)
            << "byte " << i << " mask " << int(mask);
      } else {
        ++rejected;
      }
    }
  }
  EXPECT_GT(rejected, accepted * 5);
}

TEST(InvReader, DamagedFilesNameTheProblem) {
  const std::string snap = doc_body("\xEF\xBB\xBF?zxml\n+Snapshot=\n-\n");
  auto one_doc = [&](const std::string& text) {
    return assemble({{kAssetBlock, doc_body(text)}}, 0);
  };
  std::string trailer_version = small_file();
  trailer_version[trailer_version.size() - 6] = 4;
  std::string trailer_flag = small_file();
  trailer_flag[trailer_flag.size() - 5] = 2;
  std::string magic = small_file();
  magic[magic.size() - 1] = '?';
  std::string pointer = small_file();
  pointer[pointer.size() - 14] = static_cast<char>(pointer[pointer.size() - 14] + 1);
  std::string trailing_garbage_body = invtest::zlib("raw\n") + "junk";

  struct Case {
    const char* what;
    std::string bytes;
    const char* error;
  } cases[] = {
      {"empty file", "", "too short"},
      {"magic", magic, "no \"INV!\" magic"},
      {"version", trailer_version, "unsupported format version 4"},
      {"write flag", trailer_flag, "bad write flag 2"},
      {"pointer", pointer, "does not point at a header"},
      {"count", assemble({{kAssetBlock, snap}}, 0).replace(snap.size() + 10, 1, "2"),
       "count=2 but 1 record blocks"},
      {"snapshotcount", assemble({{kSnapshotBlock, snap}}, 0),
       "snapshotcount=0 but 1 Snapshot documents"},
      {"offset past the end", assemble({{"offset=999\nlength=%L\ntype=assetinfo\n", snap}}, 0),
       "record 0: offset 999 and length"},
      {"length past the end",
       assemble({{"offset=%O\nlength=4294967295\ntype=assetinfo\n", snap}}, 0),
       "run past the bodies"},
      {"not a number", assemble({{"offset=%O\nlength=-1\ntype=assetinfo\n", snap}}, 0),
       "length is not a number"},
      {"huge number",
       assemble({{"offset=99999999999999999999\nlength=1\ntype=assetinfo\n", snap}}, 0),
       "offset is not a number"},
      {"unknown type", assemble({{"offset=%O\nlength=%L\ntype=photo\n", snap}}, 0),
       "unknown type \"photo\""},
      {"missing ID", assemble({{"offset=%O\nlength=%L\ntype=customdata\n", snap}}, 0),
       "missing \"ID=\" line"},
      {"block out of order", assemble({{kAssetBlock, snap}}, 0).replace(snap.size() + 28, 3, "[5]"),
       "expected \"[0]\", found \"[5]\""},
      {"no framing", assemble({{kAssetBlock, invtest::zlib("x")}}, 0),
       "does not end with 0x00 0x01 \"ZXML\""},
      {"garbage after stream", assemble({{kRawBlock, trailing_garbage_body}}, 0),
       "4 bytes after the end of the compressed data"},
      {"not zlib", assemble({{kRawBlock, "plain text"}}, 0), "compressed data is corrupt"},
      {"no byte order mark", one_doc("?zxml\n*AssetInfo=\n"), "no byte order mark"},
      {"no ?zxml", one_doc("\xEF\xBB\xBF<xml>\n"), "no \"?zxml\" line"},
      {"no element", one_doc("\xEF\xBB\xBF?zxml\n"), "no top element"},
      {"unclosed", one_doc("\xEF\xBB\xBF?zxml\n+AssetInfo=\n*a=\n"), "\"AssetInfo\" is not closed"},
      {"extra close", one_doc("\xEF\xBB\xBF?zxml\n+A=\n-\n-\n"), "line 4: closing line without"},
      {"attribute after close", one_doc("\xEF\xBB\xBF?zxml\n+A=\n+B=\n*c=\n-\nx=1\n-\n"),
       "line 6: attribute outside"},
      {"annotation after close", one_doc("\xEF\xBB\xBF?zxml\n+A=\n*c=\n-\n~k=v\n"),
       "line 5: annotation with nothing to annotate"},
      {"no =", one_doc("\xEF\xBB\xBF?zxml\n*A=\nhostname\n"), "line 3: line without \"=\""},
      {"empty line", one_doc("\xEF\xBB\xBF?zxml\n*A=\n\nx=1\n"), "line 3: empty line"},
      {"last line open", one_doc("\xEF\xBB\xBF?zxml\n*A=\nx=1"),
       "line 3: not ended by a line feed"},
      {"bad close", one_doc("\xEF\xBB\xBF?zxml\n+A=\n-x\n"), "closing line with extra text"},
      {"invalid UTF-8", one_doc("\xEF\xBB\xBF?zxml\n*A=\nname=caf\xE9\n"),
       "invalid UTF-8 at byte 21"},
  };
  ScratchDir dir;
  for (const Case& c : cases) {
    std::string error;
    EXPECT_FALSE(check_bytes(dir, c.bytes, &error)) << c.what;
    EXPECT_NE(error.find(c.error), std::string::npos) << c.what << ": " << error;
  }
}

// Building a tree and only checking accept and reject the same texts.
TEST(InvReader, ParseWithAndWithoutTreeAgree) {
  const char* texts[] = {
      "\xEF\xBB\xBF?zxml\n+A=v\n~k=1\nx=1\n~u=2\n*c=\n~n=3\ny=2\n-\n",
      "\xEF\xBB\xBF?zxml\n+A=\n*c=\n-\n~k=v\n",
      "\xEF\xBB\xBF?zxml\n+A=\n+B=\n*c=\n-\nx=1\n-\n",
      "\xEF\xBB\xBF?zxml\n+A=\n-\n-\n",
      "\xEF\xBB\xBF?zxml\n*A=\n*B=\n",
      "\xEF\xBB\xBF?zxml\n+A=\n+B=\n",
  };
  for (const char* text : texts) {
    invread::Element top;
    std::vector<invread::Element> more;
    std::string with_tree, without;
    const bool built = invread::parse_document(text, &top, &with_tree, &more);
    EXPECT_EQ(invread::parse_document(text, nullptr, &without), built) << text;
    EXPECT_EQ(with_tree, without);
    if (built) {
      EXPECT_EQ(invread::document_text(top, &more), text);
    }
  }
}

TEST(InvReader, InflateLimitRefusesBombs) {
  // 4 MiB of zeros compress to a few kilobytes.
  const std::string zeros(4u << 20, '\0');
  const std::string packed = invtest::zlib(zeros);
  ASSERT_LT(packed.size(), 8192u);
  std::string out, error;
  EXPECT_FALSE(invread::inflate_limited(packed, 1u << 20, &out, &error));
  EXPECT_NE(error.find("inflates to more than 1048576 bytes"), std::string::npos) << error;
  EXPECT_TRUE(out.empty());
  EXPECT_TRUE(invread::inflate_limited(packed, zeros.size(), &out, &error)) << error;
  EXPECT_EQ(out.size(), zeros.size());
  EXPECT_FALSE(invread::inflate_limited(packed, zeros.size() - 1, &out, &error));

  ScratchDir dir;
  const std::string bomb = assemble({{kRawBlock, packed}}, 0);
  EXPECT_FALSE(check_bytes(dir, bomb, &error, 1u << 20));
  EXPECT_NE(error.find("record 0: inflates to more than"), std::string::npos) << error;
}

TEST(InvReader, StructuralUtf8MatchesTheRepairRules) {
  // Whatever normalisation stores passes the check.
  std::mt19937 rng(3);
  for (int i = 0; i < 2000; ++i) {
    std::string s(rng() % 12, '\0');
    for (char& c : s) c = static_cast<char>(rng());
    EXPECT_EQ(invread::find_invalid_utf8(normalise_text(s)), std::string::npos);
  }
  EXPECT_EQ(invread::find_invalid_utf8("ok \xC3\xA9 \xE2\x82"), 6u);
  EXPECT_EQ(invread::find_invalid_utf8("\xFF"), 0u);
}

TEST(InvFormat, JsonStringEscapes) {
  struct Case {
    std::string in, out;
  } cases[] = {
      {"plain", "\"plain\""},
      {"q\"b\\", "\"q\\\"b\\\\\""},
      {"a\rb\nc\td", "\"a\\rb\\nc\\td\""},
      {std::string("\x01\x1F\x7F\0", 4), "\"\\u0001\\u001f\\u007f\\u0000\""},
      {"caf\xC3\xA9", "\"caf\xC3\xA9\""},
      {"\xF0\x9F\x98\x80", "\"\xF0\x9F\x98\x80\""},
      {"\xE9", "\"\\u00e9\""},                                   // Latin-1 byte
      {"\xC0\x80", "\"\\u00c0\\u0080\""},                        // overlong
      {"\xED\xA0\x80", "\"\\u00ed\\u00a0\\u0080\""},             // surrogate
      {"\xF4\x90\x80\x80", "\"\\u00f4\\u0090\\u0080\\u0080\""},  // above U+10FFFF
      {"\xE2\x82", "\"\\u00e2\\u0082\""},                        // cut short
  };
  for (const Case& c : cases) EXPECT_EQ(invread::json_string(c.in), c.out) << c.out;
}

// ------------------------------------------------------------- the CLI

std::string q(const std::string& s) {
  return "'" + s + "'";
}

TEST(InvDecoderCli, TextIsByteExactAndShowOutlines) {
  ScratchDir dir;
  const std::string doc =
      "\xEF\xBB\xBF?zxml\n+Snapshot=\n~kind=esx\nt=a\rb\x01\n~units=MB\n*os:1=x\n-\n";
  const std::string asset = "\xEF\xBB\xBF?zxml\n*AssetInfo=\n";
  const std::string path = dir.file("f.inv");
  invtest::write_all(path, assemble({{kSnapshotBlock, doc_body(doc)},
                                     {kAssetBlock, doc_body(asset)},
                                     {kRawBlock, invtest::zlib(std::string("raw\x00\r\n", 6))}},
                                    1));
  invtest::Run r = invtest::run_decoder(dir, "text " + q(path) + " 0");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, doc);
  r = invtest::run_decoder(dir, "text " + q(path));
  EXPECT_EQ(r.out, doc + asset);
  r = invtest::run_decoder(dir, "raw " + q(path));
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, std::string("raw\x00\r\n", 6));
  r = invtest::run_decoder(dir, "show " + q(path));
  EXPECT_EQ(r.status, 0) << r.err;
  const std::string outline =
      "record 0: type=snapshot offset=0 length=" + std::to_string(doc_body(doc).size()) + " (" +
      std::to_string(doc.size()) +
      " bytes inflated)\n"
      "  <Snapshot>\n"
      "    ~kind=esx\n"
      "    t=a\\rb\\x01\n"
      "      ~units=MB\n"
      "    <os:1> x\n";
  EXPECT_NE(r.out.find("header:\n  [H]\n  count=3\n  snapshotcount=1\n  [0]\n"), std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find(outline), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("bytes inflated)\nraw"), std::string::npos);
}

TEST(InvDecoderCli, JsonIsValidForPython) {
  ScratchDir dir;
  const std::string path = dir.file("j.inv");
  InvFile file(true);
  zXML* snap = new zXML(true, "Snapshot");
  snap->top()->child("vm:1")->set_attr("memory", zvalue(512), "units", "MB");
  file.add_document(snap, InvFile::kSnapshot, false, true);
  // The given length counts the terminating NUL, so it is stored too.
  add_debug_records(&file, "h\xE9", "1.2.3.4", "00", true, "a\x01\xFF\"\n", 6);
  ASSERT_TRUE(file.write(path.c_str(), true));
  invtest::Run r = invtest::run_decoder(dir, "json " + q(path));
  ASSERT_EQ(r.status, 0) << r.err;
  invtest::write_all(dir.file("out.json"), r.out);
  const std::string py =
      "python3 -c 'import json,sys; d=json.load(open(sys.argv[1])); "
      "r=d[\"records\"]; "
      "assert [x[\"type\"] for x in r]==[\"snapshot\",\"assetinfo\",\"customdata\"]; "
      "assert r[2][\"text\"]==\"a\\x01\\xff\\\"\\n\\x00\"; "
      "a=r[1][\"document\"][\"attributes\"]; assert "
      "a[0]==dict(name=\"hostname\",value=\"h\\xe9\",annotations=[]); "
      "assert len(a)==26; "
      "v=r[0][\"document\"][\"children\"][0]; assert v[\"name\"]==\"vm:1\"; "
      "assert "
      "v[\"attributes\"]==[dict(name=\"memory\",value=\"512\",annotations=[dict(key=\"units\",text="
      "\"MB\")])]' " +
      q(dir.file("out.json"));
  EXPECT_EQ(std::system(py.c_str()), 0) << r.out;
}

TEST(InvDecoderCli, ErrorsAndUsage) {
  ScratchDir dir;
  const std::string good = dir.file("good.inv"), bad = dir.file("bad.inv");
  const std::string noraw = dir.file("noraw.inv"), absent = dir.file("absent.inv");
  invtest::write_all(good, small_file());
  invtest::write_all(bad, small_file().substr(0, small_file().size() - 1));
  invtest::write_all(noraw, assemble({{kAssetBlock, doc_body("\xEF\xBB\xBF?zxml\n*A=\n")}}, 0));
  const std::string ok = ": ok, 3 records, snapshotcount=1\n", e = "quillscan-inv: ";
  const std::string bad_err = e + bad + ": no \"INV!\" magic at the end\n";
  struct Case {
    std::string args;
    int status;
    std::string out, err;
  } cases[] = {
      {"check " + q(good) + " " + q(bad) + " " + q(good), 1, good + ok + good + ok, bad_err},
      {"check " + q(good), 0, good + ok, ""},
      {"raw " + q(bad), 1, "", bad_err},
      {"json " + q(bad), 1, "", bad_err},
      {"text " + q(bad), 1, "", bad_err},
      {"show " + q(absent), 1, "", e + absent + ": No such file or directory\n"},
      {"text " + q(good) + " 2", 1, "",
       e + good + ": record 2 is not a document (type=customdata)\n"},
      {"text " + q(good) + " 7", 1, "", e + good + ": no record 7 (the file has 3)\n"},
      {"raw " + q(noraw), 1, "", e + noraw + ": no custom-data record\n"},
  };
  for (const Case& c : cases) {
    const invtest::Run r = invtest::run_decoder(dir, c.args);
    EXPECT_EQ(r.status, c.status) << c.args;
    EXPECT_EQ(r.out, c.out) << c.args;
    EXPECT_EQ(r.err, c.err) << c.args;
  }
  for (const char* args : {"", "show", "bogus x", "show a b", "text a 1 2", "text a -1", "check"}) {
    const invtest::Run r = invtest::run_decoder(dir, args);
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_EQ(r.err.compare(0, 20, "usage: quillscan-inv"), 0) << args;
  }
}

}  // namespace

// The scan writes an empty "/Memory" element beside the top element; the
// reader keeps it and writes it back in place.
TEST(InvReaderDocument, KeepsFurtherElementsOfTheRoot) {
  const std::string text = "\xEF\xBB\xBF?zxml\n+Snapshot=\n*os:1=ESXi\n-\n*/Memory=\n";
  invread::Element top;
  std::vector<invread::Element> more;
  std::string error;
  ASSERT_TRUE(invread::parse_document(text, &top, &error, &more)) << error;
  EXPECT_EQ(top.name, "Snapshot");
  ASSERT_EQ(more.size(), 1u);
  EXPECT_EQ(more[0].name, "/Memory");
  EXPECT_EQ(invread::document_text(top, &more), text);
  EXPECT_FALSE(invread::parse_document("\xEF\xBB\xBF?zxml\n*A=\n-\n", &top, &error));
}
