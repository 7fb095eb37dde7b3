"""End to end: start-up, the scan driver, host identity, file naming, the
container and the debug run, with the real agent inside simulated hosts.

Expected values come from the host folders (sim/hosts/*): esxi67's management
interface vmk0 is 00:13:32:08:f7:d4 / 10.130.2.121 and its uname -n prints
esx-01.lab.local, so its file is ESX_01_00133208F7D4.inv; its samba
configuration names it ESX67-LAB in workgroup LABNET.
"""
import os
import re
import time
import unittest

import simlib
from simlib import BOM, MASK, PROGRESS

ESXI67_FILE = "ESX_01_00133208F7D4.inv"
PROMPT = ("Larkspur Census scanner for ESXi-hypervisor (version 15.10.19)\n"
          "Do you want to start the scan of local computer?(y/n)\n")
SNAPSHOT_ATTRS = ["timestamp", "scan-time", "snaptype", "client-version", "scan-subtype",
                  "hostname", "domain", "user-name", "ip-address"]


def silent_stdout(name):
    return "".join(p + "\n" for p in PROGRESS) + ">>>" + name + "\n"


# What the virtual-machine collector prints to standard output for each
# machine it reads (its own chatter, in silent and interactive runs alike).
VM_CHATTER = re.compile(r"ProcessVM start|GuestOS = .*|~[2-6]\.")


def without_vm_chatter(test, out, after):
    """out without the virtual-machine collector's lines, which must form
    one block right after the line `after` (if there are any)."""
    lines = out.split("\n")
    marks = [i for i, l in enumerate(lines) if VM_CHATTER.fullmatch(l)]
    if marks:
        test.assertEqual(marks, list(range(marks[0], marks[-1] + 1)), "scattered VM lines")
        test.assertEqual(lines[marks[0] - 1], after)
    return "\n".join(l for i, l in enumerate(lines) if i not in marks)


def attr_dict(pairs):
    return dict(pairs)


class InvChecks(unittest.TestCase):
    """Checks shared by the tests that read a written file."""

    def check_container(self, path, types):
        """The bodies, header and trailer of the file agree with each other;
        returns the header."""
        h = simlib.header(path)
        t = simlib.trailer(path)
        self.assertEqual(t["bytes"][8:], b"\x03\x01INV!")
        lengths = [int(r["length"]) for r in h.records]
        self.assertEqual([r["type"] for r in h.records], types)
        self.assertEqual(h.fields["count"], str(len(types)))
        self.assertEqual(h.fields["snapshotcount"], str(types.count("snapshot")))
        offset = 0
        for r, n in zip(h.records, lengths):
            self.assertEqual(int(r["offset"]), offset)
            offset += n
        self.assertEqual(t["position"], offset)
        self.assertTrue(h.text.endswith("\n"))
        self.assertEqual(t["file_size"], offset + len(h.text) + 14)
        # The decoder can show the whole file (what "make demo" does) ...
        simlib.show(path)
        # ... and it and a plain zlib inflate agree on every record.
        for i, kind in enumerate(types):
            if kind == "customdata":
                self.assertEqual(simlib.decode_raw(path), simlib.inflate_record(path, i))
            else:
                self.assertEqual(simlib.decode_bytes(path, i), simlib.inflate_record(path, i))
        return h

    def check_timestamp(self, text, start, end, offset_text=None):
        utc = simlib.timestamp_utc(text)
        self.assertIsNotNone(utc, "not a timestamp: %r" % text)
        self.assertLessEqual(start - 1, utc)
        self.assertLessEqual(utc, end + 1)
        if offset_text is not None:
            self.assertTrue(text.endswith(".000000" + offset_text), text)


