// Asset summary stages on snapshot trees with what the simulated hosts
// lack: virtual machines, mobile processors, a root file system.
#include "summary/asset_stages.h"

#include <gtest/gtest.h>

#include <string>

#include "collectors/hardware/ports_dictionary.h"
#include "test_support.h"
#include "zxml/zXML.h"

using test_support::tree_text;

// virtual-type from the system node's model and maker, read only when the
// host has smbiosDump.
TEST(AssetStages, VirtualType) {
  const struct {
    const char *model, *manuf;
    bool has_smbios, xen;
    const char* expected;
  } cases[] = {
      {"VMware Virtual Platform", "VMware, Inc.", true, false, "nvtVMware"},  // nested ESXi
      {"VMware Virtual Platform", "VMware, Inc.", false, false, "nvtPhysical"},
      {"VMWARE7,1", "VMWARE", true, true, "nvtVMware"},  // case-blind, ahead of the Xen flag
      {"Virtual Machine", "Microsoft Corporation", true, false, "nvtVirtualPC"},
      {"VirtualBox", "innotek GmbH", true, false, "nvtVirtualBox"},  // not Microsoft's
      {"Parallels Virtual Platform", "Parallels Inc.", true, false, "nvtParallels"},
      {"VMware Virtual Platform", "Dell Inc.", true, false, "nvtPhysical"},  // both names needed
      {"HVM domU", "Xen", true, true, "nvtXen"},
      {nullptr, "VMware, Inc.", true, false, "nvtPhysical"},  // a model that is not a text
  };
  for (const auto& c : cases) {
    zXML snapshot(true, "Snapshot");
    ztag* system = snapshot.top()->child("System")->child("Computer-system");
    system->set_attr("manuf", zvalue(c.manuf));
    system->set_attr("model", c.model ? zvalue(c.model) : zvalue(static_cast<long long>(7)));
    zXML asset(true, "AssetInfo");
    asset_classification(asset.top(), snapshot.top(), c.has_smbios, c.xen);
    EXPECT_EQ(tree_text(asset.top()),
              std::string("*AssetInfo=\nasset-type=natESX\nvirtual-type=") + c.expected + "\n")
        << c.manuf << " / " << c.has_smbios;
  }
}

TEST(AssetStages, SmbiosIdentityUsesTheNumberedRecords) {
  // No system serial: the board's must not be taken for it.
  SmbiosIdentity id = read_smbios_identity(
      "  System Info: #1\n  Board Info: #2\n    Manufacturer: \"Board\"\n    Serial: \"B-1\"\n"
      "  Chassis Info: #3\n    Manufacturer: \"Chassis \"Division\"\n  Processor Info: #4\n");
  EXPECT_EQ(id.system_serial + "|" + id.board_manuf + "|" + id.chassis_manuf, "|Board|Chassis ");
}

TEST(AssetStages, MobileProcessorSwitchesBothIconsInPlace) {
  // The name is cleaned before the test: double blanks and trademarks go.
  zXML snapshot(true, "Snapshot");
  snapshot.top()
      ->child("Processors")
      ->child("Processor:1", zvalue("Intel(R) Core(TM)2 Duo CPU  T7500  @ 2.20GHz"));
  zXML doc(true, "AssetInfo");
  asset_scan_types(doc.top(), "t");
  asset_processor(doc.top(), snapshot.top(), PortsDictionary());
  EXPECT_EQ(tree_text(doc.top()),
            "*AssetInfo=\nscan-type=nstSSH\nscan-subtype=sstService\nauto-icon-type=nitLinLaptop\n"
            "icon-type=nitLinLaptop\nfirst-scan=t\nlast-scan=t\nsnapshot-list=t\n"
            "snapshot-types=esx:1\ncpu-count=1\ncore-count=\ncpu-count-virtual=0\ncpu-speed=\n"
            "cpu-model=Intel Core2 Duo CPU T7500 @ 2.20GHz\ncpu-manuf=\n");
}

TEST(AssetStages, RootFileSystemPercentages) {
  auto disk = [](ztag* disks, const char* name, const char* mount, const char* size,
                 const char* free) {
    ztag* d = disks->child(name);
    d->set_attr("mount-point", zvalue(mount));
    d->set_attr("size", zvalue("-"), "base-value", size);
    d->set_attr("free", zvalue("-"), "base-value", free);
    return d;
  };
  // Root size and free bytes, and the percentages; a /boot disk comes first.
  const char* const cases[][3] = {
      {"8589934592", "2147483648", "used%=75\nfree%=25\n"},
      {"0", "0", "used%=0\nfree%=0\n"},  // a size of zero has nothing to divide by
  };
  for (const auto& c : cases) {
    zXML snapshot(true, "Snapshot");
    ztag* disks = snapshot.top()->child("Storage")->child("Logical-disks");
    ztag* boot = disk(disks, "disk:1", "/boot", "100", "100");
    ztag* root = disk(disks, "disk:2", "/", c[0], c[1]);
    zXML doc(true, "AssetInfo");
    asset_storage(doc.top(), snapshot.top());
    EXPECT_EQ(tree_text(doc.top()), std::string("*AssetInfo=\n") + c[2]);
    // Only the summarised disk is marked.
    EXPECT_EQ(asset_attr_text(root, "sys") + "|" + asset_attr_text(boot, "sys"), "1|");
  }
}
