// Virtual machines: the getallvms listing, .vmx key lookup, and what one
// configuration gives (processors, sizes, adapters, CD-ROM drives).
#include <gtest/gtest.h>

#include <stdexcept>

#include "collectors/storage/storage.h"
#include "storage_test_util.h"

using storage_test::make_scanner;
using storage_test::read_fixture;
using storage_test::TempDir;
using storage_test::tree_text;

TEST(StorageVmListing, LinesOfTheListing) {
  using storage::VmListing;
  struct Case {
    const char* line;
    VmListing::Kind kind;
    const char* id;
    const char* datastore;
    const char* relative;
  };
  const Case cases[] = {
      {"3      test vm (copy)   [datastore2] test vm (copy)/test vm (copy).vmx   otherGuest",
       VmListing::kMachine, "3", "datastore2", "test vm (copy)/test vm (copy).vmx"},
      {"1698   vCLS   [] /var/run/crx/vCLS/vCLS.vmx   crxSys1Guest", VmListing::kMachine, "1698",
       "", "/var/run/crx/vCLS/vCLS.vmx"},
      // Without ".vmx" the path runs to the end of the line.
      {"7 x [ds] dir/file.cfg  g", VmListing::kMachine, "7", "ds", "dir/file.cfg  g"},
      // Note continuations: the first column is no non-zero number.
      {"Owner: ops team", VmListing::kContinuation, "Owner:", "", ""},
      {"0 zero [ds] a/a.vmx", VmListing::kContinuation, "0", "", ""},
      // No blank at all ends the listing.
      {"Owner:ops", VmListing::kEnd, "", "", ""},
      {"", VmListing::kEnd, "", "", ""},
  };
  for (const Case& c : cases) {
    const VmListing vm = storage::parse_vm_line(c.line);
    EXPECT_EQ(vm.kind, c.kind) << c.line;
    EXPECT_EQ(vm.id + "|" + vm.datastore + "|" + vm.relative,
              std::string(c.id) + "|" + c.datastore + "|" + c.relative);
  }
  // A numbered line without "]" has no path start: the cut fails.
  EXPECT_THROW(storage::parse_vm_line("2019 was the upgrade"), std::out_of_range);
}

TEST(StorageVmListing, ContinuationsAndUnknownDatastores) {
  TempDir root;
  root.mkdir("web01");
  root.write("web01/web01.vmx", "displayName = \"web01\"\n");
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  ztag* ds = doc.top()
                 ->child("Storage")
                 ->child("Logical-disks")
                 ->child("partition:1", zvalue("datastore1"));
  ds->set_attr("mount-point", zvalue(root.path()));
  // web01 is found and read; db01's .vmx is missing; datastore2 is unknown.
  // The second line of web01's note makes no machine.
  scanner->record_vms(read_fixture("esxi-samples/vim-cmd_vmsvc+getallvms.esxi6x."
                                   "multiline-annotation.reconstructed.txt"),
                      &doc);
  EXPECT_EQ(
      tree_text(doc.top()->find_child("VMs")),
      "+VMs=\n+vm:1=web01\n~kind=other\nvm-id=1\n"
      "vm-conf-file=" +
          root.path() +
          "/web01/web01.vmx\n"
          "vm-version=\nvm-guest-os-type=\n"
          "vm-current-stor-size=0.0\n~units=MB\n~base-value=0\n"
          "vm-current-size=0.0\n~units=MB\n~base-value=22\n"
          "+Devices=\nvm-memory-size=\nvm-processors=\n~complex=\n"
          "*vm-processors=\n~field-source=\ntotal-cores=1\ncpu-count=1\ncores-per-cpu=1\n-\n-\n"
          "*vm:2=\nvm-id=2\nvm-conf-file=" +
          root.path() +
          "/db01/db01.vmx\nvm-state=3\n"
          "*vm:3=\nvm-id=3\nvm-state=3\n-\n");
}

TEST(StorageVmListing, NumbersFillTheFirstGap) {
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  ztag* vms = doc.top()->child("VMs");
  for (const char* name : {"vm:1", "vm:3", "vm:05"}) vms->child(name);  // vm:05 is not "%d"
  scanner->record_vms("Vmid Name File\n7 a [x] a.vmx\n8 b [x] b.vmx\n9 c [x] c.vmx\n", &doc);
  std::string names;
  for (const auto& c : vms->children()) names += c->name() + " ";
  EXPECT_EQ(names, "vm:1 vm:3 vm:05 vm:2 vm:4 vm:5 ");
}

