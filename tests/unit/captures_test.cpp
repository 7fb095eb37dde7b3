// The parsers over real tool output (tests/fixtures/esxi-samples): one row
// per capture, the expected figures counted from the capture by hand, and
// always a row for empty output.
#include <gtest/gtest.h>

#include <string>

#include "collectors/network/network.h"
#include "collectors/storage/storage.h"
#include "collectors/system/os.h"
#include "collectors/system/software.h"
#include "test_support.h"
#include "zxml/zXML.h"

namespace {

std::string capture(const std::string& name) {
  const std::string text = name.empty() ? "" : test_support::fixture(name);
  EXPECT_EQ(text.empty(), name.empty()) << name;
  return text;
}

size_t children(const ztag* node) {
  return node == nullptr ? 0 : node->children().size();
}

struct Row {
  const char* file;  // "" for empty output
  long long want;
};

TEST(Captures, FirewallRulesets) {
  // Without the dashed header every line is a ruleset.
  for (const Row& r :
       {Row{"esxcli_network_firewall_ruleset_list.esxi65.txt", 43},
        Row{"esxcli_network_firewall_ruleset_list.esxi55.awk-enabled-only.txt", 25}, Row{"", 0}}) {
    zXML doc(true, "Snapshot");
    record_firewall(capture(r.file), doc.top());
    EXPECT_EQ(children(doc.top()->find_child("Security")->find_child("Firewall")), r.want)
        << r.file;
  }
}

TEST(Captures, FileSystemsAndExtents) {
  // Volume names that are empty or hold a blank leave a line out.
  for (const Row& r : {Row{"esxcli_storage_filesystem_list.esxi55.txt", 2},
                       Row{"esxcli_storage_filesystem_list.esxi67.txt", 1},
                       Row{"esxcli_storage_filesystem_list.esxi6x-nfs.txt", 5},
                       Row{"esxcli_storage_filesystem_list.esxi90.txt", 3}, Row{"", 0}}) {
    zXML doc(true, "Snapshot");
    double size = 0, free = 0;
    storage::record_filesystems(capture(r.file), &doc, &size, &free);
    const ztag* storage_node = doc.top()->find_child("Storage");
    EXPECT_EQ(storage_node == nullptr ? 0 : children(storage_node->find_child("Logical-disks")),
              r.want)
        << r.file;
    EXPECT_EQ(r.want == 0, size == 0) << r.file;
  }
  for (const Row& r : {Row{"esxcli_storage_vmfs_extent_list.esxi55.txt", 2},
                       Row{"esxcli_storage_vmfs_extent_list.esxi67.txt", 1},
                       Row{"esxcli_storage_vmfs_extent_list.esxi6x.txt", 4},
                       Row{"esxcli_storage_vmfs_extent_list.esxi90.txt", 1}, Row{"", 0}}) {
    size_t lookups = 0;
    const auto extents = storage::read_extents(capture(r.file), [&](const std::string& device) {
      EXPECT_FALSE(device.empty());
      ++lookups;
      return std::string("   Size: 1024\n");
    });
    EXPECT_EQ(static_cast<long long>(extents.size()), r.want) << r.file;
    EXPECT_EQ(static_cast<long long>(lookups), r.want) << r.file;
  }
}

TEST(Captures, SoftwareBundles) {
  for (const Row& r : {Row{"esxcli_software_vib_list.esxi67.txt", 144},
                       Row{"esxcli_software_vib_list.esxi70.txt", 60},
                       Row{"esxcli_software_vib_list.esxi90.txt", 112}, Row{"", 0}}) {
    zXML doc(true, "Snapshot");
    record_vib_list(doc.top(), capture(r.file));
    EXPECT_EQ(children(doc.top()->find_child("Software")), r.want) << r.file;
  }
}

TEST(Captures, VersionsAndPowerStates) {
  // major * 10 + minor; -11 for no version.
  for (const Row& r :
       {Row{"vmware_-v.esxi40.from-fullName.txt", 40}, Row{"vmware_-v.esxi55.txt", 55},
        Row{"vmware_-v.esxi65.from-comment.txt", 65}, Row{"", -11}}) {
    int major = 0, minor = 0;
    parse_vmware_version(capture(r.file), &major, &minor);
    EXPECT_EQ(major * 10 + minor, r.want) << r.file;
  }
  for (const Row& r : {Row{"vim-cmd_vmsvc+power.getstate.esx4x-6x.poweredoff.txt", 0},
                       Row{"vim-cmd_vmsvc+power.getstate.esx4x-6x.suspended.txt", 2},
                       Row{"vim-cmd_vmsvc+power.getstate_1.esxi5x.txt", 1},
                       Row{"vim-cmd_vmsvc+power.getstate_1698.esxi90.txt", 0},
                       Row{"vim-cmd_vmsvc+power.getstate_40.esxi5x-6x.txt", 0}, Row{"", -1}}) {
    EXPECT_EQ(storage::power_state(capture(r.file)), r.want) << r.file;
  }
}

TEST(Captures, NicDescriptions) {
  // The MAC must be column 7: the 5.5 and 4.x listings have it there, the
  // 6.7 listing (two status columns) has the duplex there instead.
  struct NicRow {
    const char* file;
    int major;
    const char* mac;
    const char* want;
  } rows[] = {
      {"esxcli_network_nic_list.esxi55.txt", 5, "68:5b:35:c9:96:10",
       "1500  Broadcom Corporation NetXtreme BCM57766 Gigabit Ethernet"},
      {"esxcfg-nics_-l.esxi55.txt", 4, "50:87:89:ad:47:58",
       "1500   Broadcom Corporation QLogic 5709 1000Base-T"},
      {"esxcli_network_nic_list.esxi67.txt", 6, "00:13:32:08:f7:d4", ""},
      {"", 6, "00:13:32:08:f7:d4", ""},
  };
  for (const NicRow& r : rows) {
    EXPECT_EQ(nic_description(capture(r.file), r.major, r.mac), r.want) << r.file;
  }
}

}  // namespace
