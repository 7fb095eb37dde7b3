"""End to end: start-up, the scan driver, identity, file names, the container
and the debug run. On esxi67 uname -n prints esx-01.lab.local, vmk0 and vmk1
are 00:13:32:08:f7:d4 / 10.130.2.121 and 00:50:56:68:2c:41 / 10.130.3.121,
and samba names the host ESX67-LAB in LABNET."""
import os
import re
import time
import unittest

import simlib
from simlib import BOM, MASK, PROGRESS

NAME = "ESX_01_00133208F7D4"
PROMPT = ("Larkspur Census scanner for ESXi-hypervisor (version 15.10.19)\n"
          "Do you want to start the scan of local computer?(y/n)\n")
HELP = ("Larkspur Census's ESXi Agent\nUsage: quillscan [OPTION...]\n"
        "-ip:[ipaddr],\t\t/ip:[ipaddr]\t\tSet Current IP Address\n"
        "--help,\t\t\t-?\t\t\tShow this help message\n"
        "-debug,\t\t\t/debug\t\t\tSave offline scan result in raw format to send to support\n"
        "-silent,\t\t/silent\t\t\tStart offline scan without output to console\n\n\n")
NORMAL_HEADER = ("[H] count=2 snapshotcount=1 [0] offset=0 length={0} type=snapshot "
                 "timestamp={2} snaptype=esx:1 [1] offset={0} length={1} type=assetinfo")
DEBUG_HEADER = ("[H] count=2 snapshotcount=0 [0] offset=0 length={0} type=assetinfo "
                "[1] offset={0} length={1} type=customdata ID=rawdata")


def console(out, after):
    """out without the VM collector's own lines, taken only right after `after`."""
    return re.sub(r"(?<=%s\n)((ProcessVM start|GuestOS = .*|~[2-6]\.)\n)+" % re.escape(after),
                  "", out)


def silent_stdout(name):
    return "".join(p + "\n" for p in PROGRESS) + ">>>" + name + "\n"


def check_file(test, path, layout, start, end, offset=None):
    """The header has `layout`, the offsets add up, the trailer points at the
    header, the scan's time is within [start, end]. Returns record 0's lines."""
    h, t, lines = simlib.header(path), simlib.trailer(path), simlib.decode_text(path, 0)
    lengths = [r["length"] for r in h.records]
    ts = h.records[0].get("timestamp") or dict(simlib.attributes(lines, 1))["scan-attempt"]
    test.assertEqual(h.lines, layout.format(*lengths, ts).split(" "))
    test.assertEqual(t["bytes"][8:], b"\x03\x01INV!")
    test.assertEqual(t["position"], sum(map(int, lengths)))
    test.assertEqual(t["file_size"], t["position"] + len(h.text) + 14)
    test.assertTrue(start - 1 <= simlib.timestamp_utc(ts) <= end + 1 and
                    (offset is None or ts.endswith(".000000" + offset)), ts)
    return lines


def asset_lines(names, ip, mac, domain, login=""):
    return ["+AssetInfo=", "hostname=" + names[0], "ip-address=" + ip, "static-ip=1",
            "int-name=" + names[1], "alias=" + names[1], "description=", "comment=",
            "inv-number=", "login=" + login, "user-name=root", "mac-address=" + mac,
            "*control=", "domain=" + domain, "-"]


BASE_KEYS = {l.split("=", 1)[0] for l in asset_lines(("", ""), "", "", "")}


def base_asset(lines):
    """The identity lines of an AssetInfo document, in their order."""
    return [l for l in lines if l.split("=", 1)[0] in BASE_KEYS]


