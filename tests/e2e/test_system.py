"""Software, user accounts, processes, environment and the asset summary of
a scan, on the simulated hosts.

The expected branches of esxi67 (tests/e2e/expected/esxi67/) were derived
from its host folder: the VIB list sorted by name with the install dates at
midnight and offset +000, one account per passwd line (the "backup" line has
no comment field), the process listing cut at single blanks after its two
heading lines, and the env output. Its AssetInfo record takes:
  hostname ESX67-LAB, domain LABNET   smb.conf (the commented lines skipped)
  static-ip 1                         no dhclient in "ps -A"
  int-name/alias esx-01               uname -n
  uuid, serial, makers, model         esxcli system uuid get, smbiosDump
  os-name, os-arch                    esxcli system version get, uname -m
  cpu-count 2, core-count 10          hosthardware: 2 packages, 20 cores
  phys-memory 81920                   smbiosDump: 32 GB + 32 GB + 16 GB
  hdd-capacity 1583.5                 (476908 + 1144609) MB of the two
                                      extents' devices, in GB
  used%/free% 0                       the file systems are partition:N
  fw-status 1                         no iptables
"""
import calendar
import os
import re
import time
import unittest

import simlib
from simlib import BOM, MASK

EXPECTED_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "expected")
SCAN_TIMES = ("first-scan", "last-scan", "snapshot-list")


def expected_lines(host, name):
    with open(os.path.join(EXPECTED_DIR, host, name + ".txt"), encoding="utf-8") as f:
        text = f.read()
    return text[:-1].split("\n")


def scan(test, host, args=("/silent",), tz=None):
    """Scans host; returns (result, snapshot lines, asset lines)."""
    result = simlib.scan(host, list(args), tz=tz)
    test.assertEqual(result.returncode, 0, result.stderr)
    inv = [f for f in result.files if f.endswith(".inv")]
    test.assertEqual(len(inv), 1, result.files)
    path = result.path(inv[0])
    return result, simlib.decode_text(path, 0), simlib.decode_text(path, 1)


def cim_local(seconds, offset_minutes):
    """The date-time text of a moment in a zone offset_minutes east of UTC."""
    stamp = time.strftime("%Y%m%d%H%M%S", time.gmtime(seconds + offset_minutes * 60))
    return "%s.000000%s%d" % (stamp, "-" if offset_minutes < 0 else "+", abs(offset_minutes))


class Esxi67SystemTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.start = time.time()
        cls.result, cls.snapshot, cls.asset = scan(cls(), "esxi67")
        cls.end = time.time()

    def test_branches(self):
        for name in ("Software", "User-accounts", "Processes", "Environment"):
            with self.subTest(branch=name):
                self.assertEqual(simlib.branch(self.snapshot, name), expected_lines("esxi67", name))

    def test_asset_info_record(self):
        self.assertEqual(self.asset[0], BOM + "?zxml")
        self.assertEqual(simlib.mask(self.asset[1:], SCAN_TIMES),
                         expected_lines("esxi67", "AssetInfo"))

    def test_scan_times_are_one_moment_of_the_scan(self):
        values = dict(simlib.attributes(self.asset, 1))
        times = [values[k] for k in SCAN_TIMES]
        self.assertEqual(len(set(times)), 1, times)
        moment = simlib.timestamp_utc(times[0])
        self.assertIsNotNone(moment, times[0])
        self.assertLessEqual(int(self.start), moment)
        self.assertLessEqual(moment, self.end + 1)

    def test_snapshot_copies_the_summary(self):
        snap = dict(simlib.attributes(self.snapshot, 1))
        asset = dict(simlib.attributes(self.asset, 1))
        control = dict(simlib.attributes(self.asset, self.asset.index("*control=")))
        self.assertEqual([snap[k] for k in ("hostname", "domain", "user-name", "ip-address")],
                         [asset["hostname"], control["domain"], asset["user-name"],
                          asset["ip-address"]])
        self.assertEqual([snap[k] for k in ("hostname", "domain", "user-name", "ip-address")],
                         ["ESX67-LAB", "LABNET", "root", "10.130.2.121"])

    def test_command_lines(self):
        calls = self.result.calls
        self.assertEqual(calls.count("esxcli_software_vib_list"), 1)
        self.assertEqual([c for c in calls if c.startswith("ipkg")], [])
        # Processes and environment come last among the collectors, in that
        # order; the summary then asks uname and reads the dump once more.
        self.assertEqual(calls[-5:], ["ps_-cvu", "env", "uname_-n", "uname_-n", "smbiosDump"])


