// Virtual machines: the getallvms listing, .vmx key lookup, and what one
// configuration file gives (notes, processors, adapters, CD-ROM drives).
#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>

#include "collectors/storage/storage.h"
#include "storage_test_util.h"

using storage_test::dump;
using storage_test::make_scanner;
using storage_test::read_fixture;
using storage_test::TempDir;

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
      {"1      web01            [datastore1] web01/web01.vmx                     rhel6_64Guest"
       "           vmx-08    Web server",
       VmListing::kMachine, "1", "datastore1", "web01/web01.vmx"},
      // Blanks inside names and paths.
      {"3      test vm (copy)   [datastore2] test vm (copy)/test vm (copy).vmx   otherLinux64Guest",
       VmListing::kMachine, "3", "datastore2", "test vm (copy)/test vm (copy).vmx"},
      // An empty datastore name.
      {"1698   vCLS-6b72   [] /var/run/crx/infra/vCLS-6b72/vCLS-6b72.vmx   crxSys1Guest   vmx-21",
       VmListing::kMachine, "1698", "", "/var/run/crx/infra/vCLS-6b72/vCLS-6b72.vmx"},
      // Without ".vmx" the path runs to the end of the line.
      {"7 x [ds] dir/file.cfg  g", VmListing::kMachine, "7", "ds", "dir/file.cfg  g"},
      // Annotation continuation lines: first column not a non-zero number.
      {"Owner: ops team", VmListing::kContinuation, "Owner:", "", ""},
      {"0 zero [ds] a/a.vmx", VmListing::kContinuation, "0", "", ""},
      {"   indented text", VmListing::kContinuation, "", "", ""},
      // No blank at all ends the listing.
      {"", VmListing::kEnd, "", "", ""},
      {"Owner:ops", VmListing::kEnd, "", "", ""},
  };
  for (const Case& c : cases) {
    const VmListing vm = storage::parse_vm_line(c.line);
    EXPECT_EQ(vm.kind, c.kind) << c.line;
    EXPECT_EQ(vm.id, c.id) << c.line;
    EXPECT_EQ(vm.datastore, c.datastore) << c.line;
    EXPECT_EQ(vm.relative, c.relative) << c.line;
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
  ztag* disks = doc.top()->child("Storage")->child("Logical-disks");
  ztag* ds = disks->child("partition:1", zvalue("datastore1"));
  ds->set_attr("mount-point", zvalue(root.path()));
  ds->set_attr("free", zvalue("2.00"), "base-value", "2147483648");

  // web01 is found; db01's file is missing; datastore2 is not a known file
  // system. The second line of web01's annotation is no machine.
  scanner->record_vms(
      read_fixture("esxi-samples/vim-cmd_vmsvc+getallvms.esxi6x.multiline-annotation."
                   "reconstructed.txt"),
      &doc);
  EXPECT_EQ(dump(doc.top()->find_child("VMs")),
            "+VMs=\n"
            "+vm:1=web01\n~kind=other\n"
            "vm-id=1\n"
            "vm-conf-file=" +
                root.path() +
                "/web01/web01.vmx\n"
                "vm-version=\n"
                "vm-guest-os-type=\n"
                "vm-current-stor-size=0.0\n~units=MB\n~base-value=0\n"
                "vm-current-size=0.0\n~units=MB\n~base-value=22\n"
                "+Devices=\n"
                "vm-memory-size=\n"
                "vm-processors=\n~complex=\n"
                "*vm-processors=\n~field-source=\n"
                "total-cores=1\ncpu-count=1\ncores-per-cpu=1\n"
                "-\n"
                "-\n"
                "*vm:2=\n"
                "vm-id=2\n"
                "vm-conf-file=" +
                root.path() +
                "/db01/db01.vmx\n"
                "vm-state=3\n"
                "*vm:3=\n"
                "vm-id=3\n"
                "vm-state=3\n"
                "-\n");
}

