// The capture reader: every kind of record read back byte-exact, every
// damaged or cut stream refused with one line, and the interface lists
// derived from the shell's tools.
#include "host/capture_reader.h"

#include <gtest/gtest.h>
#include <md5.h>

#include "test_support.h"

namespace {

// Writes records the way quillscan-capture does: od's 16 bytes a line, each
// " hh"; blocks of `block` records closed by the md5 of their lines; a record
// without an answer and with a plain key as its header line alone.
class CaptureWriter {
 public:
  explicit CaptureWriter(int block = 1) : block_(block) {}
  void add(const std::string& kind, const std::string& attrs, const std::string& key,
           const std::string& answer, bool plain_key = false) {
    std::string record = "R " + std::to_string(++seq_) + " " + kind;
    if (!attrs.empty()) record += " " + attrs;
    if (plain_key) {
      pending_ += record + " =" + key + "\n";
    } else {
      record += "\n";
      const std::string body = key + std::string(1, '\0') + answer;
      static const char kHex[] = "0123456789abcdef";
      for (size_t i = 0; i < body.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(body[i]);
        record += ' ';
        record += kHex[c >> 4];
        record += kHex[c & 15];
        if (i % 16 == 15 || i + 1 == body.size()) record += '\n';
      }
      pending_ += record;
    }
    if (++in_block_ == block_) flush();
  }
  void flush() {
    if (pending_.empty()) return;
    char sum[MD5_DIGEST_STRING_LENGTH];
    MD5Data(reinterpret_cast<const uint8_t*>(pending_.data()), pending_.size(), sum);
    stream_ += pending_ + "E " + sum + "\n";
    pending_.clear();
    in_block_ = 0;
  }
  std::string text() {
    flush();
    return "QSCAP 1 md5\n" + stream_ + "Z " + std::to_string(seq_) + "\n";
  }

 private:
  int block_;
  int in_block_ = 0;
  int seq_ = 0;
  std::string pending_;
  std::string stream_;
};

std::string interface_text(const std::vector<HostRecord::Interface>& list) {
  std::string text;
  for (const auto& i : list) {
    text += i.name + " " + i.ip + " " + i.netmask +
            format_string(" %02x:%02x:%02x:%02x:%02x:%02x\n", i.mac[0], i.mac[1], i.mac[2],
                          i.mac[3], i.mac[4], i.mac[5]);
  }
  return text;
}

CaptureWriter small_capture() {
  CaptureWriter w(3);
  w.add("T", "1795400000 +0130 847.56", "clock", "", true);
  w.add("W", "", "cwd", "/vmfs/volumes/datastore1\n");
  w.add("C", "", "vmware -v", "VMware ESXi 6.7.0 build-8169922\n");
  w.add("S", "1 1 0 1 20 4", "/etc/passwd", "", true);
  w.add("F", "", "/etc/passwd", "root:x:0:0::/:/bin/sh\n");
  w.add("D", "find", "/bin", std::string("/bin/ps.old\0/bin/ps\0", 20));
  w.add("T", "1795400007 +0130 u854560000", "clock", "");
  return w;
}

}  // namespace

