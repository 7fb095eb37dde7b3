// The reading of current releases: header-based tables, versions, packages,
// NIC descriptions, DNS, firewall lines, .vmx keys, disks and malformed
// input, over the real captures of releases 5.5 to 9.0.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <tuple>
#include <vector>

#include "collectors/hardware/ports_dictionary.h"
#include "collectors/hardware/processors_current.h"
#include "collectors/network/network.h"
#include "collectors/network/network_current.h"
#include "collectors/storage/storage_current.h"
#include "collectors/system/os.h"
#include "collectors/system/software_current.h"
#include "host/header_table.h"
#include "host/reading.h"
#include "test_support.h"
#include "zxml/zXML.h"

namespace {

using test_support::tree_text;

std::string sample(const std::string& name) {
  const std::string text = test_support::slurp(std::string(QS_FIXTURES) + "/esxi-samples/" + name);
  EXPECT_FALSE(text.empty()) << name;
  return text;
}

TEST(CurrentNic, DescriptionByHeaderOnEveryReleaseWithAHeader) {
  // listing, MAC of the interface, description.
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"esxcli_network_nic_list.esxi55.txt", "68:5b:35:91:47:85",
       "Broadcom Corporation NetXtreme BCM57762 Gigabit Ethernet PCIe"},
      {"esxcli_network_nic_list.esxi65.txt", "3c:18:a0:XX:XX:XX", "Unknown Unknown"},
      {"esxcli_network_nic_list.esxi6x-7x-nested-kvm.txt", "fa:16:3e:a3:d8:34",
       "Intel Corporation 82540EM Gigabit Ethernet Controller"},
      {"esxcli_network_nic_list.esxi90.txt", "00:50:56:B3:B9:89",  // any case
       "VMware Inc. vmxnet3 Virtual Ethernet Controller"},
      {"esxcfg-nics_-l.esxi70u3.txt", "88:e9:a4:6b:b8:55",  // header, no dashes
       "Mellanox Technologies MT27800 Family [ConnectX-5]"},
      {"esxcli_network_nic_list.esxi90.txt", "00:50:56:b3:b9:8a", ""},  // no such adapter
  };
  for (const auto& [file, mac, expected] : cases) {
    const std::string listing = sample(file);
    EXPECT_EQ(nic_description_by_header(listing, mac), expected) << file;
  }
  // The default reading finds nothing where Admin/Link Status push the MAC
  // out of column 7.
  EXPECT_EQ(nic_description(sample("esxcli_network_nic_list.esxi90.txt"), 6, "00:50:56:b3:b9:89"),
            "");
  // No listing, no such columns, a cut-off last line.
  for (const char* listing : {"", "Name  Driver\n----  ------\nvmnic0  e1000\n",
                              "Name  MAC Address  Description\n----  -----------  ---\nx  aa  y"}) {
    EXPECT_EQ(nic_description_by_header(listing, "aa"), "") << listing;
  }
}

TEST(CurrentOs, ReleasesFromSevenOnAreReadLikeSix) {
  const std::string esxcli90 = sample("esxcli_system_version_get.esxi90.txt");
  // vmware -v, esxcli text, switch -> name|descr|update.
  const std::tuple<std::string, std::string, bool, std::string> cases[] = {
      {"VMware ESXi 9.0.0 build-24755229\n", esxcli90, true,
       "VMware ESXi 9.0.0|Releasebuild-24755229|0"},
      {sample("vmware_-vl.esxi70u3.txt"), esxcli90, true,
       "VMware ESXi 9.0.0|Releasebuild-24755229|0"},
      {"VMware ESXi 9.0.0 build-24755229\n", esxcli90, false, "||"},
      {sample("vmware_-v.esxi55.txt"), sample("esxcli_system_version_get.esxi55.txt"), true,
       "VMware ESXi 5.5.0|Releasebuild-3248547|3"},
      {"VMware ESX 4.1.0 build-260247", esxcli90, true, "VMware ESX 4.1.0|build-260247|"},
  };
  for (const auto& [vmware_v, esxcli, on, expected] : cases) {
    ReadingSwitches reading;
    reading.current_releases = on;
    OsInfo info;
    parse_os(vmware_v, esxcli, info, reading);
    EXPECT_EQ(info.name + "|" + info.descr + "|" + info.service_pack, expected) << vmware_v;
  }
}