TEST(StorageVmx, KeyLookupQuirks) {
  const std::string vmx =
      "xguestOS = \"shadow\"\nguestOS = \"rhel6-64\"\n"
      "displayName = \"first\"\ndisplayName = \"second\"\nmemSize = \"1024\"\n";
  EXPECT_EQ(storage::vmx_value(vmx, "guestOS"), "shadow");  // inside a longer key
  EXPECT_EQ(storage::vmx_value(vmx, "displayName"), "first");
  EXPECT_EQ(storage::vmx_value(vmx, "memsize"), "");  // case matters
}

TEST(StorageVmConfig, AdaptersProcessorsAndSizes) {
  TempDir dir;
  const std::string vmx =
      "displayName = \"nets\"\nnumvcpus = \"6\"\ncpuid.coresPerSocket = \"0\"\n"
      "annotation = \"a|0Ab|0A|0Ac\"\n"
      "ethernet0.present = \"TRUE\"\nethernet0.linkStatePropagation.enable = \"TRUE\"\n"
      "ethernet0.address = \"00:50:56:aa:bb:cc\"\n"
      "ethernet1.present = \"FALSE\"\nethernet1.generatedAddress = \"00:0c:29:00:00:01\"\n"
      "ethernet3.present = \"TRUE\"\nethernet3.connectionType = \"custom\"\n"
      "ethernet3.vnet = \"vmnet2\"\nethernet3.addressType = \"generated\"\n"
      "ethernet3.generatedAddress = \"00:0c:29:12:34:56\"\n"
      "ethernet14.present = \"TRUE\"\nethernet14.connectionType = \"nat\"\n"
      "ethernet15.present = \"TRUE\"\nethernet15.generatedAddress = \"00:0c:29:ff:ff:ff\"\n";
  dir.write("nets.vmx", vmx);
  dir.write("filler.log", "", 524288000 - static_cast<off_t>(vmx.size()));  // 500 MB in all
  dir.mkdir("subdir");  // directories do not count
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  ztag* machine = doc.top()->child("vm:1");
  scanner->process_vm(dir.dir() + "nets.vmx", machine, 0);
  // A coresPerSocket of 0 counts one core per socket. Slot 14 is the last
  // adapter read; slot 15 is never looked at.
  EXPECT_EQ(tree_text(machine),
            "+vm:1=nets\n~kind=other\nvm-version=\nvm-guest-os-type=\n"
            "vm-current-stor-size=0.0\n~units=MB\n~base-value=0\n"
            "vm-current-size=500.0\n~units=MB\n~base-value=524288000\n"
            "vm-notes=a b  c\n"
            "+Devices=\nvm-memory-size=\nvm-processors=\n~complex=\n"
            "*vm-processors=\n~field-source=\ntotal-cores=6\ncpu-count=6\ncores-per-cpu=0\n"
            "*net:1=\nconn-type=bridged\naddr-type=\nmac-address=00-50-56-AA-BB-CC\n"
            "link-state-propagation=1\n"
            "*net:2=\nconn-type=custom\naddr-type=generated\nmac-address=00-0C-29-12-34-56\n"
            "vnet=vmnet2\n"
            "*net:3=\nconn-type=nat\naddr-type=\nmac-address=\n-\n-\n");
  // An empty or missing configuration adds nothing.
  dir.write("empty.vmx", "");
  ztag* other = doc.top()->child("vm:2");
  scanner->process_vm(dir.dir() + "empty.vmx", other, 0);
  scanner->process_vm(dir.dir() + "missing.vmx", other, 0);
  EXPECT_EQ(tree_text(other), "*vm:2=\n");
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
      "ide0:1.present = \"TRUE\"\nide0:1.deviceType = \"cdrom-raw\"\n"
      "ide0:1.autodetect = \"FALSE\"\n"
      // Not present, or not a CD-ROM.
      "ide1:0.present = \"FALSE\"\nide1:0.deviceType = \"cdrom-image\"\n"
      "ide1:0.fileName = \"/iso/off.iso\"\n"
      "ide1:1.present = \"TRUE\"\nide1:1.deviceType = \"ata-hardDisk\"\n"
      "ide1:1.fileName = \"disk.vmdk\"\n"
      "ide14:14.present = \"TRUE\"\nide14:14.deviceType = \"cdrom-image\"\n"
      "ide14:14.fileName = \"/iso/last.iso\"\n";
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  ztag* devices = doc.top()->child("Devices");
  int counter = 0;
  scanner->scan_vm_cdroms(devices, vmx, "scsi", counter);
  scanner->scan_vm_cdroms(devices, vmx, "ide", counter);
  EXPECT_EQ(counter, 3);
  EXPECT_EQ(tree_text(devices),
            "+Devices=\n"
            "*cd:1=\ninterface=SCSI\nconnection=/iso/tools.iso\n"
            "*cd:2=\ninterface=IDE\nconnection=auto detect\n"
            "*cd:3=\ninterface=IDE\nconnection=/iso/last.iso\n-\n");
}
