// File systems and VMFS extents: fields, extent columns, and the partition
// node with its size texts and percentages.
#include <gtest/gtest.h>

#include <stdexcept>

#include "collectors/storage/storage.h"
#include "storage_test_util.h"

using storage_test::make_scanner;
using storage_test::read_fixture;
using storage_test::tree_text;

TEST(StorageText, SplitFieldsAndTableLines) {
  using V = std::vector<std::string>;
  EXPECT_EQ(split_fields("  a  b   c  ", ' '), (V{"a", "b", "c"}));
  EXPECT_EQ(split_fields("a\tb c", ' '), (V{"a\tb", "c"}));  // only the delimiter splits
  EXPECT_EQ(split_fields("   ", ' '), V{});
  // Lines start after the dashed line; the unterminated tail is not a line.
  EXPECT_EQ(storage::table_lines("H\n--  --\na b\n\nc d\ntail"), (V{"a b", "", "c d"}));
  EXPECT_EQ(storage::table_lines("no dashes\nx\n"), V{});
  EXPECT_EQ(storage::table_lines("H\n-----"), V{});
}

TEST(StorageText, ExtentColumns) {
  const std::vector<std::string> lines =
      storage::table_lines(read_fixture("esxi-samples/esxcli_storage_vmfs_extent_list.esxi6x.txt"));
  ASSERT_EQ(lines.size(), 4u);
  const storage::ExtentColumns c = storage::extent_columns(lines[0]);
  EXPECT_EQ(c.uuid, "595d1290-79d25d9f-5c14-00e0ed438c52");
  EXPECT_EQ(c.device, "t10.ATA_____INTEL_SSDSC2BB240G4_____________________BTWL30940045240MGN__");
  EXPECT_EQ(c.partition, "3");
  // A volume name with a blank shifts every column.
  const storage::ExtentColumns shifted = storage::extent_columns("my vol  5bc7  0  naa.6  3");
  EXPECT_EQ(shifted.device, "0");
  EXPECT_EQ(shifted.partition, "naa.6  3");
  // Too few columns: the cut starts past the end of the line.
  EXPECT_THROW(storage::extent_columns("VMs  5bc7"), std::out_of_range);
}

namespace {

// The Logical-disks subtree after scanning lines ("" when there is none).
std::string scan_lines(const std::vector<std::string>& lines, float* size_gb = nullptr) {
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  float free_gb = 0, size = 0;
  for (const std::string& line : lines) {
    size = 0;
    scanner->scan_filesystem_line(line, &doc, 1, free_gb, size);
  }
  if (size_gb != nullptr) *size_gb = size;
  const ztag* storage_node = doc.top()->find_child("Storage");
  return storage_node != nullptr ? tree_text(storage_node->find_child("Logical-disks")) : "";
}

}  // namespace

TEST(StorageFilesystem, RealLines) {
  const std::vector<std::string> lines =
      storage::table_lines(read_fixture("esxi-samples/esxcli_storage_filesystem_list.esxi67.txt"));
  ASSERT_EQ(lines.size(), 5u);
  // 1192121860096 bytes are 1110.25 GB exactly in single precision, the free
  // 556500254720 are 518.28125 GB: 53.3 % used. The vfat lines have no
  // volume name (six fields) and make no node.
  float size_gb = 0;
  EXPECT_EQ(scan_lines(lines, &size_gb),
            "+Logical-disks=\n*partition:1=VMs\nfile-sys=VMFS-6\n"
            "size=1110.25\n~base-value=1192121860096\n"
            "free=518.28\n~base-value=556500254720\n"
            "used=591.97\n~base-value=635621605376\n"
            "mount-point=/vmfs/volumes/5bc7459f-967eeb48-b3f7-20677cd9a16c\n"
            "free%=47\nused%=53\n~pos=591.97\n~max=1110.25\n~val-units=GB\n-\n");
  EXPECT_EQ(scan_lines({lines[0]}, &size_gb), scan_lines(lines));
  EXPECT_EQ(size_gb, 1110.25f);
  // Eight fields (a blank in the name) are left out too.
  EXPECT_EQ(scan_lines({"/m/a  my vol  u  true  VMFS-6  2147483648  1073741824"}), "");
}

TEST(StorageFilesystem, MegabytesBelowOneGigabyteAndNumbering) {
  // 512 MB; then 2^30 - 64 bytes, the largest single-precision value below
  // 1 GB, still in MB as 1024.0, while exactly 1 GB is 1.00. The second line
  // is numbered on from the first.
  EXPECT_EQ(scan_lines({"/m/a  small  u  true  vfat  536870912  0",
                        "/m/b  edge  u  true  vfat  1073741824  1073741760"}),
            "+Logical-disks=\n*partition:1=small\nfile-sys=vfat\n"
            "size=512.0\n~base-value=536870912\n~units=MB\n"
            "free=0.0\n~base-value=0\n~units=MB\n"
            "used=512.0\n~base-value=536870912\n~units=MB\n"
            "mount-point=/m/a\nfree%=0\nused%=100\n~pos=0.50\n~max=0.50\n~val-units=GB\n"
            "*partition:2=edge\nfile-sys=vfat\n"
            "size=1.00\n~base-value=1073741824\n"
            "free=1024.0\n~base-value=1073741760\n~units=MB\n"
            "used=0.0\n~base-value=64\n~units=MB\n"
            "mount-point=/m/b\nfree%=100\nused%=0\n~pos=0.00\n~max=1.00\n~val-units=GB\n-\n");
}

TEST(StorageFilesystem, PercentagesRoundTiesToEven) {
  struct Case {
    const char* free;
    const char* percents;
  };
  // 8 GB with 1/8, 3/8 and 5/8 used: 12.5, 37.5 and 62.5; more free than
  // size gives a negative use.
  const Case cases[] = {{"7516192768", "free%=88\nused%=12\n"},
                        {"5368709120", "free%=62\nused%=38\n"},
                        {"3221225472", "free%=38\nused%=62\n"},
                        {"17179869184", "free%=200\nused%=-100\n"}};
  for (const Case& c : cases) {
    const std::string text =
        scan_lines({std::string("/m  v  u  true  VMFS-6  8589934592  ") + c.free});
    EXPECT_NE(text.find(c.percents), std::string::npos) << text;
  }
}

TEST(StorageFilesystem, ZeroSizeGivesTheMostNegativePercentage) {
  EXPECT_EQ(scan_lines({"/m/z  empty  u  true  vfat  0  0"}),
            "+Logical-disks=\n*partition:1=empty\nfile-sys=vfat\n"
            "size=0.0\n~base-value=0\n~units=MB\n"
            "free=0.0\n~base-value=0\n~units=MB\n"
            "used=0.0\n~base-value=0\n~units=MB\n"
            "mount-point=/m/z\n"
            "free%=-9223372036854775708\n"
            "used%=-9223372036854775808\n~pos=0.00\n~max=0.00\n~val-units=GB\n-\n");
}