class ScanTest(unittest.TestCase):
    """Four scans of esxi67 in one folder: silent at UTC+3; silent at UTC-5
    with an address no adapter has; interactive (no option spelled exactly);
    silent with vmk1's address. The last /ip: and /login: count."""

    @classmethod
    def setUpClass(cls):
        cls.dir, cls.runs = simlib.workdir(), []
        for args, stdin, tz in (
                (["/silent"], None, "QST-3"),
                (["-silent", "/ip:10.9.9.9", "/login:a", "-login:ops:1"], None, "QST5"),
                (["/silently", "--silent", "/SILENT"], "y\n", None),
                # /nocompress changes nothing: the file is compressed all the same.
                (["/silent", "-ip:10.9.9.9", "/ip:10.130.3.121", "-noname", "/nocompress"], None,
                 "QST-3")):
            start = time.time()
            r = simlib.scan("esxi67", args, stdin=stdin, workdir=cls.dir, tz=tz)
            cls.runs.append((r, start, time.time()))

    def check_silent(self, n, name, offset, ip="10.130.2.121", mac="00-13-32-08-F7-D4", login=""):
        r, start, end = self.runs[n]
        self.assertEqual((r.returncode, console(r.stdout, "60%"), r.stderr, r.files),
                         (0, silent_stdout(name), "", [name]))
        lines = check_file(self, r.path(name), NORMAL_HEADER, start, end, offset)
        self.assertEqual(base_asset(simlib.decode_text(r.path(name), 1)[1:]), asset_lines(
            ("ESX67-LAB", "esx-01"), ip, mac, "LABNET", login))
        return r, lines, (end - start + 1) * 1000

    def test_silent_scan(self):
        r, lines, most = self.check_silent(0, NAME + ".inv", "+180")
        attrs = simlib.attributes(lines, 1)
        self.assertEqual(simlib.mask(lines[:2 + len(attrs)], ("scan-time",)), [
            BOM + "?zxml", "+Snapshot=",
            "timestamp=" + simlib.header(r.path(r.files[0])).records[0]["timestamp"],
            "scan-time=" + MASK, "snaptype=esx:1", "client-version=15.10.19.0",
            "scan-subtype=sstService", "hostname=ESX67-LAB", "domain=LABNET", "user-name=root",
            "ip-address=10.130.2.121"])
        scan_time = int(dict(attrs)["scan-time"])
        self.assertTrue(scan_time % 1000 == 0 and 0 <= scan_time <= most, scan_time)
        # The locator's DHCP-client check runs first, then the OS collector.
        self.assertEqual(r.calls[:4],
                         ["ps_-A", "vmware_-v", "esxcli_system_version_get", "uname_-m"])

    def test_second_third_and_fourth_scan(self):
        self.check_silent(1, NAME + "(1).inv", "-300", login="ops:1")
        r = self.runs[2][0]
        self.assertEqual((r.returncode, console(r.stdout, "Scan started..."), r.stderr, r.files), (
            0, PROMPT + "Scan started...\n\nScan finished. Results saved to file \"%s/%s(2).inv\"\n"
            % (self.dir, NAME), "", [NAME + "(2).inv"]))
        self.check_silent(3, "ESX_01_005056682C41.inv", "+180", "10.130.3.121", "00-50-56-68-2C-41")


class StartTest(unittest.TestCase):
    def test_refusals(self):
        for answer, status, message in (("n\n", 0, "Scan canceled.\n"),
                                        ("yes\n", 1, "Incorrect input. Application terminated.\n")):
            r = simlib.scan("esxi67", ["/log"], stdin=answer)
            # The scanner is made only after a "y": no tool ran at all.
            self.assertEqual((r.returncode, r.stdout, r.stderr, r.files, r.calls),
                             (status, PROMPT + message, "", [], []), answer)

    def test_help_after_other_options(self):
        r = simlib.scan("esxi67", ["/silent", "/debug", "-?"])
        self.assertEqual((r.returncode, r.stderr, r.files, r.calls), (0, "", [], []))
        self.assertRegex(r.stdout, r"\A.+\n%sFor additional information contact us: .+\n"
                         r"Visit our site: .+ & forum: .+\n\Z" % re.escape(HELP))

    def test_bare_host(self):
        # No uname: the file name starts with "_".
        r = simlib.scan("bare", ["/silent"])
        name = "_525400123456.inv"
        self.assertEqual((r.returncode, r.stdout, r.stderr, r.files, r.calls),
                         (0, silent_stdout(name), "", [name], []))