TEST(CurrentSoftware, VibListsOfEveryReleaseByTheirHeader) {
  // capture, packages, first package as name|version|vendor|date.
  const std::tuple<const char*, size_t, const char*> cases[] = {
      {"esxcli_software_vib_list.esxi67.txt", 144, "net55-r8168|8.045a-napi|Realtek|2019-12-27"},
      {"esxcli_software_vib_list.esxi70.txt", 60,
       "bnxtnet|216.0.50.0-4vmw.700.1.0.15843807|VMW|2020-04-03"},
      {"esxcli_software_vib_list.esxi90.txt", 112,
       "atlantic|1.0.3.0-15vmw.900.0.24755229|VMW|2025-12-06"},
  };
  for (const auto& [file, count, first] : cases) {
    std::vector<int> skipped;
    const std::vector<VibRecord> p = parse_vib_table(sample(file), &skipped);
    ASSERT_EQ(p.size(), count) << file;
    EXPECT_TRUE(skipped.empty()) << file;
    EXPECT_EQ(p[0].name + "|" + p[0].version + "|" + p[0].vendor + "|" + p[0].install_date, first);
  }

  // A name without the text after it and a cut-off line are skipped and
  // reported; the written packages read as in the default reading.
  const std::string text =
      "Name  Version  Vendor  Acceptance Level  Install Date  Platforms\n"
      "----  -------  ------  ----------------  ------------  ---------\n"
      "zeta  1.0-1    VMW     VMwareCertified   2025-12-06    host\n"
      "lone\n"
      "alfa  2.0-1    My Co   PartnerSupported  2024-01-02    host,embeddedOs\n"
      "beta  3.0\n";
  std::vector<int> skipped;
  const std::vector<VibRecord> p = parse_vib_table(text, &skipped);
  EXPECT_EQ(skipped, (std::vector<int>{2, 4}));
  zXML doc(true, "Snapshot");
  record_vib_table(doc.top(), p, skipped);
  EXPECT_EQ(tree_text(doc.top()->find_child("Software")),
            "+Software=\nWarning:1=\n~type=malformed_input\n~source=esxcli software vib list\n"
            "~skipped=package line 2: shorter than its columns\nWarning:2=\n"
            "~type=malformed_input\n~source=esxcli software vib list\n"
            "~skipped=package line 4: shorter than its columns\n"
            "*Soft:zeta 1.0-1=zeta\nversion=1.0-1\npublisher=VMW\n"
            "inst-date=20251206000000.000000+000\n*Soft:alfa 2.0-1=alfa\nversion=2.0-1\n"
            "publisher=My Co\ninst-date=20240102000000.000000+000\n-\n");
  EXPECT_TRUE(parse_vib_table("", nullptr).empty());
}

TEST(CurrentNetwork, NameserversWhateverTheAdapterPassDid) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {sample("resolv.conf.esxi.reconstructed.txt"), {"192.168.10.1", "192.168.10.2"}},
      {"# nameserver 10.0.0.9\nnameservers 10.0.0.8\n  nameserver\t10.0.0.1  # lab\n"
       "options nameserver\nnameserver 10.0.0.2",  // last line without "\n"
       {"10.0.0.1", "10.0.0.2"}},
      {"", {}},
  };
  for (const auto& [resolv, servers] : cases) EXPECT_EQ(parse_nameservers(resolv), servers);
}