class SilentScanTest(InvChecks):
    @classmethod
    def setUpClass(cls):
        cls.start = time.time()
        # QST-3 is three hours east of UTC: the offset prints as +180.
        cls.result = simlib.scan("esxi67", ["/silent"], tz="QST-3")
        cls.end = time.time()
        files = cls.result.files
        cls.path = cls.result.path(files[0]) if len(files) == 1 else None

    def setUp(self):
        self.assertIsNotNone(self.path, "expected one file, got %r" % self.result.files)

    def test_console_and_file(self):
        rc, out, err, files = self.result
        self.assertEqual(rc, 0)
        self.assertEqual(without_vm_chatter(self, out, "60%"), silent_stdout(ESXI67_FILE))
        self.assertEqual(err, "")
        self.assertEqual(files, [ESXI67_FILE])

    def test_header_and_trailer(self):
        h = self.check_container(self.path, ["snapshot", "assetinfo"])
        r0, r1 = h.records
        self.assertEqual(h.lines, [
            "[H]", "count=2", "snapshotcount=1",
            "[0]", "offset=0", "length=" + r0["length"], "type=snapshot",
            "timestamp=" + r0["timestamp"], "snaptype=esx:1",
            "[1]", "offset=" + r0["length"], "length=" + r1["length"], "type=assetinfo",
        ])
        self.check_timestamp(r0["timestamp"], self.start, self.end, "+180")
        for i in (0, 1):
            self.assertTrue(simlib.body(self.path, i).endswith(b"\x00\x01ZXML"))

    def test_snapshot_attributes(self):
        lines = simlib.decode_text(self.path, 0)
        self.assertEqual(lines[:2], [BOM + "?zxml", "+Snapshot="])
        attrs = simlib.attributes(lines, 1)
        self.assertEqual([k for k, _ in attrs], SNAPSHOT_ATTRS)
        a = attr_dict(attrs)
        header_ts = simlib.header(self.path).records[0]["timestamp"]
        self.assertEqual(a["timestamp"], header_ts)
        scan_time = int(a["scan-time"])
        self.assertEqual(scan_time % 1000, 0)
        self.assertLessEqual(0, scan_time)
        self.assertLessEqual(scan_time, (self.end - self.start + 1) * 1000)
        self.assertEqual(
            [a[k] for k in SNAPSHOT_ATTRS[2:]],
            ["esx:1", "15.10.19.0", "sstService", "ESX67-LAB", "LABNET", "root", "10.130.2.121"])

    def test_summary_values_match_snapshot(self):
        snap = attr_dict(simlib.attributes(simlib.decode_text(self.path, 0), 1))
        lines = simlib.decode_text(self.path, 1)
        self.assertEqual(lines[1], "+AssetInfo=")
        asset = attr_dict(simlib.attributes(lines, 1))
        for k in ("hostname", "user-name", "ip-address"):
            self.assertEqual(asset[k], snap[k], k)
        self.assertEqual(asset["mac-address"], "00-13-32-08-F7-D4")
        self.assertEqual(simlib.branch(lines, "control"), ["*control=", "domain=LABNET"])

    def test_os_branch(self):
        lines = simlib.decode_text(self.path, 0)
        self.assertEqual(simlib.mask(simlib.branch(lines, "OS")), [
            "+OS=", "*os:1=VMware ESXi 6.7.0", "~kind=esx", "name=VMware ESXi 6.7.0",
            "descr=Releasebuild-8169922", "architecture=64-bit", "uptime=" + MASK, "-"])

    def test_first_commands(self):
        # The locator's DHCP-client check runs before any collector, then the
        # OS collector asks for the version and the architecture.
        self.assertEqual(self.result.calls[:4],
                         ["ps_-A", "vmware_-v", "esxcli_system_version_get", "uname_-m"])


class InteractiveTest(unittest.TestCase):
    def test_answer_y(self):
        rc, out, err, files = r = simlib.scan("esxi67", [], stdin="y\n")
        self.assertEqual(rc, 0)
        self.assertEqual(without_vm_chatter(self, out, "Scan started..."),
                         PROMPT + "Scan started...\n" +
                         "\nScan finished. Results saved to file \"%s/%s\"\n" %
                         (r.workdir, ESXI67_FILE))
        self.assertEqual(err, "")
        self.assertEqual(files, [ESXI67_FILE])

    def test_refusals(self):
        cases = [("n\n", 0, "Scan canceled.\n"),
                 ("yes\n", 1, "Incorrect input. Application terminated.\n"),
                 ("Y\n", 1, "Incorrect input. Application terminated.\n")]
        for answer, status, message in cases:
            with self.subTest(answer=answer):
                r = simlib.scan("esxi67", ["/log"], stdin=answer)
                self.assertEqual((r.returncode, r.stdout, r.stderr, r.files),
                                 (status, PROMPT + message, "", []))
                # The scanner is made only after a "y": no tool ran at all.
                self.assertEqual(r.calls, [])