SCANNER = b"Scanner arch: x86\nScanner version: 15.10.19\nInternal Version: 2.7.1804.9764"
# Raw sections of a debug run: title and text (a literal, a host file or a command's key) on
# esxi67 (major 6: esxcfg and df), then title (None: the same) and text on bare, without tools.
RAW = [(b"Scanner information", SCANNER, None, SCANNER),
       (b"System Main Information", b"OS Name: VMware ESXi 6.7.0\n", None, b"OS Name: \n"),
       (b"Bios Info(Raw data)", "smbiosDump", None, b""),
       (b"FSTAB-file info", b"file not found", None, b"file not found"),
       (b"DF output info", "df_-T", b"Application 'DF'", b"not installed"),
       (b"'esxcfg-scsidevs --list' output", "esxcfg-scsidevs_--list", None, b""),
       (b"'esxcfg-scsidevs -m' output", "esxcfg-scsidevs_-m", None, b""),
       (b"'df -k' output", "df_-k", None, b""),
       (b"VM's list", "vim-cmd_vmsvc+getallvms", None, b""),
       (b"Application 'IFCONFIG'", b"Not installed", None, b"Not installed"),
       (b"'Resolv.conf' File Data", "/etc/resolv.conf", b"'Resolv.conf'", b"File not found"),
       (b"'LSPCI' output", "lspci_-v", b"Application 'LSPCI'", b"Not installed"),
       (b"'LSUSB' output", "lsusb_-v", b"Application 'LSUSB'", b"Not installed"),
       (b"'PS' output", "ps_-cvu", b"Application 'PS'", b"Not installed"),
       (b"'ENV' output", "env", b"Application 'ENV'", b"Not installed"),
       (b"'PASSWD' file data", "/etc/passwd", None, "/etc/passwd"),
       (b"'Firewall info' output", "esxcli_network_firewall_ruleset_list", None, b""),
       (b"HOSTNAME", "uname_-n", None, b"")]


class DebugRunTest(unittest.TestCase):
    def debug_run(self, host, args, name, identity):
        start = time.time()
        r = simlib.scan(host, args)
        # No progress lines, only the result.
        self.assertEqual((r.returncode, r.stdout, r.stderr, r.files),
                         (0, ">>>%s\n" % name, "", [name]))
        a = dict(simlib.attributes(check_file(self, r.path(name), DEBUG_HEADER, start,
                                              time.time()), 1))
        self.assertEqual([a[k] for k in ("hostname", "alias", "ip-address", "mac-address")],
                         identity)
        expected = b""
        for i, (title, source, bare_title, bare_source) in enumerate(RAW):
            if host == "bare":
                title, source = bare_title or title, bare_source
            if isinstance(source, str):  # a host file, or what a command printed (if anything)
                part = ("files", source[1:]) if source[0] == "/" else ("commands", source)
                exists = os.path.exists(simlib.host_path(host, *part))
                source = simlib.host_bytes(host, *part) if exists else b""
            block = b">>>---Begin of Section: '%s'---<<<\n%s\n>>>---End of Section: '%s'---<<<" % (
                title, source, title)
            # The first section ends without a line end, every later one with one.
            expected = block if i == 0 else expected + b"\n" + block + b"\n"
        self.assertEqual(simlib.decode_raw(r.path(name)), expected)
        return r

    def test_esxi67_with_address_of_vmk1(self):
        # The record names the host by its short name, not by samba's.
        self.debug_run("esxi67", ["/debug", "-silent", "/ip:10.130.3.121"],
                       "ESX_01_005056682C41.inv",
                       ["esx-01", "esx-01", "10.130.3.121", "00-50-56-68-2C-41"])

    def test_bare(self):
        r = self.debug_run("bare", ["-debug", "/silent"], "_525400123456.inv",
                           ["", "", "192.168.122.50", "52-54-00-12-34-56"])
        self.assertEqual(r.calls, [])

    def test_esxi55_storage_sections(self):
        # Major version 5: the esxcli storage sections replace esxcfg's and df's.
        r = simlib.scan("esxi55-dhcp", ["/debug", "/silent"])
        raw = simlib.decode_raw(r.path(r.files[0]))
        lists = [b"esxcli storage %s list" % s for s in (b"vmfs extent", b"core device",
                                                         b"core path", b"filesystem")]
        self.assertEqual(re.findall(rb"Begin of Section: '(.*)'---<<<", raw)[5:10],
                         [b"'%s' output" % s for s in lists] + [b"VM's list"])
        self.assertEqual([c for c in r.calls if "storage" in c],
                         [s.decode().replace(" ", "_") for s in lists])


if __name__ == "__main__":
    unittest.main()
