// The .inv container: header text, trailer, image layout, checked writes,
// the timestamp routine and the debug-run records.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <regex>
#include <string>

#include "inv_test_util.h"
#include "tools/inv_reader.h"
#include "zxml/INVfile.h"

namespace {

using invtest::read_all;

std::string body_of(const zXML& doc) {
  unsigned long n = 0;
  std::unique_ptr<unsigned char[]> b(doc.serialize(n, false, true));
  return std::string(reinterpret_cast<char*>(b.get()), n);
}

zXML* snapshot(bool flag, const zvalue& stamp) {
  zXML* doc = new zXML(flag, "Snapshot");
  if (stamp.kind() != zvalue::kNone) doc->top()->set_attr("timestamp", stamp);
  doc->top()->child("os:1")->set_attr("name", zvalue("ESXi"));
  return doc;
}

zXML* asset(bool flag) {
  zXML* doc = new zXML(flag, "AssetInfo");
  doc->top()->set_attr("hostname", zvalue("esx-01"));
  return doc;
}

// The whole image, for both byte orders of the trailer; a timestamp that is
// missing or not text gives an empty "timestamp=" line.
TEST(InvFile, ImageLayout) {
  const zvalue stamps[] = {zvalue("20140312101500.000000+180"), zvalue(), zvalue(5)};
  for (bool little : {true, false}) {
    for (const zvalue& stamp : stamps) {
      const std::string b0 = body_of(*std::unique_ptr<zXML>(snapshot(little, stamp)));
      const std::string b1 = body_of(*std::unique_ptr<zXML>(asset(little)));
      InvFile file(little);
      file.add_document(snapshot(little, stamp), InvFile::kSnapshot, false, true);
      file.add_document(asset(little), InvFile::kAssetInfo, false, true);
      const std::string header =
          "[H]\ncount=2\nsnapshotcount=1\n[0]\noffset=0\nlength=" + std::to_string(b0.size()) +
          "\ntype=snapshot\ntimestamp=" + stamp.as_text() +
          "\nsnaptype=esx:1\n[1]\noffset=" + std::to_string(b0.size()) +
          "\nlength=" + std::to_string(b1.size()) + "\ntype=assetinfo\n";
      std::string position(8, '\0');
      for (int i = 0; i < 8; ++i) {
        position[little ? i : 7 - i] = static_cast<char>((b0.size() + b1.size()) >> (8 * i));
      }
      EXPECT_EQ(file.build_image(), b0 + b1 + header + position + std::string("\x03\x01INV!", 6));
    }
  }
}

TEST(InvFile, WriteCreatesExactImageAndReportsFailures) {
  invtest::ScratchDir dir;
  InvFile file(true);
  file.add_document(asset(true), InvFile::kAssetInfo, false, true);
  const std::string path = dir.file("host_00-50-56.inv");
  ASSERT_TRUE(file.write(path.c_str(), true));
  const std::string image = file.build_image();
  EXPECT_EQ(read_all(path), image);
  ASSERT_TRUE(file.write(path.c_str(), false));
  EXPECT_EQ(read_all(path)[image.size() - 5], '\0');  // the write flag byte
  EXPECT_FALSE(file.write(dir.file("missing/x.inv").c_str(), true));

  // A write that fails half-way (file size limit) leaves no file behind.
  const std::string limited = dir.file("limited.inv");
  pid_t pid = fork();
  ASSERT_NE(pid, -1);
  if (pid == 0) {
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit lim = {16, 16};
    setrlimit(RLIMIT_FSIZE, &lim);
    _exit(file.write(limited.c_str(), true) ? 0 : 3);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_NE(access(limited.c_str(), F_OK), 0);
}

// Runs a check with TZ set, restoring the previous zone afterwards.
std::string stamp_in_zone(const char* tz, time_t t) {
  const char* old = getenv("TZ");
  const std::string saved = old != nullptr ? old : "";
  setenv("TZ", tz, 1);
  tzset();
  std::string s = format_timestamp(t);
  if (old != nullptr) {
    setenv("TZ", saved.c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
  return s;
}

TEST(InvFile, TimestampSignAndUnpaddedMinutes) {
  // 12 March 2014, 10:15:00 local time in each zone.
  struct tm utc = {};
  utc.tm_year = 114;
  utc.tm_mon = 2;
  utc.tm_mday = 12;
  utc.tm_hour = 10;
  utc.tm_min = 15;
  const time_t ten_fifteen_utc = timegm(&utc);
  struct Case {
    const char* tz;
    long offset_seconds;
    const char* expected;
  } cases[] = {
      {"XXX-3", 3 * 3600, "20140312101500.000000+180"},
      {"XXX5", -5 * 3600, "20140312101500.000000-300"},
      {"UTC0", 0, "20140312101500.000000+0"},
      {"XXX-5:30", 5 * 3600 + 1800, "20140312101500.000000+330"},
      {"XXX-0:05", 300, "20140312101500.000000+5"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(stamp_in_zone(c.tz, ten_fifteen_utc - c.offset_seconds), c.expected) << c.tz;
  }
}

TEST(InvFile, DebugRecords) {
  invtest::ScratchDir dir;
  const std::string raw = "== uname -a\nVMkernel esx-01 6.7.0\n";
  InvFile file(true);
  add_debug_records(&file, "esx-01", "10.0.0.5", "00-50-56-6A-11-22", true, raw.data(), raw.size());
  const std::string path = dir.file("debug.inv");
  ASSERT_TRUE(file.write(path.c_str(), true));

  invread::InvReader reader;
  std::string error, text;
  ASSERT_TRUE(reader.open(path, &error)) << error;
  const std::string& header = reader.header().text;
  EXPECT_EQ(header.substr(0, 43), "[H]\ncount=2\nsnapshotcount=0\n[0]\noffset=0\nle");
  const std::string& len0 = reader.header().records[0].field("length");
  EXPECT_EQ(header.substr(header.find("[0]")),
            "[0]\noffset=0\nlength=" + len0 + "\ntype=assetinfo\n[1]\noffset=" + len0 +
                "\nlength=" + reader.header().records[1].field("length") +
                "\ntype=customdata\nID=rawdata\n");

  ASSERT_TRUE(reader.content(0, &text, &error)) << error;
  const std::regex doc(
      "\xEF\xBB\xBF\\?zxml\n\\*AssetInfo=\nhostname=esx-01\nip-address=10.0.0.5\nstatic-ip=1\n"
      "int-name=esx-01\nalias=esx-01\ndescription=\ncomment=\ninv-number=\nlogin=\nuser-name=\n"
      "asset-type=natLinux\nvirtual-type=nvtPhysical\nscan-type=nstNone\nscan-subtype=sstNone\n"
      "auto-icon-type=nitLinDesktop\nicon-type=nitLinDesktop\nfirst-scan=\nlast-scan=\n"
      "snapshot-list=\nsnapshot-types=\nmac-address=00-50-56-6A-11-22\nuuid=\nserial-number=\n"
      "asset-tag=\nscan-attempt=[0-9]{14}\\.000000[-+][0-9]+\nerror-message=Debug scan\n");
  EXPECT_TRUE(std::regex_match(text, doc)) << text;

  // The raw body is a bare zlib stream, no framing.
  std::string body;
  ASSERT_TRUE(reader.body(1, &body, &error));
  EXPECT_EQ(body.substr(body.size() - 4) == "ZXML", false);
  ASSERT_TRUE(reader.content(1, &text, &error)) << error;
  EXPECT_EQ(text, raw);
}

TEST(InvFile, DebugRecordsWithEmptyRawTextAndNoStaticAddress) {
  InvFile file(true);
  add_debug_records(&file, "h", "", "", false, nullptr, 0);
  invtest::ScratchDir dir;
  invtest::write_all(dir.file("e.inv"), file.build_image());
  invread::InvReader reader;
  std::string error, raw, doc;
  ASSERT_TRUE(reader.open(dir.file("e.inv"), &error)) << error;
  ASSERT_TRUE(reader.content(1, &raw, &error) && reader.content(0, &doc, &error)) << error;
  EXPECT_EQ(raw, "");
  EXPECT_EQ(reader.header().records[1].length, 8u);  // zlib header, empty block, checksum
  EXPECT_NE(doc.find("\nstatic-ip=0\n"), std::string::npos);
}

TEST(InvFile, RawBufferOwnership) {
  // Not owned: the caller frees it after the container is gone.
  unsigned long n = 3;
  unsigned char* data = static_cast<unsigned char*>(InvFile::data_deflate("abc", n));
  {
    InvFile file(true);
    file.add_raw(data, n);
    EXPECT_NE(file.build_image().find("type=customdata\nID=rawdata\n"), std::string::npos);
  }
  delete[] data;
  // Owned: the container frees it (the sanitizer build reports a leak or a
  // double free otherwise).
  n = 3;
  InvFile owner(true);
  owner.add_raw(InvFile::data_deflate("abc", n), n);
  owner.set_owns_raw(true);
}

}  // namespace