TEST(CurrentNetwork, FirewallLineWithoutTextAfterItsNameIsSkipped) {
  std::vector<int> skipped;
  const auto rules =
      parse_firewall_rules(sample("esxcli_network_firewall_ruleset_list.esxi65.txt"), &skipped);
  ASSERT_EQ(rules.size(), 43u);
  EXPECT_TRUE(skipped.empty());
  EXPECT_EQ(rules[0].name, "sshServer");
  EXPECT_TRUE(rules[0].enabled);
  EXPECT_FALSE(rules[1].enabled);

  const std::string text = "Name  Enabled\n----  -------\nsshServer  true\nbroken\nnfs  false\n";
  const auto some = parse_firewall_rules(text, &skipped);
  EXPECT_EQ(skipped, std::vector<int>{2});
  zXML safe(true, "Snapshot");
  record_firewall_rules(some, skipped, safe.top());
  const ztag* firewall = safe.top()->child("Security")->child("Firewall");
  EXPECT_EQ(firewall->find_child("rule:1")->value()->as_text(), "nfs");
  EXPECT_EQ(*firewall->find_attr("Warning:1")->meta.find("skipped"),
            "ruleset line 2: no text after the name");
  // The default reading ends the scan on that line.
  zXML strict(true, "Snapshot");
  EXPECT_THROW(record_firewall(text, strict.top()), std::out_of_range);
}

TEST(CurrentVmx, KeysInAnyCaseAtTheStartOfALine) {
  const std::string vmx = sample("vmx/esxi-ubuntu64-vmx11.vmx");
  const storage::VmxKeys any(vmx, true);
  const storage::VmxKeys exact(vmx, false);
  // key -> value in any case, value in the default reading.
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"memsize", "1024", ""},
      {"memSize", "1024", "1024"},
      {"SATA0:0.FILENAME",
       "/vmfs/volumes/636a25ed-0b37afee-60ef-3cfdfe75e770/ISO/ubuntu-22.04.1-live-server-amd64.iso",
       ""},
      {"scsi0:0.fileName", "test flo_0-000004.vmdk", "test flo_0-000004.vmdk"},
      {"cpuid.coresPerSocket", "", ""},
  };
  for (const auto& [key, in_any_case, by_default] : cases) {
    EXPECT_EQ(any.value(key), in_any_case) << key;
    EXPECT_EQ(exact.value(key), by_default) << key;
  }
  EXPECT_TRUE(any.mentions_controller("sata", 0));
  EXPECT_FALSE(any.mentions_controller("nvme", 0));

  // Whole keys only: a longer key that ends the same way is not the key.
  const std::string text = "sched.displayName = \"wrong\"\n  DisplayName = \"right\"\nx = 1\n";
  EXPECT_EQ(storage::VmxKeys(text, true).value("displayName"), "right");
  EXPECT_EQ(storage::VmxKeys(text, false).value("displayName"), "wrong");
}

TEST(CurrentDisks, ControllersThinFlagAndAllocatedSize) {
  EXPECT_EQ(storage::disk_controllers(false).size(), 2u);
  EXPECT_STREQ(storage::disk_controllers(true)[3], "nvme");

  const std::string thick = sample("vmdk/vmfs.sql.vmdk");
  std::string thin = thick;
  thin.insert(thin.find("ddb.uuid"), "ddb.thinProvisioned = \"1\"\n");
  EXPECT_FALSE(storage::is_thin_descriptor(thick));
  EXPECT_TRUE(storage::is_thin_descriptor(thin));
  // createType, thin -> preallocated, single-file.
  const std::tuple<const char*, bool, int, int> flags[] = {
      {"vmfs", true, 0, 1},
      {"vmfs", false, 1, 1},
      {"monolithicFlat", true, 0, 1},
      {"custom", true, -1, -1},
  };
  for (const auto& [type, is_thin, pre, single] : flags) {
    const storage::DiskFlags f = storage::disk_flags(type, is_thin);
    EXPECT_EQ(f.preallocated, pre) << type;
    EXPECT_EQ(f.single_file, single) << type;
  }
  EXPECT_EQ(storage::allocated_bytes(live_host(), "/nonexistent/disk-flat.vmdk"), 0u);
  EXPECT_EQ(storage::allocated_bytes(live_host(), "/tmp"), 0u);  // a directory
}

