"""End to end: the reading of current releases (/current) on the ESXi 9.0
host esxi90, against the default reading of the same host. Both whole
documents are pinned in expected/; where they differ most, the values are
also derived here from the host folder. The hostile variants that end a
default scan are read to the end with /current, with a warning."""
import os
import re
import unittest

import simlib
from test_hostile import OUT_OF_RANGE, VANISHED, InjectionChecks, copy_host, probe_scan

EXPECTED_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "expected")
HOST = "esxi90"
TIMES = simlib.TIME_ATTRIBUTES
DATASTORE = "/vmfs/volumes/6939760a-1c2d3e4f-5a6b-005056b3b989"


def expected(folder, name):
    with open(os.path.join(EXPECTED_DIR, folder, name + ".txt"), encoding="utf-8") as f:
        return f.read()[:-1].split("\n")


def host_text(*parts):
    return simlib.host_bytes(HOST, *parts).decode()


def scan(args):
    result = simlib.scan(HOST, ["/silent"] + args)
    assert result.returncode == 0, result.stderr
    assert len(result.files) == 1, result.files
    path = result.path(result.files[0])
    return (result, simlib.mask(simlib.decode_text(path, 0), TIMES),
            simlib.mask(simlib.decode_text(path, 1), TIMES))


def first_devices(lines):
    """The lines of the first machine's "Devices" up to its first adapter."""
    start = lines.index("+Devices=", lines.index("+vm:1=photon9"))
    end = next(i for i in range(start, len(lines)) if lines[i].startswith("*net:"))
    return lines[start:end]


def table_cells(text, *names):
    """Cells of an esxcli table by the dash groups under its header."""
    lines = [l for l in text.split("\n") if l]
    starts = [m.start() for m in re.finditer(r"-+", lines[1])]
    cols = {lines[0][s:e].strip(): slice(s, e) for s, e in zip(starts, starts[1:] + [None])}
    return [[line[cols[n]].strip() for n in names] for line in lines[2:]]


class CurrentReadingTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.default, cls.snap, cls.asset = scan([])
        cls.current, cls.csnap, cls.casset = scan(["/current"])

    def test_whole_documents(self):
        self.assertEqual(self.snap[1:], expected("esxi90", "Snapshot"))
        self.assertEqual(self.asset[1:], expected("esxi90", "AssetInfo"))
        self.assertEqual(self.csnap[1:], expected("esxi90-current", "Snapshot"))
        self.assertEqual(self.casset[1:], expected("esxi90-current", "AssetInfo"))

    def test_every_package(self):
        listed = table_cells(host_text("commands", "esxcli_software_vib_list"), "Name", "Version",
                             "Vendor", "Install Date")
        software = simlib.branch(self.csnap, "Software")
        written = []
        for i, line in enumerate(software):
            if line.startswith("*Soft:"):
                a = dict(simlib.attributes(software, i))
                date = a["inst-date"]
                written.append([line.split("=", 1)[1], a["version"], a["publisher"],
                                "%s-%s-%s" % (date[:4], date[4:6], date[6:8])])
        self.assertEqual(len(listed), 112)
        self.assertEqual(written, sorted(listed))
        self.assertIsNone(simlib.branch(self.snap, "Software"))

    def test_adapter_descriptions(self):
        nics = {mac: text for mac, text in
                table_cells(host_text("commands", "esxcli_network_nic_list"), "MAC Address",
                            "Description")}
        checked = 0
        for i, line in enumerate(self.csnap):
            if line.startswith("*net-adapter:"):
                a = dict(simlib.attributes(self.csnap, i))
                if a["bsd-device-name"] == "lo0":
                    continue
                mac = a["mac-address"].replace("-", ":").lower()
                self.assertEqual(a["adapter-name"], nics[mac])
                self.assertEqual(line.split("=", 1)[1], nics[mac])
                checked += 1
        self.assertEqual(checked, 2)
        names = [a["adapter-name"] for a in (dict(simlib.attributes(self.snap, i))
                                             for i, l in enumerate(self.snap)
                                             if l.startswith("*net-adapter:"))]
        self.assertEqual(names, ["Local Loopback", "", ""])

    def test_memory_disks_thin_flag_and_allocated_size(self):
        vmx = host_text("files", DATASTORE[1:], "photon9", "photon9.vmx")
        memory = re.search(r'^memSize = "(\d+)"', vmx, re.M).group(1)
        devices = first_devices(self.csnap)
        self.assertEqual(dict(simlib.attributes(devices, 0))["vm-memory-size"], memory)
        # interface, file, allocated bytes (what setup-storage.sh writes),
        # provisioned bytes (sectors of the descriptor), preallocated.
        disks = [("SCSI", "photon9.vmdk", 64 << 20, 33554432 * 512, "0"),
                 ("SATA", "photon9_1.vmdk", 8 << 20, 16384 * 512, "1"),
                 ("NVME", "photon9_2.vmdk", 1 << 20, 8388608 * 512, "0")]
        found = []
        for i, line in enumerate(devices):
            if line.startswith("*hdd:"):
                a = dict(simlib.attributes(devices, i))
                metas = [l for l in devices[i + 1:] if l.startswith("~base-value=")]
                found.append((a["interface"], a["disk-file"], int(metas[1].split("=")[1]),
                              int(metas[2].split("=")[1]), a["preallocated"]))
        self.assertEqual(found, disks)
        # The default reading: no memory size, only the SCSI disk, counted
        # preallocated at its apparent size.
        devices = first_devices(self.snap)
        self.assertEqual(dict(simlib.attributes(devices, 0))["vm-memory-size"], "")
        hdds = [i for i, l in enumerate(devices) if l.startswith("*hdd:")]
        self.assertEqual(len(hdds), 1)
        a = dict(simlib.attributes(devices, hdds[0]))
        self.assertEqual((a["interface"], a["cur-size"], a["preallocated"]), ("SCSI", "16.00", "1"))

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