TEST(StorageVmListing, NoLogicalDisksMeansStateThree) {
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  scanner->record_vms("Vmid Name File\n5 a [ds] a/a.vmx g\n", &doc);
  EXPECT_EQ(dump(doc.top()->find_child("VMs")), "+VMs=\n*vm:1=\nvm-id=5\nvm-state=3\n-\n");
  // Header only, or no line end at all: nothing is listed.
  zXML empty(true, "Snapshot");
  scanner->record_vms("Vmid   Name   File   Guest OS   Version   Annotation\n", &empty);
  scanner->record_vms("5 a [ds] a/a.vmx g", &empty);
  EXPECT_EQ(dump(empty.top()->find_child("VMs")), "*VMs=\n");
}

TEST(StorageVmListing, NumbersFillTheFirstGap) {
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  ztag* vms = doc.top()->child("VMs");
  vms->child("vm:1");
  vms->child("vm:3");
  vms->child("vm:05");  // not the "%d" form of 5
  scanner->record_vms("Vmid Name File\n7 a [x] a.vmx\n8 b [x] b.vmx\n9 c [x] c.vmx\n", &doc);
  std::string names;
  for (const auto& c : vms->children()) names += c->name() + " ";
  EXPECT_EQ(names, "vm:1 vm:3 vm:05 vm:2 vm:4 vm:5 ");
}

TEST(StorageVmx, KeyLookupQuirks) {
  const std::string vmx =
      "xguestOS = \"shadow\"\n"
      "guestOS = \"rhel6-64\"\n"
      "displayName = \"first\"\n"
      "displayName = \"second\"\n"
      "memSize = \"1024\"\n"
      "annotation = \"unterminated\n";
  EXPECT_EQ(storage::vmx_value(vmx, "guestOS"), "shadow");  // inside a longer key
  EXPECT_EQ(storage::vmx_value(vmx, "displayName"), "first");
  EXPECT_EQ(storage::vmx_value(vmx, "memsize"), "");  // case matters
  EXPECT_EQ(storage::vmx_value(vmx, "numvcpus"), "");
  EXPECT_EQ(storage::vmx_value(vmx, "annotation"), "unterminated\n");
}

TEST(StorageVmx, SmallConversions) {
  EXPECT_EQ(storage::notes_text("a|0Ab|0A|0Ac"), "a b  c");
  EXPECT_EQ(storage::notes_text("||0AA|22"), "| A|22");
  EXPECT_EQ(storage::mac_text("00:0c:29:5f:4a:3b"), "00-0C-29-5F-4A-3B");
  EXPECT_EQ(storage::cpu_count(8, 2), 4);
  EXPECT_EQ(storage::cpu_count(3, 2), 1);
  EXPECT_EQ(storage::cpu_count(-7, 2), -3);  // truncates toward zero
  EXPECT_EQ(storage::cpu_count(4, 0), 4);    // invalid 0: one core per socket
  EXPECT_EQ(storage::cpu_count(INT64_MIN, -1), INT64_MIN);
  EXPECT_EQ(storage::power_state("Retrieved runtime info\nPowered on\n"), 1);
  EXPECT_EQ(storage::power_state("Retrieved runtime info\nPowered off\n"), 0);
  EXPECT_EQ(storage::power_state("Retrieved runtime info\nSuspended\n"), 2);
  EXPECT_EQ(storage::power_state(""), -1);
}