class OptionsTest(unittest.TestCase):
    HELP_TAIL = [
        "Larkspur Census's ESXi Agent",
        "Usage: quillscan [OPTION...]",
        "-ip:[ipaddr],\t\t/ip:[ipaddr]\t\tSet Current IP Address",
        "--help,\t\t\t-?\t\t\tShow this help message",
        "-debug,\t\t\t/debug\t\t\tSave offline scan result in raw format to send to support",
        "-silent,\t\t/silent\t\t\tStart offline scan without output to console",
        "",
        "",
    ]

    def test_help_after_other_options(self):
        for args in (["/silent", "/debug", "-?"], ["-ip:1.2.3.4", "--help", "/silent"]):
            with self.subTest(args=args):
                rc, out, err, files = r = simlib.scan("esxi67", args)
                self.assertEqual((rc, err, files, r.calls), (0, "", [], []))
                lines = out.split("\n")
                self.assertNotEqual(lines[0], "")
                self.assertEqual(lines[1:9], self.HELP_TAIL)
                self.assertTrue(lines[9].startswith("For additional information contact us: "))
                self.assertTrue(lines[10].startswith("Visit our site: "))
                self.assertIn(" & forum: ", lines[10])
                self.assertEqual(lines[11:], [""])

    def scan_ip(self, args):
        r = simlib.scan("esxi67", args)
        self.assertEqual(r.returncode, 0)
        self.assertEqual(len(r.files), 1)
        self.assertEqual(without_vm_chatter(self, r.stdout, "60%"), silent_stdout(r.files[0]))
        snap = attr_dict(simlib.attributes(simlib.decode_text(r.path(r.files[0]), 0), 1))
        asset = attr_dict(simlib.attributes(simlib.decode_text(r.path(r.files[0]), 1), 1))
        return r.files[0], snap["ip-address"], asset["mac-address"]

    def test_ip_option(self):
        cases = [
            # No adapter has this address: it is ignored.
            (["/silent", "/ip:10.9.9.9"], (ESXI67_FILE, "10.130.2.121", "00-13-32-08-F7-D4")),
            # lo0 has it: its all-zero MAC names the file (six groups).
            (["/silent", "/ip:127.0.0.1"],
             ("ESX_01_000000000000.inv", "127.0.0.1", "00-00-00-00-00-00")),
            # vmk1 has it and wins over vmk0; the last /ip: counts.
            (["-ip:10.9.9.9", "/silent", "/ip:10.130.3.121"],
             ("ESX_01_005056682C41.inv", "10.130.3.121", "00-50-56-68-2C-41")),
            # An empty address matches nothing.
            (["/silent", "/ip:"], (ESXI67_FILE, "10.130.2.121", "00-13-32-08-F7-D4")),
        ]
        for args, expected in cases:
            with self.subTest(args=args):
                self.assertEqual(self.scan_ip(args), expected)


class RepeatedScanTest(InvChecks):
    def test_second_and_third_file(self):
        d = simlib.workdir()
        names = []
        for n in range(3):
            start = time.time()
            # QST5 is five hours west of UTC: the offset prints as -300.
            r = simlib.scan("esxi67", ["/silent"], workdir=d, tz="QST5")
            end = time.time()
            self.assertEqual(r.returncode, 0)
            self.assertEqual(len(r.files), 1, r.files)
            names.append(r.files[0])
            self.assertEqual(without_vm_chatter(self, r.stdout, "60%"),
                             silent_stdout(r.files[0]))
            h = self.check_container(r.path(r.files[0]), ["snapshot", "assetinfo"])
            self.check_timestamp(h.records[0]["timestamp"], start, end, "-300")
        self.assertEqual(names, [ESXI67_FILE, "ESX_01_00133208F7D4(1).inv",
                                 "ESX_01_00133208F7D4(2).inv"])
        self.assertEqual(sorted(os.listdir(d)), sorted(names))


def raw_text(sections):
    """The raw-data text the agent builds from (title, body) sections: the
    first section has no final line end, every later one has one."""
    text = ""
    for i, (title, body) in enumerate(sections):
        block = b"".join([b">>>---Begin of Section: '", title, b"'---<<<\n", body,
                          b"\n>>>---End of Section: '", title, b"'---<<<"])
        text = block if i == 0 else text + b"\n" + block + b"\n"
    return text


SCANNER_INFO = (b"Scanner information",
                b"Scanner arch: x86\nScanner version: 15.10.19\nInternal Version: 2.7.1804.9764")


def debug_asset_lines(name, ip, mac):
    """The debug run's asset document, its scan time masked."""
    return [BOM + "?zxml", "*AssetInfo=",
            "hostname=" + name, "ip-address=" + ip, "static-ip=1", "int-name=" + name,
            "alias=" + name, "description=", "comment=", "inv-number=", "login=",
            "user-name=", "asset-type=natLinux", "virtual-type=nvtPhysical",
            "scan-type=nstNone", "scan-subtype=sstNone", "auto-icon-type=nitLinDesktop",
            "icon-type=nitLinDesktop", "first-scan=", "last-scan=", "snapshot-list=",
            "snapshot-types=", "mac-address=" + mac, "uuid=", "serial-number=", "asset-tag=",
            "scan-attempt=" + MASK, "error-message=Debug scan"]


