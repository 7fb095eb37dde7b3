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

    def test_local_time_east_of_utc(self):
        # Package and scan dates carry the zone's offset in minutes.
        dates = [l.split("=", 1)[1] for l in self.snapshot if l.startswith("inst-date=")]
        self.assertEqual(len(dates), 6)
        self.assertTrue(all(d.endswith("+180") for d in dates), dates)
        asset = dict(simlib.attributes(self.asset, 1))
        self.assertTrue(asset["first-scan"].endswith("+180"), asset["first-scan"])
        # ipkg info is asked once per package; procps rejects "-cvu".
        self.assertEqual(len([c for c in self.result.calls if c.startswith("ipkg_info_")]), 6)
        self.assertIn("ps_-cvu", self.result.calls)


if __name__ == "__main__":
    unittest.main()
