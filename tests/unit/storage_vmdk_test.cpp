// Virtual disks: createType rules, extent sizes, descriptors embedded in
// sparse extents, parent chains and the disk walk over the controllers.
#include <gtest/gtest.h>

#include "collectors/storage/storage.h"
#include "storage_test_util.h"

using storage_test::dump;
using storage_test::make_scanner;
using storage_test::read_fixture;
using storage_test::TempDir;

TEST(StorageVmdk, CreateTypeTable) {
  struct Case {
    const char* type;
    int preallocated;
    int single_file;
  };
  const Case cases[] = {
      {"vmfs", 1, 1},
      {"VMFS", 1, 1},
      {"vmfsSparse", 1, 0},
      {"monolithicSparse", 0, 1},
      {"monolithicFlat", 1, 1},
      {"twoGbMaxExtentSparse", 0, 0},
      {"twoGbMaxExtentFlat", 1, 0},
      {"2GbMaxExtentSparse", 0, 0},
      {"seSparse", 0, -1},   // sparse, but neither single nor split
      {"vmfsThin", -1, -1},  // no rule at all
      {"vmfsRawDeviceMap", -1, -1},
      {"streamOptimized", -1, -1},
      {"monolithic", -1, -1},  // the file-count rows follow sparse/flat only
      {"", -1, -1},
  };
  for (const Case& c : cases) {
    const storage::DiskFlags f = storage::create_type_flags(c.type);
    EXPECT_EQ(f.preallocated, c.preallocated) << c.type;
    EXPECT_EQ(f.single_file, c.single_file) << c.type;
  }
}

TEST(StorageVmdk, ProvisionedBytesFromRealDescriptors) {
  auto scanner = make_scanner();
  struct Case {
    const char* file;
    uint64_t bytes;
  };
  const Case cases[] = {
      {"vmfs.sql.vmdk", 268435456ULL * 512},
      {"twoGbMaxExtentSparse.reconstructed.vmdk", (5 * 8323072ULL + 4521984) * 512},
      // No blank line before the extent section in snapshot deltas.
      {"vmfsSparse.vps-000001.vmdk", 20971520ULL * 512},
      // The extent file name holds ".vmdk" only in its middle.
      {"vmfsSparse.REDO.android.vmdk.REDO_TkLU1V", 41943040ULL * 512},
  };
  for (const Case& c : cases) {
    const std::string d = read_fixture(std::string("esxi-samples/vmdk/") + c.file);
    ASSERT_FALSE(d.empty()) << c.file;
    EXPECT_EQ(scanner->extent_bytes(d, "/nonexistent/", true), c.bytes) << c.file;
    EXPECT_EQ(scanner->extent_bytes(d, "/nonexistent/", false), 0u) << c.file;
  }
}

TEST(StorageVmdk, ExtentLinesThatCount) {
  TempDir dir;
  dir.write("a.vmdk", "", 1000);
  dir.write("b.vmdk", "", 24);
  dir.write("c.vmdk", "", 7);
  const std::string descriptor =
      "# Disk DescriptorFile\n"
      "# Extent description\n"
      "RW 10 SPARSE \"a.vmdk\"\n"
      "RDONLY 20 SPARSE \"b.vmdk\"\n"
      "NOACCESS 40 SPARSE \"c.vmdk\"\n"  // neither RW nor RDONLY
      "RW 80 FLAT \"raw.img\" 0\n"       // no ".vmdk"
      "\n"                               // an empty line ends the section
      "RW 160 SPARSE \"c.vmdk\"\n";
  auto scanner = make_scanner();
  EXPECT_EQ(scanner->extent_bytes(descriptor, dir.dir(), true), 30u * 512);
  EXPECT_EQ(scanner->extent_bytes(descriptor, dir.dir(), false), 1024u);
  // A line starting with "#" ends it too; the last line needs its "\n".
  EXPECT_EQ(
      scanner->extent_bytes("# Extent description\nRW 1 S \"a.vmdk\"\n#x\nRW 2 S \"b.vmdk\"\n",
                            dir.dir(), true),
      512u);
  EXPECT_EQ(scanner->extent_bytes("# Extent description\nRW 1 S \"a.vmdk\"", dir.dir(), true), 0u);
  EXPECT_EQ(scanner->extent_bytes("RW 1 S \"a.vmdk\"\n", dir.dir(), true), 0u);
}