class Esxi67LogTest(unittest.TestCase):
    def test_summary_markers(self):
        result, _, _ = scan(self, "esxi67", ["/silent", "/log"])
        markers = ("Collecting Asset Info data...\n1.\n2.\n3.\n4.\n5.\n6.\n7.\n8.\n9.\n9.1.\n"
                   "9.2.\n9.3.\n10.\n10.1\n10.2\n10.3\n10.4\n10.5\n11.\n12.\n13.\n14.\n15.\n"
                   "End Collecting Asset Info data..\n")
        self.assertIn("100%\n" + markers + "test000\n", result.stdout)
        self.assertEqual(result.stdout.count("Collecting Asset Info data"), 2)


class Esx41SystemTest(unittest.TestCase):
    """ESX 4.1: packages from ipkg, in a zone three hours east of UTC."""

    @classmethod
    def setUpClass(cls):
        cls.result, cls.snapshot, cls.asset = scan(cls(), "esx41", tz="TST-3")

    def packages(self):
        names = []
        with open(simlib.host_path("esx41", "commands", "ipkg_list"), encoding="utf-8") as f:
            for line in f:
                name = line.split(" ", 1)[0].rstrip("\n")
                if name == "Successfully":
                    break
                names.append(name)
        return names

    def test_software_from_ipkg(self):
        expected = []
        for name in sorted(self.packages()):
            with open(simlib.host_path("esx41", "commands", "ipkg_info_" + name),
                      encoding="utf-8") as f:
                info = dict(l.split(": ", 1) for l in f.read().split("\n") if ": " in l)
            expected += ["*Soft:%s %s=%s" % (name, info["Version"], name),
                         "version=" + info["Version"], "architecture=" + info["Architecture"],
                         "inst-date=" + cim_local(int(info["Installed-Time"]), 180)]
        self.assertEqual(len(expected), 24)
        self.assertEqual(simlib.branch(self.snapshot, "Software"),
                         ["+Software="] + expected + ["-"])

    def test_ipkg_asked_once_per_package_in_list_order(self):
        keys = ["ipkg_list"] + ["ipkg_info_" + n for n in self.packages()]
        self.assertEqual([c for c in self.result.calls if c.startswith("ipkg")], keys)
        self.assertNotIn("esxcli_software_vib_list", self.result.calls)

    def test_rejected_process_listing_and_environment(self):
        # procps rejects "-cvu" and prints nothing on standard output.
        self.assertIn("ps_-cvu", self.result.calls)
        self.assertIsNone(simlib.branch(self.snapshot, "Processes"))
        env = simlib.branch(self.snapshot, "Environment")
        i = env.index("*env-var:PATH=PATH")
        self.assertEqual(env[i:i + 4], [
            "*env-var:PATH=PATH",
            "value=/usr/kerberos/sbin:/usr/kerberos/bin:/usr/local/sbin:/usr/local/bin:/sbin:"
            "/bin:/usr/sbin:/usr/bin:/root/bin", "~split=:", "system=1"])

    def test_asset_firewall_and_names(self):
        asset = dict(simlib.attributes(self.asset, 1))
        # The service console has iptables.
        self.assertEqual(asset["fw-status"], "5")
        self.assertEqual((asset["hostname"], asset["int-name"]), ("LEGACY-ESX", "vmhost41"))
        self.assertTrue(asset["first-scan"].endswith("+180"), asset["first-scan"])


class BareSystemTest(unittest.TestCase):
    """Not an ESX host: no package tool, no ps, no env, no uname."""

    @classmethod
    def setUpClass(cls):
        cls.result, cls.snapshot, cls.asset = scan(cls(), "bare")

    def test_branches(self):
        self.assertIsNone(simlib.branch(self.snapshot, "Software"))
        self.assertIsNone(simlib.branch(self.snapshot, "Environment"))
        self.assertEqual(simlib.branch(self.snapshot, "Processes"), [
            "*Processes=", "Warning:1=", "~type=package_not_found", "~pkg_name=ps",
            "~missing=process"])
        self.assertEqual(simlib.branch(self.snapshot, "User-accounts"), [
            "+User-accounts=",
            "*usr-acc:root=root", "id=0", "is-system-user=1", "group=0", "fullname=root",
            "hdir=/root", "shell=/bin/sh",
            "*usr-acc:nobody=nobody", "id=65534", "is-system-user=1", "group=65534",
            "fullname=nobody", "hdir=/nonexistent", "shell=/usr/sbin/nologin", "-"])

    def test_asset_names_from_the_kernel(self):
        # Neither samba nor uname names the host: the kernel's name, up to
        # its first dot, is the last resort.
        asset = dict(simlib.attributes(self.asset, 1))
        self.assertEqual((asset["hostname"], asset["int-name"], asset["alias"]), ("bare", "", ""))
        self.assertEqual(dict(simlib.attributes(self.snapshot, 1))["hostname"], "bare")
        self.assertEqual((asset["virtual-type"], asset["cpu-count"], asset["serial-number"]),
                         ("nvtPhysical", "1", ""))


if __name__ == "__main__":
    unittest.main()
