// File systems and VMFS extents: field splitting, extent columns, the
// file-system line with its size texts and percentages.
#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>

#include "collectors/storage/storage.h"
#include "storage_test_util.h"

using storage_test::dump;
using storage_test::make_scanner;
using storage_test::read_fixture;

TEST(StorageSplitFields, RunsOfDelimitersAndEnds) {
  struct Case {
    const char* text;
    std::vector<std::string> fields;
  };
  const Case cases[] = {
      {"a  b   c", {"a", "b", "c"}},
      {"   a b", {"a", "b"}},  // leading delimiters skipped
      {"a b   ", {"a", "b"}},  // nothing after the last delimiter
      {"", {}},
      {"    ", {}},
      {"one", {"one"}},
      {"a\tb c", {"a\tb", "c"}},  // only the given delimiter splits
  };
  for (const Case& c : cases) EXPECT_EQ(split_fields(c.text, ' '), c.fields) << c.text;
}

TEST(StorageExtents, ColumnsOfRealLines) {
  const std::string text = read_fixture("esxi-samples/esxcli_storage_vmfs_extent_list.esxi6x.txt");
  const std::vector<std::string> lines = storage::table_lines(text);
  ASSERT_EQ(lines.size(), 4u);
  const storage::ExtentColumns c = storage::extent_columns(lines[0]);
  EXPECT_EQ(c.volume, "datastore1");
  EXPECT_EQ(c.uuid, "595d1290-79d25d9f-5c14-00e0ed438c52");
  EXPECT_EQ(c.extent, "0");
  EXPECT_EQ(c.device, "t10.ATA_____INTEL_SSDSC2BB240G4_____________________BTWL30940045240MGN__");
  EXPECT_EQ(c.partition, "3");
  EXPECT_EQ(storage::extent_columns(lines[3]).device, "eui.ea3fcd1f5424a6f3");

  // A volume name with a blank shifts every column by one.
  const storage::ExtentColumns shifted = storage::extent_columns("my vol  5bc7-aa  0  naa.600  3");
  EXPECT_EQ(shifted.uuid, "vol");
  EXPECT_EQ(shifted.device, "0");
  EXPECT_EQ(shifted.partition, "naa.600  3");

  // Too few columns: the cut starts past the end of the line.
  EXPECT_THROW(storage::extent_columns("VMs  5bc7"), std::out_of_range);
}

TEST(StorageExtents, TableLines) {
  // Lines start after the dashed line; the unterminated tail is not a line.
  EXPECT_EQ(storage::table_lines("H\n--  --\na b\n\nc d\ntail"),
            (std::vector<std::string>{"a b", "", "c d"}));
  EXPECT_TRUE(storage::table_lines("no dashes\nx\n").empty());
  EXPECT_TRUE(storage::table_lines("H\n-----").empty());
  EXPECT_TRUE(storage::table_lines("").empty());
}

namespace {

struct FsResult {
  std::string text;  // the Logical-disks subtree, or "" when absent
  float free_gb;
  float size_gb;
};

FsResult scan_line(CScaner& scanner, zXML& doc, const std::string& line) {
  FsResult r{"", -1.0f, -1.0f};
  r.free_gb = 0;
  r.size_gb = 0;
  scanner.scan_filesystem_line(line, &doc, 1, r.free_gb, r.size_gb);
  ztag* storage_node = doc.top()->find_child("Storage");
  ztag* disks = storage_node != nullptr ? storage_node->find_child("Logical-disks") : nullptr;
  if (disks != nullptr) r.text = dump(disks);
  return r;
}

}  // namespace

TEST(StorageFilesystem, RealVmfsLine) {
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  const std::string text = read_fixture("esxi-samples/esxcli_storage_filesystem_list.esxi67.txt");
  const std::vector<std::string> lines = storage::table_lines(text);
  ASSERT_EQ(lines.size(), 5u);
  // 1192121860096 bytes is 1110.25 GB exactly in single precision; the free
  // 556500254720 is 518.28125 GB; used 591.96875 GB = 53.3 %.
  const FsResult r = scan_line(*scanner, doc, lines[0]);
  EXPECT_EQ(r.text,
            "+Logical-disks=\n"
            "*partition:1=VMs\n"
            "file-sys=VMFS-6\n"
            "size=1110.25\n~base-value=1192121860096\n"
            "free=518.28\n~base-value=556500254720\n"
            "used=591.97\n~base-value=635621605376\n"
            "mount-point=/vmfs/volumes/5bc7459f-967eeb48-b3f7-20677cd9a16c\n"
            "free%=47\n"
            "used%=53\n~pos=591.97\n~max=1110.25\n~val-units=GB\n"
            "-\n");
  EXPECT_EQ(r.size_gb, 1110.25f);
  EXPECT_EQ(r.free_gb, 518.28125f);

  // The vfat lines have no volume name: six fields, no node, nothing counted.
  zXML other(true, "Snapshot");
  const FsResult vfat = scan_line(*scanner, other, lines[1]);
  EXPECT_EQ(vfat.text, "");
  EXPECT_EQ(vfat.size_gb, 0.0f);
  EXPECT_EQ(vfat.free_gb, 0.0f);
}