class DebugRun:
    """One debug run of HOST, shared by the tests of a subclass (mixed into
    a test case, so this class itself is not collected)."""
    HOST = None

    @classmethod
    def setUpClass(cls):
        cls.start = time.time()
        cls.result = simlib.scan(cls.HOST, ["/debug", "/silent"])
        cls.end = time.time()
        files = cls.result.files
        cls.path = cls.result.path(files[0]) if len(files) == 1 else None

    def setUp(self):
        self.assertIsNotNone(self.path, "expected one file, got %r" % self.result.files)

    def check_console(self, name):
        self.assertEqual(self.result.returncode, 0)
        self.assertEqual(self.result.files, [name])
        # A debug run prints no progress lines, only the result.
        self.assertEqual(self.result.stdout, ">>>%s\n" % name)
        self.assertEqual(self.result.stderr, "")

    def test_container(self):
        h = self.check_container(self.path, ["assetinfo", "customdata"])
        r0, r1 = h.records
        self.assertEqual(h.lines, [
            "[H]", "count=2", "snapshotcount=0",
            "[0]", "offset=0", "length=" + r0["length"], "type=assetinfo",
            "[1]", "offset=" + r0["length"], "length=" + r1["length"], "type=customdata",
            "ID=rawdata"])
        lines = simlib.decode_text(self.path, 0)
        self.check_timestamp(dict(simlib.attributes(lines, 1))["scan-attempt"], self.start,
                             self.end)

    def asset_document(self):
        # Only scan-attempt varies: the other time attributes stay empty here.
        return simlib.mask(simlib.decode_text(self.path, 0), ("scan-attempt",))


class DebugBareTest(DebugRun, InvChecks):
    HOST = "bare"

    def test_console_and_file(self):
        # No uname: the short host name is empty, so the name starts with "_".
        self.check_console("_525400123456.inv")

    def test_asset_document(self):
        self.assertEqual(self.asset_document(),
                         debug_asset_lines("", "192.168.122.50", "52-54-00-12-34-56"))

    def test_raw_text(self):
        # Every tool-based section falls back; nothing simulated was called.
        self.assertEqual(self.result.calls, [])
        expected = raw_text([
            SCANNER_INFO,
            (b"System Main Information", b"OS Name: \n"),
            (b"Bios Info(Raw data)", b""),
            (b"FSTAB-file info", b"file not found"),
            (b"Application 'DF'", b"not installed"),
            (b"'esxcfg-scsidevs --list' output", b""),
            (b"'esxcfg-scsidevs -m' output", b""),
            (b"'df -k' output", b""),
            (b"VM's list", b""),
            (b"Application 'IFCONFIG'", b"Not installed"),
            (b"'Resolv.conf'", b"File not found"),
            (b"Application 'LSPCI'", b"Not installed"),
            (b"Application 'LSUSB'", b"Not installed"),
            (b"Application 'PS'", b"Not installed"),
            (b"Application 'ENV'", b"Not installed"),
            (b"'PASSWD' file data", simlib.host_bytes("bare", "files", "etc", "passwd")),
            (b"'Firewall info' output", b""),
            (b"HOSTNAME", b""),
        ])
        self.assertEqual(simlib.decode_raw(self.path), expected)