namespace {

std::string base_descriptor(const char* type, const char* extents) {
  return std::string("# Disk DescriptorFile\nversion=1\nCID=fffffffe\nparentCID=ffffffff\n") +
         "createType=\"" + type + "\"\n\n# Extent description\n" + extents +
         "\n# The Disk Data Base\n#DDB\n\nddb.adapterType = \"lsilogic\"\n";
}

std::string read_disk(CScaner& scanner, const std::string& path) {
  zXML doc(true, "Snapshot");
  ztag* disk = doc.top()->child("hdd:1");
  scanner.read_vmdk(path, disk, true);
  return dump(disk);
}

// A sparse extent: "KDMV" header, and when given, the descriptor at offset
// 512, then zeros up to size.
std::string sparse_extent(const std::string& descriptor_at_512) {
  std::string data = "KDMV";
  data.resize(512, '\0');
  data += descriptor_at_512;
  return data;
}

}  // namespace

TEST(StorageVmdk, DeltaCountsItsOwnFilesAndTheBaseSize) {
  TempDir dir;
  dir.write("base.vmdk", base_descriptor("vmfs", "RW 4194304 VMFS \"base-flat.vmdk\"\n"));
  dir.write("base-flat.vmdk", "", 2147483648);
  dir.write("base-000001.vmdk",
            "# Disk DescriptorFile\nversion=1\ncreateType=\"vmfsSparse\"\n"
            "parentFileNameHint=\"base.vmdk\"\n"
            "# Extent description\nRW 4194304 VMFSSPARSE \"base-000001-delta.vmdk\"\n\n");
  dir.write("base-000001-delta.vmdk", "", 16777216);
  auto scanner = make_scanner();
  // The delta's 16 MB, the base's 2 GB and the base's type (vmfs, not the
  // delta's vmfsSparse).
  EXPECT_EQ(read_disk(*scanner, dir.dir() + "base-000001.vmdk"),
            "*hdd:1=\n"
            "cur-size=16.0\n~units=MB\n~base-value=16777216\n"
            "max-size=2.00\n~base-value=2147483648\n"
            "preallocated=1\nsingle-file=1\n");
  EXPECT_EQ(read_disk(*scanner, dir.dir() + "base.vmdk"),
            "*hdd:1=\n"
            "cur-size=2.00\n~base-value=2147483648\n"
            "max-size=2.00\n~base-value=2147483648\n"
            "preallocated=1\nsingle-file=1\n");
}

TEST(StorageVmdk, DescriptorEmbeddedInSparseExtent) {
  TempDir dir;
  dir.write(
      "mono.vmdk",
      sparse_extent(base_descriptor("monolithicSparse", "RW 41943040 SPARSE \"mono.vmdk\"\n")),
      3145728);
  // Offset 512 holds no "#": no descriptor, so sizes 0 and no flags.
  dir.write("bare.vmdk", sparse_extent("createType=\"monolithicSparse\"\n"), 4096);
  auto scanner = make_scanner();
  EXPECT_EQ(read_disk(*scanner, dir.dir() + "mono.vmdk"),
            "*hdd:1=\n"
            "cur-size=3.0\n~units=MB\n~base-value=3145728\n"
            "max-size=20.00\n~base-value=21474836480\n"
            "preallocated=0\nsingle-file=1\n");
  EXPECT_EQ(read_disk(*scanner, dir.dir() + "bare.vmdk"),
            "*hdd:1=\n"
            "cur-size=0.0\n~units=MB\n~base-value=0\n"
            "max-size=0.0\n~units=MB\n~base-value=0\n");
}

