// The whole asset summary over fake host tools and a snapshot built the way
// the collectors write it: stage order, values and console markers.
#include "summary/asset_info.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "app/scanner.h"
#include "spine_test_support.h"
#include "zxml/zXML.h"

namespace {

const char kDumpScript[] =
    "cat <<'EOF'\n"
    "  BIOS Info: #0\n"
    "    Vendor: \"Phoenix Technologies LTD\"\n"
    "  System Info: #1\n"
    "    Manufacturer: \"VMware, Inc.\"\n"
    "    Product: \"VMware Virtual Platform\"\n"
    "    Serial: \"VMware-56 4d 2a 1e\"\n"
    "  Board Info: #2\n"
    "    Manufacturer: \"Intel Corporation\"\n"
    "  Chassis Info: #3\n"
    "    Manufacturer: \"No Enclosure\"\n"
    "EOF\n";

// A nested ESXi: a virtual machine of VMware's that runs the hypervisor.
void build_nested_snapshot(ztag* top) {
  ztag* os = top->child("OS")->child("os:1", zvalue("VMware ESXi 6.7.0"));
  os->add_meta("kind", "esx");
  os->set_attr("name", zvalue("VMware ESXi 6.7.0"));
  os->set_attr("descr", zvalue("Releasebuild-8169922"));
  os->set_attr("architecture", zvalue("64-bit"));
  ztag* system = top->child("System")->child("Computer-system");
  system->set_attr("manuf", zvalue("VMware, Inc."));
  system->set_attr("model", zvalue("VMware Virtual Platform"));
  system->set_attr("uuid", zvalue("564D2A1E-0C4B-7E0F-3A51-9D02C4E8B7AA"));
  system->set_attr("serial", zvalue("VMware-56 4d 2a 1e"));
  ztag* cpu = top->child("Processors")
                  ->child("Processor:1", zvalue("Intel(R) Xeon(R) CPU E5-2680 v2 @ 2.80GHz"));
  cpu->set_attr("manuf", zvalue("GenuineIntel"));
  cpu->set_attr("current-clock-speed", zvalue("2800"));
  cpu->set_attr("core-count", zvalue("2"));
  top->child("Memory")
      ->child("General-Info")
      ->set_attr("physical-memory", zvalue(static_cast<long long>(8192)), "base-value",
                 "8589934592");
}

class AssetFull : public testing::Test {
 protected:
  void SetUp() override {
    mkdir((tmp / "tools").c_str(), 0755);
    mkdir((tmp / "bin").c_str(), 0755);
    spine_test::write_script(tmp / "tools/uname", "[ \"$1\" = -n ] && echo esx-nested.lab\n");
    spine_test::write_script(tmp / "tools/smbiosDump", kDumpScript);
    spine_test::write_script(tmp / "bin/smbiosDump", kDumpScript);
    spine_test::write_script(tmp / "tools/iptables", "exit 0\n");
    spine_test::write_script(tmp / "bin/whoami", "echo root\n");
  }

  spine_test::TempDir tmp;
};

TEST_F(AssetFull, NestedEsxiSummary) {
  spine_test::ScopedPath path(tmp / "bin");
  CScaner scanner(new PKGDetector({tmp / "tools"}, {"uname", "smbiosDump", "iptables"}, false),
                  new PortsDictionary());
  zXML snapshot(true, "Snapshot");
  build_nested_snapshot(snapshot.top());
  zXML doc(true, "AssetInfo");
  AssetBuild b;
  b.scanner = &scanner;
  b.snapshot = &snapshot;
  b.ip = "10.0.0.7";
  b.physical = "40.0";
  b.mac = "00-50-56-AA-BB-CC";
  b.smb_conf = "[global]\n; netbios name = OLD\n\tworkgroup = LAB\n";
  b.asset = doc.top();
  build_asset_info(b);
  std::string text = spine_test::text_of(doc.top());
  static const std::regex stamp("(first-scan|last-scan|snapshot-list)=\\d{14}\\.000000[+-]\\d+\n");
  text = std::regex_replace(text, stamp, "$1=<time>\n");
  EXPECT_EQ(text,
            "+AssetInfo=\n"
            "hostname=esx-nested\nip-address=10.0.0.7\nstatic-ip=1\nint-name=esx-nested\n"
            "alias=esx-nested\ndescription=\ncomment=\ninv-number=\nlogin=\nuser-name=root\n"
            "asset-type=natESX\nvirtual-type=nvtVMware\n"
            "scan-type=nstSSH\nscan-subtype=sstService\nauto-icon-type=nitESXServer\n"
            "icon-type=nitESXServer\nfirst-scan=<time>\nlast-scan=<time>\nsnapshot-list=<time>\n"
            "snapshot-types=esx:1\n"
            "mac-address=00-50-56-AA-BB-CC\n"
            "uuid=564D2A1E-0C4B-7E0F-3A51-9D02C4E8B7AA\n"
            "serial-number=VMware-56 4d 2a 1e\n"
            "asset-tag=\nvm-kind=vmware\ndomain-role=\nreg-user=\nreg-org=\n"
            "os-name=VMware ESXi 6.7.0\nos-sp=\nos-ver=\nos-manuf=VMware, Inc.\nos-arch=64-bit\n"
            "cpu-count=1\ncore-count=2\ncpu-count-virtual=0\ncpu-speed=2800\n"
            "cpu-model=Intel Xeon CPU E5-2680 v2 @ 2.80GHz\ncpu-manuf=GenuineIntel\n"
            "system-model=VMware Virtual Platform\nsystem-manuf=VMware, Inc.\n"
            "chassis-manuf=No Enclosure\nmb-manuf=Intel Corporation\nphys-memory=8192\n"
            "video-ram=\nvideo-res=\nmonitor-count=\nmonitor-diag=\nhdd-capacity=40.0\n"
            "used%=0\nfree%=0\nfw-status=5\n"
            "*control=\ndomain=LAB\n-\n");
  // All three scan times are the same instant.
  std::smatch m;
  std::string raw = spine_test::text_of(doc.top());
  ASSERT_TRUE(std::regex_search(raw, m,
                                std::regex("first-scan=(.*)\nlast-scan=(.*)\n"
                                           "snapshot-list=(.*)\n")));
  EXPECT_EQ(m[1], m[2]);
  EXPECT_EQ(m[1], m[3]);
}

}  // namespace
