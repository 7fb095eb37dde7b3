// Asset summary stages on snapshot trees built the way the collectors
// write them.
#include "summary/asset_stages.h"

#include <gtest/gtest.h>

#include <string>

#include "collectors/hardware/ports_dictionary.h"
#include "sys_tree_text.h"
#include "zxml/zXML.h"

namespace {

const char kDump[] =
    "  BIOS Info: #0\n"
    "    Vendor: \"Cisco Systems, Inc.\"\n"
    "  System Info: #1\n"
    "    Manufacturer: \"Cisco Systems Inc\"\n"
    "    Product: \"UCSC-C220-M4S\"\n"
    // No serial here: the board's must not be taken for it.
    "  Board Info: #2\n"
    "    Manufacturer: \"Cisco Board Works\"\n"
    "    Serial: \"BOARD-SERIAL\"\n"
    "  Chassis Info: #3\n"
    "    Manufacturer: \"Cisco Chassis \"Division\"\n"
    "  Processor Info: #4\n";

}  // namespace

TEST(AssetStages, VirtualTypeFromModelAndMaker) {
  struct Case {
    const char* model;
    const char* manuf;
    bool xen;
    const char* expected;
  };
  const Case cases[] = {
      {"VMware Virtual Platform", "VMware, Inc.", false, "nvtVMware"},
      {"VMWARE7,1", "VMWARE", true, "nvtVMware"},
      {"Virtual Machine", "Microsoft Corporation", false, "nvtVirtualPC"},
      // "virtual" is in the model, but the maker is not Microsoft.
      {"VirtualBox", "innotek GmbH", false, "nvtVirtualBox"},
      {"Parallels Virtual Platform", "Parallels Software International Inc.", false,
       "nvtParallels"},
      // Both names are needed.
      {"VMware Virtual Platform", "Dell Inc.", false, "nvtPhysical"},
      {"PowerEdge R640", "Dell Inc.", false, "nvtPhysical"},
      {"HVM domU", "Xen", true, "nvtXen"},
      {"", "", false, "nvtPhysical"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(virtual_type(c.model, c.manuf, c.xen), c.expected) << c.model << " / " << c.manuf;
  }
}

TEST(AssetStages, ClassificationNeedsTheDumpToolAndTextNames) {
  zXML nested(true, "Snapshot");
  ztag* system = nested.top()->child("System")->child("Computer-system");
  system->set_attr("manuf", zvalue("VMware, Inc."));
  system->set_attr("model", zvalue("VMware Virtual Platform"));

  zXML asset(true, "AssetInfo");
  asset_classification(asset.top(), nested.top(), true, false);
  EXPECT_EQ(tree_text(asset.top()), "*AssetInfo=\nasset-type=natESX\nvirtual-type=nvtVMware\n");

  zXML without_tool(true, "AssetInfo");
  asset_classification(without_tool.top(), nested.top(), false, false);
  EXPECT_EQ(tree_text(without_tool.top()),
            "*AssetInfo=\nasset-type=natESX\nvirtual-type=nvtPhysical\n");

  // A model that is not a text counts as "".
  system->set_attr("model", zvalue(static_cast<long long>(7)));
  zXML numeric(true, "AssetInfo");
  asset_classification(numeric.top(), nested.top(), true, false);
  EXPECT_EQ(tree_text(numeric.top()), "*AssetInfo=\nasset-type=natESX\nvirtual-type=nvtPhysical\n");

  zXML empty(true, "Snapshot");
  zXML xen(true, "AssetInfo");
  asset_classification(xen.top(), empty.top(), true, true);
  EXPECT_EQ(tree_text(xen.top()), "*AssetInfo=\nasset-type=natESX\nvirtual-type=nvtXen\n");
}

TEST(AssetStages, SmbiosIdentityUsesTheNumberedRecords) {
  SmbiosIdentity id = read_smbios_identity(kDump);
  EXPECT_EQ(id.system_serial, "");
  EXPECT_EQ(id.board_manuf, "Cisco Board Works");
  EXPECT_EQ(id.chassis_manuf, "Cisco Chassis ");

  SmbiosIdentity none = read_smbios_identity("");
  EXPECT_EQ(none.system_serial + none.board_manuf + none.chassis_manuf, "");
}

TEST(AssetStages, MobileProcessorSwitchesBothIconsInPlace) {
  PortsDictionary dictionary;
  struct Case {
    const char* name;
    const char* icon;
    const char* model;
  };
  const Case cases[] = {
      // The name is cleaned before the test: the double blank and the
      // trademarks go.
      {"Intel(R) Core(TM)2 Duo CPU  T7500  @ 2.20GHz", "nitLinLaptop",
       "Intel Core2 Duo CPU T7500 @ 2.20GHz"},
      {"AMD Turion(tm) 64 X2 Mobile", "nitLinLaptop", "AMD Turion 64 X2 Mobile"},
      {"Intel(R) Xeon(R) CPU E5520 @ 2.27GHz", "nitESXServer", "Intel Xeon CPU E5520 @ 2.27GHz"},
  };
  for (const Case& c : cases) {
    zXML snapshot(true, "Snapshot");
    snapshot.top()->child("Processors")->child("Processor:1", zvalue(c.name));
    zXML doc(true, "AssetInfo");
    asset_scan_types(doc.top(), "t");
    asset_processor(doc.top(), snapshot.top(), dictionary);
    EXPECT_EQ(tree_text(doc.top()),
              std::string("*AssetInfo=\nscan-type=nstSSH\nscan-subtype=sstService\n") +
                  "auto-icon-type=" + c.icon + "\nicon-type=" + c.icon +
                  "\nfirst-scan=t\nlast-scan=t\nsnapshot-list=t\nsnapshot-types=esx:1\n"
                  "cpu-count=1\ncore-count=\ncpu-count-virtual=0\ncpu-speed=\ncpu-model=" +
                  c.model + "\ncpu-manuf=\n")
        << c.name;
  }
}

TEST(AssetStages, RootFileSystemPercentages) {
  zXML snapshot(true, "Snapshot");
  ztag* disks = snapshot.top()->child("Storage")->child("Logical-disks");
  ztag* boot = disks->child("disk:1", zvalue("boot"));
  boot->set_attr("mount-point", zvalue("/boot"));
  boot->set_attr("size", zvalue("1.00"), "base-value", "1073741824");
  boot->set_attr("free", zvalue("1.00"), "base-value", "1073741824");
  ztag* root = disks->child("disk:2", zvalue("root"));
  root->set_attr("mount-point", zvalue("/"));
  root->set_attr("size", zvalue("8.00"), "base-value", "8589934592");
  root->set_attr("free", zvalue("2.00"), "base-value", "2147483648");

  zXML doc(true, "AssetInfo");
  asset_storage(doc.top(), snapshot.top());
  EXPECT_EQ(tree_text(doc.top()), "*AssetInfo=\nused%=75\nfree%=25\n");
  EXPECT_EQ(tree_text(root),
            "*disk:2=root\nmount-point=/\nsize=8.00\n~base-value=8589934592\n"
            "free=2.00\n~base-value=2147483648\nsys=1\n");
  EXPECT_EQ(boot->find_attr("sys"), nullptr);

  // A size of zero has nothing to divide by.
  zXML snapshot2(true, "Snapshot");
  ztag* d = snapshot2.top()->child("Storage")->child("Logical-disks")->child("disk:1");
  d->set_attr("mount-point", zvalue("/"));
  d->set_attr("size", zvalue("0"), "base-value", "0");
  d->set_attr("free", zvalue("0"), "base-value", "0");
  zXML doc2(true, "AssetInfo");
  asset_storage(doc2.top(), snapshot2.top());
  EXPECT_EQ(tree_text(doc2.top()), "*AssetInfo=\nused%=0\nfree%=0\n");
}

TEST(AssetStages, MonitorFieldsWhenAVideoNodeExists) {
  zXML snapshot(true, "Snapshot");
  ztag* monitor = snapshot.top()->child("Video")->child("Monitors")->child("Monitor:1");
  monitor->set_attr("max-resolution", zvalue("1920x1080"));
  monitor->set_attr("max-visible-image-size", zvalue("52 x 29"));
  snapshot.top()
      ->child("Video")
      ->child("Video-devices")
      ->child("Video-adapter:1")
      ->set_attr("ram", zvalue("16"));
  zXML doc(true, "AssetInfo");
  asset_video(doc.top(), snapshot.top());
  asset_monitor_and_capacity(doc.top(), snapshot.top(), "0.0");
  // sqrt(52^2 + 29^2) cm = 59.5 cm = 23.4 inches.
  EXPECT_EQ(tree_text(doc.top()),
            "*AssetInfo=\nvideo-ram=16\nvideo-res=1920x1080\nmonitor-count=1\nmonitor-diag=23\n"
            "hdd-capacity=0.0\n");

  monitor->set_attr("diagonal", zvalue("24"));
  monitor->set_attr("max-visible-image-size", zvalue("garbage"));
  zXML doc2(true, "AssetInfo");
  asset_monitor_and_capacity(doc2.top(), snapshot.top(), "1.5");
  EXPECT_EQ(tree_text(doc2.top()),
            "*AssetInfo=\nvideo-res=1920x1080\nmonitor-count=1\nmonitor-diag=24\n"
            "hdd-capacity=1.5\n");
}

TEST(AssetStages, FirewallAndHostNameFallback) {
  zXML doc(true, "AssetInfo");
  doc.top()->set_attr("hostname", zvalue(""));
  doc.top()->set_attr("ip-address", zvalue("10.0.0.5"));
  asset_firewall(doc.top(), true);
  asset_hostname_fallback(doc.top(), [] { return std::string("esx-01.lab.local\n"); });
  EXPECT_EQ(tree_text(doc.top()),
            "*AssetInfo=\nhostname=esx-01\nip-address=10.0.0.5\nfw-status=5\n");

  int asked = 0;
  zXML named(true, "AssetInfo");
  named.top()->set_attr("hostname", zvalue("ESX67-LAB"));
  asset_hostname_fallback(named.top(), [&] {
    ++asked;
    return std::string("other\n");
  });
  EXPECT_EQ(asked, 0);
  EXPECT_EQ(tree_text(named.top()), "*AssetInfo=\nhostname=ESX67-LAB\n");

  zXML no_dot(true, "AssetInfo");
  asset_firewall(no_dot.top(), false);
  asset_hostname_fallback(no_dot.top(), [] { return std::string("esxhost\nsecond\n"); });
  EXPECT_EQ(tree_text(no_dot.top()), "*AssetInfo=\nfw-status=1\nhostname=esxhost\n");
}
