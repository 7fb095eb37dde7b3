// Virtual disks: createType rules, extent sizes, descriptors embedded in
// sparse extents, parent chains and the disk walk over the controllers.
#include <gtest/gtest.h>

#include "collectors/storage/storage.h"
#include "storage_test_util.h"

using storage_test::make_scanner;
using storage_test::read_fixture;
using storage_test::TempDir;
using storage_test::tree_text;

TEST(StorageVmdk, CreateTypeTable) {
  struct Case {
    const char* type;
    int preallocated, single_file;
  };
  const Case cases[] = {
      {"vmfs", 1, 1},
      {"VMFS", 1, 1},
      {"vmfsSparse", 1, 0},
      {"monolithicSparse", 0, 1},
      {"monolithicFlat", 1, 1},
      {"twoGbMaxExtentSparse", 0, 0},
      {"2GbMaxExtentFlat", 1, 0},
      {"seSparse", 0, -1},     // sparse, but neither single nor split
      {"monolithic", -1, -1},  // the file-count rows follow sparse/flat only
      {"vmfsRawDeviceMap", -1, -1},
      {"", -1, -1},
  };
  for (const Case& c : cases) {
    const storage::DiskFlags f = storage::create_type_flags(c.type);
    EXPECT_EQ(f.preallocated * 10 + f.single_file, c.preallocated * 10 + c.single_file) << c.type;
  }
}

TEST(StorageVmdk, ExtentBytes) {
  auto scanner = make_scanner();
  const std::pair<const char*, uint64_t> samples[] = {
      {"vmfs.sql.vmdk", 268435456ULL * 512},
      {"twoGbMaxExtentSparse.reconstructed.vmdk", (5 * 8323072ULL + 4521984) * 512},
      // No blank line before the section; ".vmdk" only inside the name.
      {"vmfsSparse.vps-000001.vmdk", 20971520ULL * 512},
      {"vmfsSparse.REDO.android.vmdk.REDO_TkLU1V", 41943040ULL * 512},
  };
  for (const auto& s : samples) {
    const std::string d = read_fixture(std::string("esxi-samples/vmdk/") + s.first);
    EXPECT_EQ(scanner->extent_bytes(d, "/nonexistent/", true), s.second) << s.first;
  }
  TempDir dir;
  dir.write("a.vmdk", "", 1000);
  dir.write("b.vmdk", "", 24);
  dir.write("c.vmdk", "", 7);
  const std::string d =
      "# Extent description\nRW 10 SPARSE \"a.vmdk\"\nRDONLY 20 SPARSE \"b.vmdk\"\n"
      "NOACCESS 40 SPARSE \"c.vmdk\"\nRW 80 FLAT \"raw.img\" 0\n"
      "\nRW 160 SPARSE \"c.vmdk\"\n";  // an empty line ends the section
  EXPECT_EQ(scanner->extent_bytes(d, dir.dir(), true), 30u * 512);
  EXPECT_EQ(scanner->extent_bytes(d, dir.dir(), false), 1024u);
  // A "#" line ends it too, and the last line needs its "\n".
  EXPECT_EQ(scanner->extent_bytes("# Extent description\nRW 1 S \"a.vmdk\"\n#\nRW 2 S \"b.vmdk\"\n",
                                  dir.dir(), true),
            512u);
  EXPECT_EQ(scanner->extent_bytes("# Extent description\nRW 1 S \"a.vmdk\"", dir.dir(), true), 0u);
}

namespace {

std::string descriptor(const char* type, const std::string& extents, const char* parent = "") {
  return std::string("# Disk DescriptorFile\nversion=1\ncreateType=\"") + type + "\"\n" +
         (*parent != '\0' ? std::string("parentFileNameHint=\"") + parent + "\"\n" : "") +
         "\n# Extent description\n" + extents + "\n# The Disk Data Base\n#DDB\n";
}

// "KDMV", then text at offset 512 (the place of an embedded descriptor).
std::string sparse_head(const std::string& at_512) {
  return std::string("KDMV").append(508, '\0') + at_512;
}

std::string read_disk(const TempDir& dir, const char* file) {
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  ztag* disk = doc.top()->child("hdd:1");
  scanner->read_vmdk(dir.dir() + file, disk, true);
  return tree_text(disk);
}

}  // namespace