class DebugEsxi67Test(DebugRun, InvChecks):
    HOST = "esxi67"
    # Major version 6: the esxcfg/df sections, not the esxcli storage ones.
    RAW_KEYS = ["smbiosDump", "df_-T", "esxcfg-scsidevs_--list", "esxcfg-scsidevs_-m", "df_-k",
                "vim-cmd_vmsvc+getallvms", "lspci_-v", "lsusb_-v", "ps_-cvu", "env",
                "esxcli_network_firewall_ruleset_list", "uname_-n"]

    def test_console_and_file(self):
        self.check_console(ESXI67_FILE)

    def test_asset_document(self):
        # The debug record names the host by its short name, not by samba's.
        self.assertEqual(self.asset_document(),
                         debug_asset_lines("esx-01", "10.130.2.121", "00-13-32-08-F7-D4"))

    def out(self, key):
        # What a simulated command printed; scripted answers are not
        # predictable here, so the test insists on plain ones.
        self.assertFalse(os.path.exists(simlib.host_path("esxi67", "commands", key + ".sh")))
        p = simlib.host_path("esxi67", "commands", key)
        return simlib.host_bytes("esxi67", "commands", key) if os.path.exists(p) else b""

    def test_raw_text(self):
        out = self.out
        expected = raw_text([
            SCANNER_INFO,
            (b"System Main Information", b"OS Name: VMware ESXi 6.7.0\n"),
            (b"Bios Info(Raw data)", out("smbiosDump")),
            (b"FSTAB-file info", b"file not found"),
            (b"DF output info", out("df_-T")),
            (b"'esxcfg-scsidevs --list' output", out("esxcfg-scsidevs_--list")),
            (b"'esxcfg-scsidevs -m' output", out("esxcfg-scsidevs_-m")),
            (b"'df -k' output", out("df_-k")),
            (b"VM's list", out("vim-cmd_vmsvc+getallvms")),
            (b"Application 'IFCONFIG'", b"Not installed"),
            (b"'Resolv.conf' File Data", simlib.host_bytes("esxi67", "files", "etc", "resolv.conf")),
            (b"'LSPCI' output", out("lspci_-v")),
            (b"'LSUSB' output", out("lsusb_-v")),
            (b"'PS' output", out("ps_-cvu")),
            (b"'ENV' output", out("env")),
            (b"'PASSWD' file data", simlib.host_bytes("esxi67", "files", "etc", "passwd")),
            (b"'Firewall info' output", out("esxcli_network_firewall_ruleset_list")),
            (b"HOSTNAME", out("uname_-n")),
        ])
        self.assertEqual(simlib.decode_raw(self.path), expected)

    def test_raw_commands_in_order(self):
        # After the OS collector's raw-mode version queries come the raw-data
        # commands, in their order.
        calls = self.result.calls
        self.assertIn("smbiosDump", calls)
        first = len(calls) - 1 - calls[::-1].index("smbiosDump")
        self.assertEqual(calls[first - 2:first], ["vmware_-v", "esxcli_system_version_get"])
        self.assertEqual(calls[first:first + len(self.RAW_KEYS)], self.RAW_KEYS)


class OtherHostsTest(InvChecks):
    def test_bare_host_scan(self):
        rc, out, err, files = r = simlib.scan("bare", ["/silent"])
        self.assertEqual((rc, err, files), (0, "", ["_525400123456.inv"]))
        self.assertEqual(out, silent_stdout("_525400123456.inv"))
        path = r.path(files[0])
        self.check_container(path, ["snapshot", "assetinfo"])
        lines = simlib.decode_text(path, 0)
        snap = attr_dict(simlib.attributes(lines, 1))
        # Neither samba nor uname names the host: the summary falls back on
        # the kernel's host name.
        self.assertEqual([snap[k] for k in ("hostname", "domain", "user-name", "ip-address")],
                         ["bare", "", "root", "192.168.122.50"])
        self.assertEqual(simlib.mask(simlib.branch(lines, "OS")), [
            "+OS=", "Warning:1=", "~type=package_not_found", "~pkg_name=uname", "~more=os",
            "*os:1=", "~kind=esx", "name=", "uptime=" + MASK, "-"])
        self.assertEqual(r.calls, [])

    def test_esx41_scan(self):
        rc, out, err, files = r = simlib.scan("esx41", ["/silent"])
        # vswif0 is the first adapter with a MAC; lo is skipped.
        self.assertEqual((rc, err, files), (0, "", ["VMHOST41_0050564A2B10.inv"]))
        self.assertEqual(out, silent_stdout(files[0]))
        lines = simlib.decode_text(r.path(files[0]), 0)
        snap = attr_dict(simlib.attributes(lines, 1))
        # samba's uncommented netbios name and workgroup win over uname.
        self.assertEqual([snap[k] for k in ("hostname", "domain", "user-name", "ip-address")],
                         ["LEGACY-ESX", "CORP", "root", "192.168.50.41"])
        # Major version 4: name and build come from "vmware -v" alone, and
        # the build keeps the output's line end (stored as CR).
        self.assertEqual(simlib.mask(simlib.branch(lines, "OS")), [
            "+OS=", "*os:1=VMware ESX 4.1.0", "~kind=esx", "name=VMware ESX 4.1.0",
            "descr=build-260247\r", "architecture=64-bit", "uptime=" + MASK, "-"])
        self.assertNotIn("esxcli_system_version_get", r.calls)


if __name__ == "__main__":
    unittest.main()