TEST(CurrentMalformed, ShortLinesAndZeroCoresPerSocketAreReadSafely) {
  for (const char* file : {"esxcli_storage_vmfs_extent_list.esxi90.txt",
                           "esxcli_storage_vmfs_extent_list.esxi67.txt"}) {
    const std::vector<std::string> lines = storage::table_lines(sample(file));
    ASSERT_FALSE(lines.empty());
    storage::ExtentColumns safe;
    ASSERT_TRUE(storage::extent_columns_safe(lines[0], &safe)) << file;
    const storage::ExtentColumns strict = storage::extent_columns(lines[0]);
    EXPECT_EQ(safe.device + "|" + safe.partition, strict.device + "|" + strict.partition);
  }
  storage::ExtentColumns cols;
  for (const char* line :
       {"", "vol uuid 0", "vol uuid 0 mpx.vmhba0:C0:T0:L0", "vol uuid 0 dev  "}) {
    EXPECT_FALSE(storage::extent_columns_safe(line, &cols)) << line;
  }

  const std::string listing = sample("vim-cmd_vmsvc+getallvms.esxi90.txt");
  EXPECT_TRUE(storage::vm_line_has_path(listing.substr(listing.find("1698"))));
  EXPECT_FALSE(storage::vm_line_has_path("12   web   [datastore1]"));
  EXPECT_FALSE(storage::vm_line_has_path("12   web   no path"));

  // text -> cores per socket, corrected.
  const std::tuple<const char*, int64_t, bool> cores[] = {
      {"", 1, false}, {"4", 4, false}, {"0", 1, true}, {"-2", 1, true}, {"x", 1, true}};
  for (const auto& [text, value, corrected] : cores) {
    bool was_corrected = false;
    EXPECT_EQ(storage::cores_per_socket(text, &was_corrected), value) << text;
    EXPECT_EQ(was_corrected, corrected) << text;
  }
}

TEST(CurrentMalformed, FewerProcessorRecordsThanPackages) {
  const std::string dump = sample("smbiosDump.esxi55.reconstructed.txt");
  EXPECT_EQ(processor_blocks(dump, 2).size(), 2u);
  EXPECT_EQ(processor_blocks(dump, 1).size(), 1u);
  EXPECT_EQ(processor_blocks(dump, 4).size(), 2u);
  EXPECT_TRUE(processor_blocks("no records", 2).empty());

  PortsDictionary dictionary;
  // The same two processors as the default reading, plus the warning.
  zXML safe(true, "Snapshot");
  zXML strict(true, "Snapshot");
  CpuCounts two{2, 20, 40};
  record_processors(dump, two, strict.top(), dictionary);
  CpuCounts four{4, 20, 40};
  record_processors_safe(dump, four, safe.top(), dictionary);
  const ztag* processors = safe.top()->find_child("Processors");
  ASSERT_NE(processors, nullptr);
  EXPECT_EQ(processors->children().size(), 2u);
  EXPECT_EQ(
      tree_text(processors->find_child("Processor:2")).substr(0, 40),
      tree_text(strict.top()->find_child("Processors")->find_child("Processor:2")).substr(0, 40));
  EXPECT_EQ(*processors->find_attr("Warning:1")->meta.find("skipped"),
            "processor records: 2 of 4 found");
  zXML none(true, "Snapshot");
  EXPECT_THROW(record_processors("no records", two, none.top(), dictionary), std::out_of_range);
}

TEST(CurrentOption, BothSpellingsExactly) {
  ReadingSwitches reading;
  for (const char* other : {"/CURRENT", "--current", "/current:", "current", "/silent"}) {
    EXPECT_FALSE(apply_reading_option(other, &reading)) << other;
  }
  EXPECT_FALSE(reading.dns_always);
  EXPECT_TRUE(apply_reading_option("-current", &reading));
  EXPECT_TRUE(is_current_option("/current"));
  EXPECT_TRUE(reading.current_releases && reading.skip_malformed && reading.vmx_keys_any_case);
  EXPECT_TRUE(esxcli_release(9, reading));
  EXPECT_FALSE(esxcli_release(9, ReadingSwitches()));
}

}  // namespace