TEST(CaptureReader, ReadsEveryKindOfRecordByteExact) {
  CaptureWriter w = small_capture();
  // Answers with NUL bytes, CR LF, bytes above 127 and a line of a megabyte.
  std::string binary("a\0b\r\n\xff\x80", 7);
  const std::string long_line(1 << 20, 'x');
  w.add("C", "", "smbiosDump", binary);
  w.add("C", "", "esxcli software vib list", long_line + "\n");
  w.add("C", "", "vim-cmd vmsvc/power.getstate '$(reboot)'", "");
  w.add("S", "0 0 0 0 0 0", "/etc/fstab", "");
  w.add("D", "ls", "/sbin", ".\n..\nesxcfg-nics\n");
  w.add("F", "part", "/vmfs/volumes/ds/vm/vm.vmdk", std::string(8192, '\0'));

  Capture capture;
  std::string error;
  ASSERT_TRUE(read_capture(w.text(), &capture, &error)) << error;
  const HostRecord& r = capture.record;
  EXPECT_EQ(capture.records, 13);
  EXPECT_EQ(r.working_directory, "/vmfs/volumes/datastore1");
  EXPECT_EQ(r.commands.at("vmware -v"), "VMware ESXi 6.7.0 build-8169922\n");
  EXPECT_EQ(r.commands.at("smbiosDump"), binary);
  EXPECT_EQ(r.commands.at("esxcli software vib list"), long_line + "\n");
  EXPECT_EQ(r.commands.at("vim-cmd vmsvc/power.getstate '$(reboot)'"), "");
  EXPECT_EQ(r.files.at("/etc/passwd"), "root:x:0:0::/:/bin/sh\n");
  EXPECT_EQ(r.files.at("/vmfs/volumes/ds/vm/vm.vmdk"), std::string(8192, '\0'));

  const HostRecord::PathInfo p = r.paths.at("/etc/passwd");
  EXPECT_EQ(format_string("%d%d%d%d %llu %llu", p.exists, p.openable, p.is_regular, p.is_dir,
                          static_cast<unsigned long long>(p.size),
                          static_cast<unsigned long long>(p.allocated)),
            "1110 20 4096");
  EXPECT_FALSE(r.paths.at("/etc/fstab").exists);
  // find's entries keep the order the directory was read in.
  std::string names;
  for (const char* dir : {"/bin", "/sbin"}) {
    for (const auto& entry : r.dirs.at(dir)) names += entry.name + " ";
  }
  EXPECT_EQ(names, "ps.old ps . .. esxcfg-nics ");
  std::string clocks;
  for (const auto& c : r.clocks) {
    clocks += format_string("%lld %d %lld.%lld ", static_cast<long long>(c.wall), c.utc_offset,
                            static_cast<long long>(c.monotonic_sec),
                            static_cast<long long>(c.monotonic_nsec));
  }
  EXPECT_EQ(clocks, "1795400000 5400 847.560000000 1795400007 5400 854.560000000 ");
}

// Any cut and any changed byte is refused, with one line and no partial
// result used.
TEST(CaptureReader, RefusesEveryTruncationAndEveryAlteredByte) {
  const std::string good = small_capture().text();
  Capture capture;
  std::string error;
  ASSERT_TRUE(read_capture(good, &capture, &error)) << error;
  for (size_t cut = 0; cut < good.size(); ++cut) {
    EXPECT_FALSE(read_capture(good.substr(0, cut), &capture, &error)) << "cut at " << cut;
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(error.find('\n'), std::string::npos);
  }
  for (size_t at = 0; at < good.size(); ++at) {
    for (char delta : {1, 32}) {
      std::string bad = good;
      bad[at] = static_cast<char>(bad[at] ^ delta);
      EXPECT_FALSE(read_capture(bad, &capture, &error)) << "byte " << at << " ^ " << int(delta);
    }
  }
  EXPECT_FALSE(read_capture(good + "R 8 C\n", &capture, &error));
  EXPECT_EQ(error, "capture is damaged: data after its end");
  // A refused capture leaves nothing behind.
  EXPECT_TRUE(capture.record.commands.empty());
}

TEST(CaptureReader, NamesWhatIsWrong) {
  const std::string text = small_capture().text();
  const size_t close = text.rfind("E ");
  std::string wrong_sum = text;
  wrong_sum[close + 2] = wrong_sum[close + 2] == '0' ? '1' : '0';
  CaptureWriter unknown, bad_stat;
  unknown.add("X", "", "key", "answer");
  bad_stat.add("S", "1 1 0 1 -5 0", "/etc/passwd", "");
  const std::pair<std::string, std::string> cases[] = {
      {"", "empty file, not a capture"},
      {"\x1f\x8b binary\n", "not a capture (no QSCAP line)"},
      {"QSCAP 2 md5\nZ 0\n",
       "unsupported capture version or checksum (this "
       "reader reads \"QSCAP 1 md5\")"},
      {text.substr(0, text.find("R 5 ")), "capture is truncated in record 4"},
      // Records whose block is not closed by its checksum line.
      {text.substr(0, close) + "Z 7\n", "capture is damaged: records 7 to 7 have no checksum"},
      {wrong_sum, "capture is damaged: the block ending with record 7 fails its checksum"},
      {unknown.text(), "capture is damaged: record 1: unknown record kind 'X'"},
      {bad_stat.text(), "capture is damaged: record 1: bad path attributes"},
  };
  for (const auto& c : cases) {
    Capture capture;
    std::string error;
    EXPECT_FALSE(read_capture(c.first, &capture, &error));
    EXPECT_EQ(error, c.second);
  }
}

