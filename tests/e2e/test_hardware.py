"""Hardware branches of a scan (SMBIOS records, processors and caches, memory,
PCI and USB devices) on esxi67, and the warnings of a host without tools."""
import os
import unittest

import simlib

EXPECTED_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "expected")


def scan_snapshot(test, host):
    """Scans host silently; returns (result, lines of the Snapshot document)."""
    result = simlib.scan(host, ["/silent"])
    test.assertEqual(result.returncode, 0, result.stderr)
    inv = [f for f in result.files if f.endswith(".inv")]
    test.assertEqual(len(inv), 1, result.files)
    return result, simlib.decode_text(result.path(inv[0]), 0)


class HardwareTest(unittest.TestCase):
    def test_esxi67_branches_and_command_lines(self):
        result, lines = scan_snapshot(self, "esxi67")
        for name in ("System", "Processors", "Memory", "Devices", "Peripherals"):
            with open(os.path.join(EXPECTED_DIR, "esxi67", name + ".txt"), encoding="utf-8") as f:
                self.assertEqual(simlib.branch(lines, name), f.read()[:-1].split("\n"), name)
        # The root's second child comes after the top element's closing line.
        self.assertEqual(lines[-2:], ["-", "*/Memory="])
        # lsusb lists the numbers once, then each device is asked for by bus
        # and device number (the device word keeps its colon).
        self.assertEqual([c for c in result.calls if c.startswith("lsusb")],
                         ["lsusb", "lsusb_-s_001:001:_-v", "lsusb_-s_001:002:_-v",
                          "lsusb_-s_001:003:_-v", "lsusb_-s_002:002:_-v"])

    def test_bare_host_gives_two_warnings_only(self):
        result, lines = scan_snapshot(self, "bare")

        def warning(tool, missing):
            return ["Warning:1=", "~type=package_not_found", "~pkg_name=" + tool,
                    "~missing=" + missing]

        self.assertEqual(simlib.branch(lines, "Memory"),
                         ["*Memory="] + warning("dmidecode", "Memory-slot,General-Info"))
        self.assertEqual(simlib.branch(lines, "Peripherals"),
                         ["*Peripherals="] + warning("lsusb", "USB"))
        for name in ("System", "Processors", "Devices"):
            self.assertIsNone(simlib.branch(lines, name), name)
        self.assertEqual(lines[-1], "*/Memory=")


if __name__ == "__main__":
    unittest.main()
