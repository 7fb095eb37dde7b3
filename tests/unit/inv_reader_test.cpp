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

// The parsed element against the tree it came from, item by item.
void expect_same(const invread::Element& e, const ztag& t) {
  EXPECT_EQ(e.name, t.name());
  EXPECT_EQ(e.parent, t.kind() == ztag::kParent);
  EXPECT_EQ(e.value, t.value() != nullptr ? t.value()->printed() : "");
  ASSERT_EQ(e.meta.size(), t.meta().count());
  for (size_t i = 0; i < e.meta.size(); ++i) EXPECT_EQ(e.meta[i], *t.meta().item(i));
  ASSERT_EQ(e.attrs.size(), t.attrs().size());
  for (size_t i = 0; i < e.attrs.size(); ++i) {
    EXPECT_EQ(e.attrs[i].name, t.attrs()[i]->name);
    EXPECT_EQ(e.attrs[i].value, t.attrs()[i]->value.printed());
    ASSERT_EQ(e.attrs[i].meta.size(), t.attrs()[i]->meta.count());
    for (size_t k = 0; k < e.attrs[i].meta.size(); ++k) {
      EXPECT_EQ(e.attrs[i].meta[k], *t.attrs()[i]->meta.item(k));
    }
  }
  ASSERT_EQ(e.children.size(), t.children().size());
  for (size_t i = 0; i < e.children.size(); ++i) expect_same(e.children[i], *t.children()[i]);
}

// A snapshot-like tree with text that exercises the line grammar: CR in
// values, "=" in values, Latin-1 and UTF-8, empty values.
zXML* sample_snapshot(std::mt19937& rng, int width) {
  zXML* doc = new zXML(true, "Snapshot");
  ztag* top = doc->top();
  top->add_meta("kind", "esx");
  top->set_attr("timestamp", zvalue("20240611120000.000000+120"));
  top->set_attr("host-name", zvalue("esx-01"));
  ztag* vms = top->child("Virtual-machines");
  for (int i = 0; i < width; ++i) {
    ztag* vm = vms->child(format_string("vm:%d", vms->next_index("vm:", true)));
    vm->set_attr("name", zvalue(format_string("guest %u =x", static_cast<unsigned>(rng()))));
    vm->set_attr("memory", zvalue(static_cast<int64_t>(rng() % 65536)), "units", "MB");
    vm->set_attr("notes", zvalue("line1\nline2 caf\xE9\n"));
    vm->set_attr("powered", zvalue(i % 2 == 0));
    vm->set_attr("cpu-ghz", zvalue(rng() / 1e9));
    vm->child("Devices")->child("disk:1")->set_attr("size", zvalue("40.00"), "base-value",
                                                    "42949672960");
    vm->child("Devices")->child("cd:1");
  }
  return doc;
}

TEST(InvReader, RoundTripTreeAndHeader) {
  ScratchDir dir;
  std::mt19937 rng(11);
  std::unique_ptr<zXML> snap(sample_snapshot(rng, 40));
  std::unique_ptr<zXML> copy_of_asset(new zXML(true, "AssetInfo"));
  copy_of_asset->top()->set_attr("hostname", zvalue("esx-01"));
  const std::string snap_text = text_of(*snap);
  const std::string asset_text = text_of(*copy_of_asset);

  InvFile file(true);
  zXML* snap_owned = snap.release();
  zXML* asset_owned = copy_of_asset.release();
  file.add_document(snap_owned, InvFile::kSnapshot, false, true);
  file.add_document(asset_owned, InvFile::kAssetInfo, false, true);
  const std::string path = dir.file("rt.inv");
  ASSERT_TRUE(file.write(path.c_str(), true));

  invread::InvReader reader;
  std::string error, text;
  ASSERT_TRUE(reader.open(path, &error)) << error;
  const invread::Header& h = reader.header();
  EXPECT_EQ(h.count, 2u);
  EXPECT_EQ(h.snapshotcount, 1u);
  EXPECT_TRUE(h.little_endian);
  EXPECT_EQ(h.write_flag, 1);
  ASSERT_EQ(h.records.size(), 2u);
  EXPECT_EQ(h.records[0].field("timestamp"), "20240611120000.000000+120");
  EXPECT_EQ(h.records[0].field("snaptype"), "esx:1");
  EXPECT_EQ(h.records[1].offset, h.records[0].length);
  EXPECT_EQ(h.position, h.records[0].length + h.records[1].length);
  EXPECT_EQ(reader.file_size(), h.position + h.text.size() + 14);

  ASSERT_TRUE(reader.content(0, &text, &error)) << error;
  EXPECT_EQ(text, snap_text);
  invread::Element top;
  ASSERT_TRUE(invread::parse_document(text, &top, &error)) << error;
  expect_same(top, *snap_owned->top());
  EXPECT_EQ(invread::document_text(top), snap_text);
  ASSERT_TRUE(reader.content(1, &text, &error)) << error;
  EXPECT_EQ(text, asset_text);

  std::string summary;
  EXPECT_TRUE(invread::check_file(path, &summary, &error)) << error;
  EXPECT_EQ(summary, "2 records, snapshotcount=1");
}