// The interface lists derived from ip (loopback, alias labels, hostile
// names), old and new ifconfig, and esxcli's tables.
TEST(CaptureInterfaces, FromIpIfconfigAndEsxcli) {
  const std::string ip =
      "1: lo0    inet 127.0.0.1/8 scope host lo0\\       "
      "valid_lft forever preferred_lft forever\n"
      "2: vmk0    inet 10.130.2.121/24 brd 10.130.2.255 "
      "scope global vmk0\\       valid_lft "
      "forever preferred_lft forever\n"
      "2: vmk0    inet 10.130.9.1/16 scope global secondary "
      "vmk0:1\\       valid_lft forever\n"
      "3: x|pwned&&y>f@if4    inet 10.66.6.10/30 scope "
      "global x|pwned&&y>f\\       valid_lft\n";
  const std::map<std::string, std::string> probes = {{"mac lo0", "00:00:00:00:00:00\n"},
                                                     {"mac vmk0", "00:13:32:08:f7:d4\n"},
                                                     {"mac x|pwned&&y>f", "00:50:56:66:00:06\n"}};
  std::vector<HostRecord::Interface> from_ip, from_ifconfig, from_esxcli;
  interfaces_from_ip(ip, probes, &from_ip);
  EXPECT_EQ(interface_text(from_ip),
            "lo0 127.0.0.1 255.0.0.0 00:00:00:00:00:00\n"
            "vmk0 10.130.2.121 255.255.255.0 00:13:32:08:f7:d4\n"
            "vmk0:1 10.130.9.1 255.255.0.0 00:13:32:08:f7:d4\n"
            "x|pwned&&y>f 10.66.6.10 255.255.255.252 00:50:56:66:00:06\n");
  interfaces_from_ifconfig(
      "lo        Link encap:Local Loopback  \n"
      "          inet addr:127.0.0.1  Mask:255.0.0.0\n\n"
      "vswif0    Link encap:Ethernet  HWaddr 00:50:56:4A:2B:10  \n"
      "          inet addr:192.168.50.41  Bcast:192.168.50.255  "
      "Mask:255.255.255.0\n\n"
      "vmnic0    Link encap:Ethernet  HWaddr 00:50:56:4A:2B:11  \n\n"
      "eth0: flags=4163<UP,BROADCAST,RUNNING,MULTICAST>  mtu 1500\n"
      "        inet 192.168.122.50  netmask 255.255.255.0  broadcast "
      "192.168.122.255\n"
      "        ether 52:54:00:12:34:56  txqueuelen 1000  (Ethernet)\n",
      &from_ifconfig);
  // An interface without an IPv4 address is not in the kernel's list.
  EXPECT_EQ(interface_text(from_ifconfig),
            "lo 127.0.0.1 255.0.0.0 00:00:00:00:00:00\n"
            "vswif0 192.168.50.41 255.255.255.0 00:50:56:4a:2b:10\n"
            "eth0 192.168.122.50 255.255.255.0 52:54:00:12:34:56\n");
  interfaces_from_esxcli(test_support::fixture("esxcli_network_ip_interface_ipv4_get.esxi90.txt"),
                         "vmk0\n   Name: vmk0\n   MAC Address: 88:e9:a4:6b:b8:54\n"
                         "   Portgroup: Management Network\n",
                         &from_esxcli);
  EXPECT_EQ(interface_text(from_esxcli), "vmk0 172.30.30.176 255.255.255.0 88:e9:a4:6b:b8:54\n");
}