TEST(StorageVmConfig, RealConfigurationFile) {
  TempDir dir;
  const std::string vmx = read_fixture("esxi-samples/vmx/rhel6.reconstructed.vmx");
  const std::string descriptor =
      read_fixture("esxi-samples/vmdk/monolithicFlat.reconstructed.vmdk");
  ASSERT_FALSE(vmx.empty());
  ASSERT_FALSE(descriptor.empty());
  const off_t flat = 21474836480;  // 20 GiB, the descriptor's 41943040 sectors
  dir.write("rhel6.vmx", vmx);
  dir.write("rhel6.vmdk", descriptor);
  dir.write("rhel6-flat.vmdk", "", flat);
  dir.write("rhel6.nvram", "", 8684);
  dir.mkdir("subdir");  // directories do not count

  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  ztag* machine = doc.top()->child("VMs")->child("vm:1");
  scanner->process_vm(dir.dir() + "rhel6.vmx", machine, 556500254720ULL);

  const uint64_t disks = flat + descriptor.size();
  const uint64_t all = disks + vmx.size() + 8684;
  EXPECT_EQ(dump(machine),
            "+vm:1=rhel6\n~kind=redhat\n"
            "vm-version=8\n"
            "vm-guest-os-type=rhel6-64\n"
            "vm-current-stor-size=20.00\n~base-value=" +
                std::to_string(disks) +
                "\n"
                "vm-current-size=20.00\n~base-value=" +
                std::to_string(all) +
                "\n"
                "vm-notes=Web server for the intranet Owner: ops team |22prod|22 tier\n"
                "+Devices=\n"
                "vm-memory-size=4096\n"
                "vm-processors=\n~complex=\n"
                "*vm-processors=\n~field-source=\n"
                "total-cores=4\ncpu-count=2\ncores-per-cpu=2\n"
                // scsi0:1 names an absolute path: not a disk of this directory.
                "*hdd:1=\n"
                "interface=SCSI\n"
                "disk-file=rhel6.vmdk\n"
                "system-free=518.28\n~base-value=556500254720\n"
                "cur-size=20.00\n~base-value=21474836480\n"
                "max-size=20.00\n~base-value=21474836480\n"
                "preallocated=1\n"
                "single-file=1\n"
                // ide1 has no presence key; IDE drives are still found.
                "*cd:1=\n"
                "interface=IDE\n"
                "connection=/vmfs/volumes/4f1d2c3e-8a7b6c5d-1e2f-001b21bd6a14/iso/"
                "rhel-server-6.5-x86_64-dvd.iso\n"
                "*net:1=\n"
                "conn-type=bridged\naddr-type=generated\nmac-address=00-0C-29-5F-4A-3B\n"
                "link-state-propagation=0\n"
                // No connection type: bridged.
                "*net:2=\n"
                "conn-type=bridged\naddr-type=static\nmac-address=00-50-56-3F-12-34\n"
                "link-state-propagation=0\n"
                "-\n"
                "-\n");
}

TEST(StorageVmConfig, AdaptersProcessorsAndSizes) {
  TempDir dir;
  const std::string vmx =
      "displayName = \"nets\"\n"
      "numvcpus = \"6\"\n"
      "cpuid.coresPerSocket = \"0\"\n"
      "ethernet0.present = \"TRUE\"\n"
      "ethernet0.linkStatePropagation.enable = \"TRUE\"\n"
      "ethernet0.address = \"00:50:56:aa:bb:cc\"\n"
      "ethernet1.present = \"FALSE\"\n"
      "ethernet1.generatedAddress = \"00:0c:29:00:00:01\"\n"
      "ethernet3.present = \"TRUE\"\n"
      "ethernet3.connectionType = \"custom\"\n"
      "ethernet3.vnet = \"vmnet2\"\n"
      "ethernet3.addressType = \"generated\"\n"
      "ethernet3.generatedAddress = \"00:0c:29:12:34:56\"\n"
      "ethernet14.present = \"TRUE\"\n"
      "ethernet14.connectionType = \"nat\"\n"
      "ethernet15.present = \"TRUE\"\n"
      "ethernet15.generatedAddress = \"00:0c:29:ff:ff:ff\"\n";
  dir.write("nets.vmx", vmx);
  // 500 MB in the directory altogether.
  dir.write("filler.log", "", 524288000 - static_cast<off_t>(vmx.size()));

  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  ztag* machine = doc.top()->child("VMs")->child("vm:1");
  scanner->process_vm(dir.dir() + "nets.vmx", machine, 0);
  const std::string text = dump(machine);

  EXPECT_NE(text.find("vm-current-stor-size=0.0\n~units=MB\n~base-value=0\n"
                      "vm-current-size=500.0\n~units=MB\n~base-value=524288000\n"),
            std::string::npos)
      << text;
  // A coresPerSocket of 0 counts one core per socket.
  EXPECT_NE(text.find("total-cores=6\ncpu-count=6\ncores-per-cpu=0\n"), std::string::npos);
  const size_t nets = text.find("*net:1=");
  ASSERT_NE(nets, std::string::npos);
  EXPECT_EQ(text.substr(nets),
            "*net:1=\n"
            "conn-type=bridged\naddr-type=\nmac-address=00-50-56-AA-BB-CC\n"
            "link-state-propagation=1\n"
            "*net:2=\n"
            "conn-type=custom\naddr-type=generated\nmac-address=00-0C-29-12-34-56\n"
            "vnet=vmnet2\n"
            // Slot 14 is the last one read; slot 15 is never looked at.
            "*net:3=\n"
            "conn-type=nat\naddr-type=\nmac-address=\n"
            "-\n"
            "-\n");
}

