"""End to end: the "Storage" and "VMs" branches of a scanned host, and how
device names and machine ids reach the host's tools.

The expected branches of esxi67 (expected/esxi67_*.txt) were worked out by
hand from the host folder sim/hosts/esxi67: the esxcli tables under
commands/, the .vmx and .vmdk files under files/vmfs/volumes and the sizes
setup-storage.sh gives the large files. Notable points of that host:
- two extents write the same HDD:1 node; its values are the second device's,
  but the "base-value" annotation of "size" stays the one the first extent
  created (an existing attribute keeps its annotations);
- the vfat file systems have no volume name and are left out;
- iso-nfs is 62.5 % used: rounded to the even 62;
- machine 1's note spans three lines of the listing, machine 6's two;
- machine 2 ("test flo") runs on a snapshot delta: its current size is the
  delta's 50 MB, its provisioned size the base disk's 16 GB; its .vmx spells
  "memSize", so the memory size is empty;
- machine 3's disk is a monolithic sparse extent with the descriptor inside
  it, on an IDE controller; its CD-ROM drive only autodetects;
- machine 4's datastore is unknown, machine 7's .vmx does not exist.
"""
import os
import shutil
import unittest
from importlib.machinery import SourceFileLoader

import simlib

simtool = SourceFileLoader("simtool", os.path.join(simlib.SOURCE_DIR, "sim", "simtool")).load_module()

HERE = os.path.dirname(os.path.abspath(__file__))


def expected(name):
    with open(os.path.join(HERE, "expected", name), encoding="utf-8") as f:
        return f.read().splitlines()


def key(*words):
    return simtool.command_key([w.encode() for w in words])


def snapshot_lines(result):
    invs = [f for f in result.files if f.endswith(".inv")]
    if len(invs) != 1:
        raise AssertionError("expected one .inv file, found %r\n%s" % (result.files, result.stderr))
    return simlib.decode_text(result.path(invs[0]), 0)


class Esxi67Test(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.result = simlib.scan("esxi67", ["/silent"])
        cls.lines = snapshot_lines(cls.result)

    def test_storage_branch(self):
        self.assertEqual(simlib.branch(self.lines, "Storage"), expected("esxi67_storage.txt"))

    def test_vms_branch(self):
        self.assertEqual(simlib.branch(self.lines, "VMs"), expected("esxi67_vms.txt"))

    def test_storage_and_machine_commands(self):
        # One device and one path lookup per extent, then the file systems;
        # the power state only of machines whose .vmx exists (not 4 and 7).
        d1 = "naa.600508b1001cf76cb54a0dec4acc6459"
        d2 = "naa.600508b1001c5a3b2c1d0e9f8a7b6c5d"
        want = [
            key("esxcli", "storage", "vmfs", "extent", "list"),
            key("esxcli", "storage", "core", "device", "list", "-d", d1),
            key("esxcli", "storage", "core", "path", "list", "-d", d1),
            key("esxcli", "storage", "core", "device", "list", "-d", d2),
            key("esxcli", "storage", "core", "path", "list", "-d", d2),
            key("esxcli", "storage", "filesystem", "list"),
            key("vim-cmd", "vmsvc/getallvms"),
        ] + [key("vim-cmd", "vmsvc/power.getstate", n) for n in "12356"]
        got = [c for c in self.result.calls
               if c.startswith("esxcli_storage") or c.startswith("vim-cmd_vmsvc")]
        self.assertEqual(got, want)

    def test_machine_progress_lines(self):
        # Each configuration read announces itself on standard output.
        self.assertEqual(self.result.stdout.count("ProcessVM start\n"), 5)
        self.assertIn("GuestOS = other26xlinux-64\n", self.result.stdout)


class BareHostTest(unittest.TestCase):
    def test_no_storage_and_an_empty_machine_list(self):
        lines = snapshot_lines(simlib.scan("bare", ["/silent"]))
        self.assertIsNone(simlib.branch(lines, "Storage"))
        self.assertEqual(simlib.branch(lines, "VMs"), ["*VMs="])


class QuotingTest(unittest.TestCase):
    """A device name and a machine id full of shell syntax reach the tools
    as one argument each, and the shell runs none of it."""

    def test_host_text_is_one_argument(self):
        work = simlib.workdir()
        host = os.path.join(simlib.workdir(), "quoting")
        device = "naa.600;touch${IFS}%s/pwned-device;" % work
        vmid = "12$(touch${IFS}%s/pwned-vm)" % work
        mount = "/vmfs/volumes/5e000001-00000001-0001-000000000001"
        os.makedirs(os.path.join(host, "commands"))
        os.makedirs(os.path.join(host, "files" + mount, "a"))
        files = {
            "hostname": "quote-01.lab.local\n",
            "tools": "/bin/esxcli\n/bin/vim-cmd\n",
            "files%s/a/a.vmx" % mount: 'displayName = "a"\nguestOS = "other-64"\n',
            "commands/" + key("esxcli", "storage", "vmfs", "extent", "list"):
                "Volume Name  VMFS UUID  Extent Number  Device Name  Partition\n"
                "-----------  ---------  -------------  -----------  ---------\n"
                "ds1  5e000001-00000001-0001-000000000001  0  %s  1\n" % device,
            "commands/" + key("esxcli", "storage", "core", "device", "list", "-d", device):
                "%s\n   Size: 2048\n   Model: QUOTED\n   Revision: 0001\n" % device,
            "commands/" + key("esxcli", "storage", "filesystem", "list"):
                "Mount Point  Volume Name  UUID  Mounted  Type  Size  Free\n"
                "-----------  -----------  ----  -------  ----  ----  ----\n"
                "%s  ds1  5e000001-00000001-0001-000000000001  true  VMFS-6  2147483648"
                "  1073741824\n" % mount,
            "commands/" + key("vim-cmd", "vmsvc/getallvms"):
                "Vmid   Name   File   Guest OS   Version   Annotation\n"
                "%s   a   [ds1] a/a.vmx   otherGuest   vmx-13\n" % vmid,
            "commands/" + key("vim-cmd", "vmsvc/power.getstate", vmid):
                "Retrieved runtime info\nPowered on\n",
        }
        for name, text in files.items():
            with open(os.path.join(host, name), "w", encoding="utf-8") as f:
                f.write(text)

        result = simlib.scan(host, ["/silent"], workdir=work)
        self.assertNotIn("pwned-device", result.files)
        self.assertNotIn("pwned-vm", result.files)
        self.assertIn(key("esxcli", "storage", "core", "device", "list", "-d", device), result.calls)
        self.assertIn(key("esxcli", "storage", "core", "path", "list", "-d", device), result.calls)
        self.assertIn(key("vim-cmd", "vmsvc/power.getstate", vmid), result.calls)

        lines = snapshot_lines(result)
        disks = simlib.branch(lines, "Storage")
        self.assertIn("model=QUOTED", disks)
        self.assertIn("size=2", disks)
        machines = simlib.branch(lines, "VMs")
        # The answer found under the whole id's key gives the power state.
        self.assertEqual(simlib.attributes(machines, 1)[0], ("vm-id", vmid))
        self.assertIn(("vm-state", "1"), simlib.attributes(machines, 1))
        shutil.rmtree(host, ignore_errors=True)


if __name__ == "__main__":
    unittest.main()
