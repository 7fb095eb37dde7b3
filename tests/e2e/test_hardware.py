"""Hardware branches of a scan: SMBIOS records, processors and caches,
memory slots, PCI and USB devices, on the three simulated hosts."""
import os
import unittest

import simlib

EXPECTED_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "expected")
BRANCHES = ("System", "Processors", "Memory", "Devices", "Peripherals")


def expected_lines(host, name):
    with open(os.path.join(EXPECTED_DIR, host, name + ".txt"), encoding="utf-8") as f:
        text = f.read()
    return text[:-1].split("\n")


def scan_snapshot(test, host):
    """Scans host silently; returns (result, lines of the Snapshot document)."""
    result = simlib.scan(host, ["/silent"])
    test.assertEqual(result.returncode, 0, result.stderr)
    inv = [f for f in result.files if f.endswith(".inv")]
    test.assertEqual(len(inv), 1, result.files)
    return result, simlib.decode_text(result.path(inv[0]), 0)


def warning(tool, missing):
    return ["Warning:1=", "~type=package_not_found", "~pkg_name=" + tool, "~missing=" + missing]


class Esxi67HardwareTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.result, cls.lines = scan_snapshot(cls(), "esxi67")

    def test_branches(self):
        for name in BRANCHES:
            with self.subTest(branch=name):
                self.assertEqual(simlib.branch(self.lines, name), expected_lines("esxi67", name))

    def test_empty_memory_node_beside_the_top_element(self):
        # The root's second child comes after the top element's closing line.
        self.assertEqual(self.lines[-2:], ["-", "*/Memory="])
        self.assertEqual(self.lines.count("*/Memory="), 1)

    def test_command_lines(self):
        calls = self.result.calls
        for key in ("smbiosDump", "esxcli_system_uuid_get", "vim-cmd_hostsvc+hosthardware",
                    "esxcli_hardware_pci_list"):
            self.assertIn(key, calls)
        # lsusb lists the numbers once, then each device is asked for by bus
        # and device number (the device word keeps its colon).
        usb = [c for c in calls if c.startswith("lsusb")]
        self.assertEqual(usb, ["lsusb", "lsusb_-s_001:001:_-v", "lsusb_-s_001:002:_-v",
                               "lsusb_-s_001:003:_-v", "lsusb_-s_002:002:_-v"])


class Esx41HardwareTest(unittest.TestCase):
    """An HP server on ESX 4.1: no board record, no PCI listing, no UUID."""

    @classmethod
    def setUpClass(cls):
        cls.result, cls.lines = scan_snapshot(cls(), "esx41")

    def test_branches(self):
        system = simlib.branch(self.lines, "System")
        self.assertNotIn("*Motherboard=", system)
        self.assertIn("release-date=201372000000.000000+000", system)
        start = system.index("*Computer-system=")
        self.assertEqual(simlib.attributes(system, start),
                         [("manuf", "HP"), ("model", "ProLiant DL380 G6"), ("uuid", ""),
                          ("wake-up-type", "Power Switch"), ("serial", "CZJ0250ABC")])
        processors = simlib.branch(self.lines, "Processors")
        self.assertEqual(processors[1], "+Processor:1=Intel Xeon CPU E5520 @ 2.27GHz")
        attrs = dict(simlib.attributes(processors, 1))
        self.assertEqual((attrs["core-count"], attrs["cpu-thread-count"]), ("4", "8"))
        memory = simlib.branch(self.lines, "Memory")
        self.assertEqual(memory[-4:], ["*General-Info=", "physical-memory=16384",
                                       "~base-value=17179869184", "-"])
        self.assertIsNone(simlib.branch(self.lines, "Devices"))
        self.assertEqual(simlib.branch(self.lines, "Peripherals"),
                         ["+Peripherals=", "+USB=",
                          "*Device:1=UHCI Host Controller", "device-speed=12",
                          "manuf=Linux 2.6.18-194.ESX uhci_hcd", "serial=0000:00:1d.0",
                          "*Device:2=Virtual Keyboard", "device-speed=12", "manuf=HP",
                          "serial=", "-", "-"])


class BareHostHardwareTest(unittest.TestCase):
    """No smbiosDump, vim-cmd, esxcli or lsusb: two warnings, nothing else."""

    @classmethod
    def setUpClass(cls):
        cls.result, cls.lines = scan_snapshot(cls(), "bare")

    def test_warnings_only(self):
        self.assertEqual(simlib.branch(self.lines, "Memory"),
                         ["*Memory="] + warning("dmidecode", "Memory-slot,General-Info"))
        self.assertEqual(simlib.branch(self.lines, "Peripherals"),
                         ["*Peripherals="] + warning("lsusb", "USB"))
        for name in ("System", "Processors", "Devices"):
            self.assertIsNone(simlib.branch(self.lines, name), name)
        self.assertEqual(self.lines[-1], "*/Memory=")
        self.assertFalse([c for c in self.result.calls if c.startswith("lsusb")])


if __name__ == "__main__":
    unittest.main()
