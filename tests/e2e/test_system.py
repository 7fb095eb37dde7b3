"""What a process shows of a scan's software, time and summary: the scan
times, the log markers, and local time east of UTC."""
import os
import time
import unittest

import simlib

SCAN_TIMES = ("first-scan", "last-scan", "snapshot-list")


def scan(test, host, args=("/silent",), tz=None):
    """Scans host; returns (result, snapshot lines, asset lines)."""
    result = simlib.scan(host, list(args), tz=tz)
    test.assertEqual(result.returncode, 0, result.stderr)
    inv = [f for f in result.files if f.endswith(".inv")]
    test.assertEqual(len(inv), 1, result.files)
    path = result.path(inv[0])
    return result, simlib.decode_text(path, 0), simlib.decode_text(path, 1)


class Esxi67SystemTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.start = time.time()
        cls.result, cls.snapshot, cls.asset = scan(cls(), "esxi67", ["/silent", "/log"])
        cls.end = time.time()

    def test_scan_times_and_the_snapshot_copy(self):
        # The three scan times are one moment of the scan.
        times = set(dict(simlib.attributes(self.asset, 1))[k] for k in SCAN_TIMES)
        self.assertEqual(len(times), 1, times)
        moment = simlib.timestamp_utc(times.pop())
        self.assertTrue(int(self.start) <= moment <= self.end + 1, moment)
        snap = dict(simlib.attributes(self.snapshot, 1))
        self.assertEqual([snap[k] for k in ("hostname", "domain", "user-name", "ip-address")],
                         ["ESX67-LAB", "LABNET", "root", "10.130.2.121"])

    def test_log_markers(self):
        markers = ("Collecting Asset Info data...\n1.\n2.\n3.\n4.\n5.\n6.\n7.\n8.\n9.\n9.1.\n"
                   "9.2.\n9.3.\n10.\n10.1\n10.2\n10.3\n10.4\n10.5\n11.\n12.\n13.\n14.\n15.\n"
                   "End Collecting Asset Info data..\n")
        self.assertIn("100%\n" + markers + "test000\n", self.result.stdout)


class Esx41SystemTest(unittest.TestCase):
    """ESX 4.1: packages from ipkg, in a zone three hours east of UTC."""

    @classmethod
    def setUpClass(cls):
        cls.result, cls.snapshot, cls.asset = scan(cls(), "esx41", tz="TST-3")

    def test_software_from_ipkg_processes_and_summary(self):
        with open(simlib.host_path("esx41", "commands", "ipkg_list"), encoding="utf-8") as f:
            names = [line.split(" ", 1)[0] for line in f if not line.startswith("Successfully")]
        expected = []
        for name in sorted(names):
            with open(simlib.host_path("esx41", "commands", "ipkg_info_" + name),
                      encoding="utf-8") as f:
                info = dict(l.split(": ", 1) for l in f.read().split("\n") if ": " in l)
            local = time.gmtime(int(info["Installed-Time"]) + 180 * 60)
            expected += ["*Soft:%s %s=%s" % (name, info["Version"], name),
                         "version=" + info["Version"], "architecture=" + info["Architecture"],
                         "inst-date=" + time.strftime("%Y%m%d%H%M%S.000000+180", local)]
        self.assertEqual(len(expected), 24)
        self.assertEqual(simlib.branch(self.snapshot, "Software"),
                         ["+Software="] + expected + ["-"])
        # ipkg info is asked once per package, in list order, with no VIB list.
        self.assertEqual([c for c in self.result.calls if c.startswith("ipkg")],
                         ["ipkg_list"] + ["ipkg_info_" + n for n in names])
        self.assertNotIn("esxcli_software_vib_list", self.result.calls)
        # procps rejects "-cvu" and prints nothing on standard output.
        self.assertIn("ps_-cvu", self.result.calls)
        self.assertIsNone(simlib.branch(self.snapshot, "Processes"))
        asset = dict(simlib.attributes(self.asset, 1))
        # The service console has iptables; smb.conf's ";" line is skipped.
        self.assertEqual((asset["fw-status"], asset["hostname"], asset["int-name"]),
                         ("5", "LEGACY-ESX", "vmhost41"))
        self.assertTrue(asset["first-scan"].endswith("+180"), asset["first-scan"])


if __name__ == "__main__":
    unittest.main()
