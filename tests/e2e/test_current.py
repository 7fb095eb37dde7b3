"""End to end: the reading of current releases (/current) on the ESXi 9.0
host esxi90, against the default reading of the same host: whole documents
(pinned in expected/), console, commands and spellings of the option. The
hostile variants that end a default scan are read to the end with /current,
with a warning."""
import os
import unittest

import simlib
from test_hostile import OUT_OF_RANGE, VANISHED, InjectionChecks, copy_host, probe_scan

EXPECTED_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "expected")
HOST = "esxi90"


def expected(name):
    with open(os.path.join(EXPECTED_DIR, "esxi90-current", name + ".txt"), encoding="utf-8") as f:
        return f.read()[:-1].split("\n")


def scan(args):
    result = simlib.scan(HOST, ["/silent"] + args)
    assert result.returncode == 0, result.stderr
    assert len(result.files) == 1, result.files
    path = result.path(result.files[0])
    return (result, simlib.mask(simlib.decode_text(path, 0)),
            simlib.mask(simlib.decode_text(path, 1)))


class CurrentReadingTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.default, cls.snap, cls.asset = scan([])
        cls.current, cls.csnap, cls.casset = scan(["/current"])

    def test_whole_documents(self):
        # The default reading's documents are checked with every other host's;
        # the unit tests replay this scan in-process against the same files.
        self.assertEqual(self.csnap, expected("whole-Snapshot"))
        self.assertEqual(self.casset, expected("whole-AssetInfo"))

    def test_console_and_commands(self):
        self.assertEqual(self.current.stdout, self.default.stdout)
        extra = ["esxcli system version get", "esxcli software vib list"]
        calls = [c.replace("_", " ") for c in self.current.calls]
        default_calls = [c.replace("_", " ") for c in self.default.calls]
        for command in extra:
            self.assertIn(command, calls)
            self.assertNotIn(command, default_calls)
        # Once per interface, the loopback included.
        self.assertEqual(calls.count("esxcli network nic list"), 3)
        self.assertNotIn("esxcli network nic list", default_calls)

    def test_spellings(self):
        _, dash, dash_asset = scan(["-current"])
        self.assertEqual((dash, dash_asset), (self.csnap, self.casset))
        _, upper, upper_asset = scan(["/CURRENT"])
        self.assertEqual((upper, upper_asset), (self.snap, self.asset))
        result = simlib.scan(HOST, ["/current", "-?"])
        self.assertEqual((result.returncode, result.files), (0, []))
        self.assertNotIn("current", result.stdout)


# Variant of the hostile host -> the branch that carries the warning (the other
# variants are read to the end without one: blanks after a ruleset name mean
# "disabled", and the NIC listing is read by its header).
WARNED_BRANCH = {"processor records": "Processors", "extent columns": "Storage",
                 "firewall line": "Security", "machine line": "VMs"}


class MalformedInputTest(InjectionChecks):
    def test_scans_that_end_by_default_complete(self):
        for name, outputs, _ in OUT_OF_RANGE:
            with self.subTest(name):
                result, report = probe_scan(copy_host(outputs), ["/silent", "/current"])
                self.assertEqual(report["status"], 0)
                self.assertEqual(len(result.files), 1)
                # The machines' files that vanish while they are read are
                # reached unless the listing itself is the malformed input.
                vanished = [] if name == "machine line" else VANISHED
                self.check_clean(result, report, ["/sim/calls.log"] + vanished)
                lines = simlib.decode_text(result.path(result.files[0]), 0)
                if name in WARNED_BRANCH:
                    self.assertIn("~type=malformed_input",
                                  simlib.branch(lines, WARNED_BRANCH[name]))


if __name__ == "__main__":
    unittest.main()