TEST(StorageVmdk, EmbeddedDescriptorEndsAtFirstZeroOrAt8192) {
  std::string head = sparse_extent("# Disk\nabc");
  head.resize(storage::kVmdkHead, '\0');
  EXPECT_EQ(storage::embedded_descriptor(head), "# Disk\nabc");
  std::string full = "KDMV";
  full.resize(512, '\0');
  full.resize(storage::kVmdkHead, '#');
  EXPECT_EQ(storage::embedded_descriptor(full).size(), storage::kVmdkHead - 512);
  EXPECT_TRUE(storage::is_sparse_extent(full));
  EXPECT_FALSE(storage::is_sparse_extent("# Disk DescriptorFile\n"));
  EXPECT_FALSE(storage::is_sparse_extent("KDM"));
}

TEST(StorageVmdk, ParentLoopStops) {
  TempDir dir;
  dir.write("loop.vmdk",
            "parentFileNameHint=\"loop.vmdk\"\n# Extent description\n"
            "RW 8 VMFSSPARSE \"loop-delta.vmdk\"\n\n");
  dir.write("loop-delta.vmdk", "", 4194304);
  auto scanner = make_scanner();
  // The chain never reaches a base disk: only the top disk's own size.
  EXPECT_EQ(read_disk(*scanner, dir.dir() + "loop.vmdk"),
            "*hdd:1=\ncur-size=4.0\n~units=MB\n~base-value=4194304\n");
}

TEST(StorageVmdk, DiskWalkOverControllers) {
  TempDir dir;
  dir.write("d0.vmdk", base_descriptor("monolithicFlat", "RW 2048 FLAT \"d0-flat.vmdk\" 0\n"));
  dir.write("d0-flat.vmdk", "", 1048576);
  dir.write("ide.vmdk", base_descriptor("vmfs", "RW 2048 VMFS \"d0-flat.vmdk\"\n"));
  dir.write("noext", "");
  const std::string vmx =
      "scsi0.present = \"TRUE\"\n"
      "scsi0:0.present = \"TRUE\"\n"
      "scsi0:0.fileName = \"d0.vmdk\"\n"
      "scsi0:1.present = \"TRUE\"\n"
      "scsi0:1.fileName = \"" +
      dir.dir() +
      "d0.vmdk\"\n"  // absolute: no file
      "scsi0:2.present = \"TRUE\"\n"
      "scsi0:2.fileName = \"missing.vmdk\"\n"
      "scsi0:3.present = \"FALSE\"\n"
      "scsi0:3.fileName = \"d0.vmdk\"\n"
      "scsi0:4.present = \"TRUE\"\n"
      "scsi0:4.fileName = \"noext\"\n"
      "scsi0:5.present = \"TRUE\"\n"
      "scsi0:5.fileName = \"d0.vmdk.bak\"\n"
      // IDE without the controller's presence key: skipped for disks.
      "ide0:0.present = \"TRUE\"\n"
      "ide0:0.fileName = \"ide.vmdk\"\n"
      "ide1.present = \"TRUE\"\n"
      "ide1:1.present = \"TRUE\"\n"
      "ide1:1.fileName = \"ide.vmdk\"\n";
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  ztag* devices = doc.top()->child("Devices");
  int counter = 0;
  scanner->scan_vm_disks(devices, vmx, "scsi", dir.dir(), 536870912, counter);
  scanner->scan_vm_disks(devices, vmx, "ide", dir.dir(), 536870912, counter);
  EXPECT_EQ(counter, 2);
  EXPECT_EQ(dump(devices),
            "+Devices=\n"
            "*hdd:1=\n"
            "interface=SCSI\ndisk-file=d0.vmdk\n"
            "system-free=512.0\n~units=MB\n~base-value=536870912\n"
            "cur-size=1.0\n~units=MB\n~base-value=1048576\n"
            "max-size=1.0\n~units=MB\n~base-value=1048576\n"
            "preallocated=1\nsingle-file=1\n"
            "*hdd:2=\n"
            "interface=IDE\ndisk-file=ide.vmdk\n"
            "system-free=512.0\n~units=MB\n~base-value=536870912\n"
            "cur-size=1.0\n~units=MB\n~base-value=1048576\n"
            "max-size=1.0\n~units=MB\n~base-value=1048576\n"
            "preallocated=1\nsingle-file=1\n"
            "-\n");
}
