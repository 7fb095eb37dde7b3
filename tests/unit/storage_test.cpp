// Storage, machines and disks: extent columns, file-system lines, .vmx
// keys, adapters and CD-ROM drives, createType rules and disk chains.
#include "collectors/storage/storage.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "test_support.h"
#include "zxml/zXML.h"

namespace {

using test_support::tree_text;

TEST(StorageText, ExtentColumns) {
  // A volume name with a blank shifts every column.
  const storage::ExtentColumns shifted = storage::extent_columns("my vol  5bc7  0  naa.6  3");
  EXPECT_EQ(shifted.uuid + "|" + shifted.device + "|" + shifted.partition, "vol|0|naa.6  3");
  // Too few columns: the cut starts past the end of the line.
  EXPECT_THROW(storage::extent_columns("VMs  5bc7"), std::out_of_range);
}

// The Logical-disks subtree after scanning lines ("" when there is none).
std::string scan_lines(const std::vector<std::string>& lines) {
  zXML doc(true, "Snapshot");
  float free_gb = 0, size_gb = 0;
  for (const std::string& line : lines)
    storage::scan_filesystem_line(line, &doc, 1, free_gb, size_gb);
  const ztag* storage_node = doc.top()->find_child("Storage");
  return storage_node ? tree_text(storage_node->find_child("Logical-disks")) : "";
}

TEST(StorageFilesystem, SevenFieldsMegabytesBelowOneGigabyteAndZeroSize) {
  // Eight fields (a blank in the name) make no node, as six do.
  EXPECT_EQ(scan_lines({"/m/a  my vol  u  true  VMFS-6  2147483648  1073741824"}), "");
  // 2^30 - 64 bytes, the largest single-precision value below 1 GB, is
  // still written in MB (1024.0) while exactly 1 GB is 1.00. A zero size
  // gives the most negative used percentage. Lines are numbered on.
  EXPECT_EQ(scan_lines({"/m/b  edge  u  true  vfat  1073741824  1073741760",
                        "/m/z  empty  u  true  vfat  0  0"}),
            "+Logical-disks=\n*partition:1=edge\nfile-sys=vfat\n"
            "size=1.00\n~base-value=1073741824\n"
            "free=1024.0\n~base-value=1073741760\n~units=MB\n"
            "used=0.0\n~base-value=64\n~units=MB\n"
            "mount-point=/m/b\nfree%=100\nused%=0\n~pos=0.00\n~max=1.00\n~val-units=GB\n"
            "*partition:2=empty\nfile-sys=vfat\n"
            "size=0.0\n~base-value=0\n~units=MB\n"
            "free=0.0\n~base-value=0\n~units=MB\n"
            "used=0.0\n~base-value=0\n~units=MB\n"
            "mount-point=/m/z\nfree%=-9223372036854775708\n"
            "used%=-9223372036854775808\n~pos=0.00\n~max=0.00\n~val-units=GB\n-\n");
}

TEST(StorageVmx, KeyLookupQuirks) {
  const std::string vmx =
      "xguestOS = \"shadow\"\nguestOS = \"rhel6-64\"\n"
      "displayName = \"first\"\ndisplayName = \"second\"\nmemSize = \"1024\"\n";
  EXPECT_EQ(storage::vmx_value(vmx, "guestOS"), "shadow");  // inside a longer key
  EXPECT_EQ(storage::vmx_value(vmx, "displayName"), "first");
  EXPECT_EQ(storage::vmx_value(vmx, "memsize"), "");  // case matters
}

TEST(StorageVmConfig, ProcessorsAndAdapterSlots) {
  // Slot 14 is the last adapter read; slot 15 is never looked at.
  const std::string vmx =
      "displayName = \"nets\"\nnumvcpus = \"6\"\ncpuid.coresPerSocket = \"4\"\n"
      "ethernet3.present = \"TRUE\"\nethernet3.connectionType = \"custom\"\n"
      "ethernet3.vnet = \"vmnet2\"\nethernet3.addressType = \"generated\"\n"
      "ethernet3.generatedAddress = \"00:0c:29:12:34:56\"\n"
      "ethernet14.present = \"TRUE\"\nethernet14.connectionType = \"nat\"\n"
      "ethernet15.present = \"TRUE\"\nethernet15.generatedAddress = \"00:0c:29:ff:ff:ff\"\n";
  storage::VmFiles files;
  files.family = "other";
  files.all_bytes = 1048576;
  zXML doc(true, "Snapshot");
  storage::record_vm(doc.top()->child("vm:1"), storage::parse_vmx(vmx), files);
  EXPECT_EQ(tree_text(doc.top()->find_child("vm:1")),
            "+vm:1=nets\n~kind=other\nvm-version=\nvm-guest-os-type=\n"
            "vm-current-stor-size=0.0\n~units=MB\n~base-value=0\n"
            "vm-current-size=1.0\n~units=MB\n~base-value=1048576\n"
            "+Devices=\nvm-memory-size=\nvm-processors=\n~complex=\n"
            "*vm-processors=\n~field-source=\ntotal-cores=6\ncpu-count=1\ncores-per-cpu=4\n"
            "*net:1=\nconn-type=custom\naddr-type=generated\nmac-address=00-0C-29-12-34-56\n"
            "vnet=vmnet2\n*net:2=\nconn-type=nat\naddr-type=\nmac-address=\n-\n-\n");
}

// A cores-per-socket that reads as 0 is divided by all the same: the
// process ends with the arithmetic fault.
TEST(StorageVmConfig, CoresPerSocketOfZeroFaults) {
  for (const char* cores : {"0", "x"}) {
    const std::string vmx =
        std::string("numvcpus = \"2\"\ncpuid.coresPerSocket = \"") + cores + "\"\n";
    zXML doc(true, "Snapshot");
    EXPECT_EXIT(storage::record_vm(doc.top(), storage::parse_vmx(vmx), storage::VmFiles()),
                testing::KilledBySignal(SIGFPE), "")
        << cores;
  }
}

// The path of a getallvms line: after "]", from the line's start without
// one, and no path at all (an out-of-range error) with only blanks after it.
TEST(StorageListing, MachineLines) {
  EXPECT_EQ(storage::parse_vm_line("1 a [ds] dir/a.vmx  guest").relative, "dir/a.vmx");
  EXPECT_EQ(storage::parse_vm_line("12 no bracket.vmx x").relative, "12 no bracket.vmx");
  EXPECT_EQ(storage::parse_vm_line("3 [ds no path").relative, "3 [ds no path");
  EXPECT_THROW(storage::parse_vm_line("4 a [ds]  "), std::out_of_range);
}

TEST(StorageVmConfig, CdromRules) {
  const std::string vmx =
      // No scsi0.present: that drive is not looked at.
      "scsi0:3.present = \"TRUE\"\nscsi0:3.deviceType = \"cdrom-image\"\n"
      "scsi0:3.fileName = \"/iso/skipped.iso\"\n"
      "scsi1.present = \"TRUE\"\nscsi1:2.present = \"TRUE\"\n"
      "scsi1:2.deviceType = \"cdrom-image\"\nscsi1:2.fileName = \"/iso/tools.iso\"\n"
      // IDE needs no presence key. Autodetect without a file name counts,
      // neither file name nor autodetect does not.
      "ide0:0.present = \"TRUE\"\nide0:0.deviceType = \"atapi-cdrom\"\n"
      "ide0:0.fileName = \"\"\nide0:0.autodetect = \"TRUE\"\n"
      "ide0:1.present = \"TRUE\"\nide0:1.deviceType = \"cdrom-raw\"\nide0:1.autodetect = "
      "\"FALSE\"\n"
      // The last slot looked at.
      "ide14:14.present = \"TRUE\"\nide14:14.deviceType = \"cdrom-image\"\n"
      "ide14:14.fileName = \"/iso/last.iso\"\n";
  zXML doc(true, "Snapshot");
  ztag* devices = doc.top()->child("Devices");
  int counter = 0;
  storage::scan_vm_cdroms(devices, vmx, "scsi", counter);
  storage::scan_vm_cdroms(devices, vmx, "ide", counter);
  EXPECT_EQ(tree_text(devices),
            "+Devices=\n*cd:1=\ninterface=SCSI\nconnection=/iso/tools.iso\n"
            "*cd:2=\ninterface=IDE\nconnection=auto detect\n"
            "*cd:3=\ninterface=IDE\nconnection=/iso/last.iso\n-\n");
}

TEST(StorageVmdk, CreateTypeTable) {
  // createType -> preallocated, single file (-1: not written).
  const std::pair<const char*, std::pair<int, int>> cases[] = {
      {"VMFS", {1, 1}},  // case does not matter
      {"vmfsSparse", {1, 0}},
      {"monolithicFlat", {1, 1}},
      {"twoGbMaxExtentSparse", {0, 0}},
      {"2GbMaxExtentFlat", {1, 0}},
      {"seSparse", {0, -1}},     // sparse, but neither single nor split
      {"monolithic", {-1, -1}},  // the file-count rows follow sparse/flat only
      {"vmfsRawDeviceMap", {-1, -1}},
  };
  for (const auto& c : cases) {
    const storage::DiskFlags f = storage::create_type_flags(c.first);
    EXPECT_EQ(std::make_pair(f.preallocated, f.single_file), c.second) << c.first;
  }
}

}  // namespace