TEST(StorageFilesystem, OnlySevenFieldsMakeANode) {
  auto scanner = make_scanner();
  const char* rejected[] = {
      "/vmfs/volumes/a  my vol  a-uuid  true  VMFS-6  2147483648  1073741824",  // 8
      "/vmfs/volumes/a  a-uuid  true  VMFS-6  2147483648  1073741824",          // 6
      "/vmfs/volumes/a  vol  a-uuid  true  VMFS-6  2147483648  1073741824  x",  // 8
  };
  for (const char* line : rejected) {
    zXML doc(true, "Snapshot");
    EXPECT_EQ(scan_line(*scanner, doc, line).text, "") << line;
  }
}

TEST(StorageFilesystem, MegabytesBelowOneGigabyte) {
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  // 512 MB size, nothing free: size and used in MB, free 0.0 MB.
  FsResult r = scan_line(*scanner, doc, "/m/a  small  u  true  vfat  536870912  0");
  EXPECT_EQ(r.text,
            "+Logical-disks=\n"
            "*partition:1=small\n"
            "file-sys=vfat\n"
            "size=512.0\n~base-value=536870912\n~units=MB\n"
            "free=0.0\n~base-value=0\n~units=MB\n"
            "used=512.0\n~base-value=536870912\n~units=MB\n"
            "mount-point=/m/a\n"
            "free%=0\n"
            "used%=100\n~pos=0.50\n~max=0.50\n~val-units=GB\n"
            "-\n");

  // 2^30 - 64 is the largest single-precision value below 1 GB: it is still
  // shown in MB (1024.0). Exactly 1 GB is 1.00 without units. The second
  // call on the same tree goes on with partition:2.
  r = scan_line(*scanner, doc, "/m/b  edge  u  true  vfat  1073741824  1073741760");
  EXPECT_NE(r.text.find("*partition:2=edge\nfile-sys=vfat\n"
                        "size=1.00\n~base-value=1073741824\n"
                        "free=1024.0\n~base-value=1073741760\n~units=MB\n"
                        "used=0.0\n~base-value=64\n~units=MB\n"),
            std::string::npos)
      << r.text;
  EXPECT_EQ(r.text.find("*partition:1=small"), 16u);
}

TEST(StorageFilesystem, PercentagesRoundTiesToEven) {
  struct Case {
    const char* size;
    const char* free;
    int64_t used_pct;
    int64_t free_pct;
  };
  // 8 GB with 1/8, 3/8 and 5/8 used: 12.5 -> 12, 37.5 -> 38, 62.5 -> 62.
  const Case cases[] = {
      {"8589934592", "7516192768", 12, 88},
      {"8589934592", "5368709120", 38, 62},
      {"8589934592", "3221225472", 62, 38},
      {"8589934592", "8589934592", 0, 100},
      // More free than size: used is negative, and so is used%.
      {"1073741824", "2147483648", -100, 200},
  };
  auto scanner = make_scanner();
  for (const Case& c : cases) {
    zXML doc(true, "Snapshot");
    const std::string line = std::string("/m  v  u  true  VMFS-6  ") + c.size + "  " + c.free;
    const std::string text = scan_line(*scanner, doc, line).text;
    const std::string want =
        "free%=" + std::to_string(c.free_pct) + "\nused%=" + std::to_string(c.used_pct) + "\n";
    EXPECT_NE(text.find(want), std::string::npos) << line << "\n" << text;
  }
}

TEST(StorageFilesystem, ZeroSizeGivesTheMostNegativePercentage) {
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  const FsResult r = scan_line(*scanner, doc, "/m/z  empty  u  true  vfat  0  0");
  EXPECT_EQ(r.text,
            "+Logical-disks=\n"
            "*partition:1=empty\n"
            "file-sys=vfat\n"
            "size=0.0\n~base-value=0\n~units=MB\n"
            "free=0.0\n~base-value=0\n~units=MB\n"
            "used=0.0\n~base-value=0\n~units=MB\n"
            "mount-point=/m/z\n"
            "free%=-9223372036854775708\n"
            "used%=-9223372036854775808\n~pos=0.00\n~max=0.00\n~val-units=GB\n"
            "-\n");
}

TEST(StorageFilesystem, NumberConversionsStayDefined) {
  EXPECT_EQ(storage::truncate_to_int64(-0.75L), 0);
  EXPECT_EQ(storage::truncate_to_int64(12.99L), 12);
  EXPECT_EQ(storage::truncate_to_int64(9223372036854775808.0L), INT64_MIN);
  EXPECT_EQ(storage::truncate_to_int64(__builtin_nanl("")), INT64_MIN);
  EXPECT_EQ(storage::round_to_int64(2.5L), 2);
  EXPECT_EQ(storage::round_to_int64(-2.5L), -2);
  EXPECT_EQ(storage::round_to_int64(__builtin_infl()), INT64_MIN);
  EXPECT_EQ(storage::free_percent(INT64_MIN), INT64_MIN + 100);
  EXPECT_EQ(storage::read_decimal("  42abc"), 42);
  EXPECT_EQ(storage::read_decimal("x42"), 0);
  EXPECT_EQ(storage::read_decimal("99999999999999999999"), INT64_MAX);
}