TEST(InvReader, BigEndianTrailer) {
  ScratchDir dir;
  InvFile file(false);
  file.add_document(new zXML(false, "AssetInfo"), InvFile::kAssetInfo, false, true);
  ASSERT_TRUE(file.write(dir.file("be.inv").c_str(), true));
  invread::InvReader reader;
  std::string error;
  ASSERT_TRUE(reader.open(dir.file("be.inv"), &error)) << error;
  EXPECT_FALSE(reader.header().little_endian);
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
  std::mt19937 rng(5);
  file.add_document(sample_snapshot(rng, 3), InvFile::kSnapshot, false, true);
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
      "v=r[0][\"document\"][\"children\"][0][\"children\"][0]; assert v[\"name\"]==\"vm:1\"; "
      "assert v[\"attributes\"][1][\"annotations\"]==[dict(key=\"units\",text=\"MB\")]' " +
      q(dir.file("out.json"));
  EXPECT_EQ(std::system(py.c_str()), 0) << r.out;
}

TEST(InvDecoderCli, ErrorsAndUsage) {
  ScratchDir dir;
  const std::string good = dir.file("good.inv"), bad = dir.file("bad.inv");
  invtest::write_all(good, small_file());
  std::string damaged = small_file();
  damaged.resize(damaged.size() - 1);
  invtest::write_all(bad, damaged);

  invtest::Run r = invtest::run_decoder(dir, "check " + q(good) + " " + q(bad) + " " + q(good));
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, good + ": ok, 3 records, snapshotcount=1\n" + good +
                       ": ok, 3 records, snapshotcount=1\n");
  EXPECT_EQ(r.err, "quillscan-inv: " + bad + ": no \"INV!\" magic at the end\n");
  r = invtest::run_decoder(dir, "check " + q(good));
  EXPECT_EQ(r.status, 0);

  for (const char* cmd : {"show", "json", "raw", "text"}) {
    r = invtest::run_decoder(dir, std::string(cmd) + " " + q(bad));
    EXPECT_EQ(r.status, 1) << cmd;
    EXPECT_EQ(r.err, "quillscan-inv: " + bad + ": no \"INV!\" magic at the end\n") << cmd;
  }
  r = invtest::run_decoder(dir, "show " + q(dir.file("absent.inv")));
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "quillscan-inv: " + dir.file("absent.inv") + ": No such file or directory\n");
  r = invtest::run_decoder(dir, "text " + q(good) + " 2");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "quillscan-inv: " + good + ": record 2 is not a document (type=customdata)\n");
  r = invtest::run_decoder(dir, "text " + q(good) + " 7");
  EXPECT_EQ(r.err, "quillscan-inv: " + good + ": no record 7 (the file has 3)\n");
  r = invtest::run_decoder(dir, "raw " + q(bad.substr(0, 0) + dir.file("noraw.inv")));
  EXPECT_EQ(r.status, 1);

  const std::string noraw = dir.file("noraw2.inv");
  invtest::write_all(noraw, assemble({{kAssetBlock, doc_body("\xEF\xBB\xBF?zxml\n*A=\n")}}, 0));
  r = invtest::run_decoder(dir, "raw " + q(noraw));
  EXPECT_EQ(r.err, "quillscan-inv: " + noraw + ": no custom-data record\n");

  for (const char* args : {"", "show", "bogus x", "show a b", "text a 1 2", "text a -1", "check"}) {
    r = invtest::run_decoder(dir, args);
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