TEST(StorageVmConfig, EmptyConfigurationWritesNothing) {
  TempDir dir;
  dir.write("empty.vmx", "");
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  ztag* machine = doc.top()->child("VMs")->child("vm:1");
  scanner->process_vm(dir.dir() + "empty.vmx", machine, 0);
  scanner->process_vm(dir.dir() + "missing.vmx", machine, 0);
  EXPECT_EQ(dump(machine), "*vm:1=\n");
}

TEST(StorageVmConfig, CdromRules) {
  const std::string vmx =
      // No scsi0.present: the SCSI drive is not looked at.
      "scsi0:3.present = \"TRUE\"\n"
      "scsi0:3.deviceType = \"cdrom-image\"\n"
      "scsi0:3.fileName = \"/iso/skipped.iso\"\n"
      "scsi1.present = \"TRUE\"\n"
      "scsi1:2.present = \"TRUE\"\n"
      "scsi1:2.deviceType = \"cdrom-image\"\n"
      "scsi1:2.fileName = \"/iso/tools.iso\"\n"
      // Autodetect without a file name.
      "ide0:0.present = \"TRUE\"\n"
      "ide0:0.deviceType = \"atapi-cdrom\"\n"
      "ide0:0.fileName = \"\"\n"
      "ide0:0.autodetect = \"TRUE\"\n"
      // No file name and no autodetect: not recorded.
      "ide0:1.present = \"TRUE\"\n"
      "ide0:1.deviceType = \"cdrom-raw\"\n"
      "ide0:1.autodetect = \"FALSE\"\n"
      // Not present, or not a CD-ROM.
      "ide1:0.present = \"FALSE\"\n"
      "ide1:0.deviceType = \"cdrom-image\"\n"
      "ide1:0.fileName = \"/iso/off.iso\"\n"
      "ide1:1.present = \"TRUE\"\n"
      "ide1:1.deviceType = \"ata-hardDisk\"\n"
      "ide1:1.fileName = \"disk.vmdk\"\n"
      "ide14:14.present = \"TRUE\"\n"
      "ide14:14.deviceType = \"cdrom-image\"\n"
      "ide14:14.fileName = \"/iso/last.iso\"\n";
  auto scanner = make_scanner();
  zXML doc(true, "Snapshot");
  ztag* devices = doc.top()->child("Devices");
  int counter = 0;
  scanner->scan_vm_cdroms(devices, vmx, "scsi", counter);
  scanner->scan_vm_cdroms(devices, vmx, "ide", counter);
  EXPECT_EQ(counter, 3);
  EXPECT_EQ(dump(devices),
            "+Devices=\n"
            "*cd:1=\ninterface=SCSI\nconnection=/iso/tools.iso\n"
            "*cd:2=\ninterface=IDE\nconnection=auto detect\n"
            "*cd:3=\ninterface=IDE\nconnection=/iso/last.iso\n"
            "-\n");
}