TEST(StorageVmdk, DeltaCountsItsOwnFilesAndTheBaseSize) {
  TempDir dir;
  dir.write("base.vmdk", descriptor("vmfs", "RW 4194304 VMFS \"base-flat.vmdk\"\n"));
  dir.write("base-flat.vmdk", "", 2147483648);
  dir.write("d1.vmdk",
            descriptor("vmfsSparse", "RW 4194304 VMFSSPARSE \"d1-delta.vmdk\"\n", "base.vmdk"));
  dir.write("d1-delta.vmdk", "", 16777216);
  // The delta's 16 MB; the base's 2 GB and type (vmfs, not vmfsSparse).
  EXPECT_EQ(read_disk(dir, "d1.vmdk"),
            "*hdd:1=\ncur-size=16.0\n~units=MB\n~base-value=16777216\n"
            "max-size=2.00\n~base-value=2147483648\npreallocated=1\nsingle-file=1\n");
  // A chain that loops stops: no base disk, so no max-size and no flags.
  dir.write("loop.vmdk",
            descriptor("vmfsSparse", "RW 8 VMFSSPARSE \"d1-delta.vmdk\"\n", "loop.vmdk"));
  EXPECT_EQ(read_disk(dir, "loop.vmdk"),
            "*hdd:1=\ncur-size=16.0\n~units=MB\n~base-value=16777216\n");
}

TEST(StorageVmdk, DescriptorEmbeddedInSparseExtent) {
  TempDir dir;
  dir.write("mono.vmdk",
            sparse_head(descriptor("monolithicSparse", "RW 41943040 SPARSE \"mono.vmdk\"\n")),
            3145728);
  // Offset 512 holds no "#": no descriptor, so sizes of 0 and no flags.
  dir.write("bare.vmdk", sparse_head("createType=\"monolithicSparse\"\n"), 4096);
  EXPECT_EQ(read_disk(dir, "mono.vmdk"),
            "*hdd:1=\ncur-size=3.0\n~units=MB\n~base-value=3145728\n"
            "max-size=20.00\n~base-value=21474836480\npreallocated=0\nsingle-file=1\n");
  EXPECT_EQ(
      read_disk(dir, "bare.vmdk"),
      "*hdd:1=\ncur-size=0.0\n~units=MB\n~base-value=0\nmax-size=0.0\n~units=MB\n~base-value=0\n");
  // The embedded text ends at the first zero byte or at 8192.
  std::string full = sparse_head("");
  full.resize(storage::kVmdkHead, '#');
  EXPECT_EQ(storage::embedded_descriptor(full).size(), storage::kVmdkHead - 512);
}

TEST(StorageVmdk, DiskWalkOverControllers) {
  TempDir dir;
  dir.write("d0.vmdk", descriptor("monolithicFlat", "RW 2048 FLAT \"d0-flat.vmdk\" 0\n"));
  dir.write("d0-flat.vmdk", "", 1048576);
  dir.write("noext", "");
  std::string vmx = "scsi0.present = \"TRUE\"\nide1.present = \"TRUE\"\n";
  const std::pair<const char*, std::string> units[] = {
      {"scsi0:0", "d0.vmdk"},      {"scsi0:1", dir.dir() + "d0.vmdk"},  // absolute: no file
      {"scsi0:2", "missing.vmdk"}, {"scsi0:4", "noext"},
      {"scsi0:5", "d0.vmdk.bak"},  {"ide0:0", "d0.vmdk"},  // no ide0.present
      {"ide1:1", "d0.vmdk"},
  };
  for (const auto& u : units) {
    vmx += std::string(u.first) + ".present = \"TRUE\"\n" + u.first + ".fileName = \"" + u.second +
           "\"\n";
  }
  vmx += "scsi0:3.present = \"FALSE\"\nscsi0:3.fileName = \"d0.vmdk\"\n";
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  ztag* devices = doc.top()->child("Devices");
  int counter = 0;
  scanner->scan_vm_disks(devices, vmx, "scsi", dir.dir(), 536870912, counter);
  scanner->scan_vm_disks(devices, vmx, "ide", dir.dir(), 536870912, counter);
  const std::string disk =
      "disk-file=d0.vmdk\nsystem-free=512.0\n~units=MB\n~base-value=536870912\n"
      "cur-size=1.0\n~units=MB\n~base-value=1048576\nmax-size=1.0\n~units=MB\n~base-value=1048576\n"
      "preallocated=1\nsingle-file=1\n";
  EXPECT_EQ(tree_text(devices), "+Devices=\n*hdd:1=\ninterface=SCSI\n" + disk +
                                    "*hdd:2=\ninterface=IDE\n" + disk + "-\n");
}
