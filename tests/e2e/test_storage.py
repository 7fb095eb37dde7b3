"""End to end: the tools the storage, machine and USB collectors run on
esxi67, in order, and how device names and machine ids reach the host's
tools. (The documents themselves are compared whole by test_whole_documents
and, in-process, by the unit tests.)"""
import os
import unittest
from importlib.machinery import SourceFileLoader

import simlib

simtool = SourceFileLoader("simtool", os.path.join(simlib.SOURCE_DIR, "sim", "simtool")).load_module()

HERE = os.path.dirname(os.path.abspath(__file__))


def key(*words):
    return simtool.command_key([w.encode() for w in words])


def snapshot_lines(result):
    invs = [f for f in result.files if f.endswith(".inv")]
    if len(invs) != 1:
        raise AssertionError("expected one .inv file, found %r\n%s" % (result.files, result.stderr))
    return simlib.decode_text(result.path(invs[0]), 0)


class StorageTest(unittest.TestCase):
    def test_esxi67_commands(self):
        result = simlib.scan("esxi67", ["/silent"])
        # One device and one path lookup per extent, then the file systems;
        # the power state only of machines whose .vmx exists (not 4 and 7).
        want = [key("esxcli", "storage", "vmfs", "extent", "list")]
        for device in ("naa.600508b1001cf76cb54a0dec4acc6459", "naa.600508b1001c5a3b2c1d0e9f8a7b6c5d"):
            want += [key("esxcli", "storage", "core", what, "list", "-d", device)
                     for what in ("device", "path")]
        want += [key("esxcli", "storage", "filesystem", "list"), key("vim-cmd", "vmsvc/getallvms")]
        want += [key("vim-cmd", "vmsvc/power.getstate", n) for n in "12356"]
        self.assertEqual([c for c in result.calls if c.startswith(("esxcli_storage", "vim-cmd_vmsvc"))],
                         want)
        # lsusb lists the numbers once, then each device is asked for by bus
        # and device number (the device word keeps its colon).
        self.assertEqual([c for c in result.calls if c.startswith("lsusb")],
                         ["lsusb", "lsusb_-s_001:001:_-v", "lsusb_-s_001:002:_-v",
                          "lsusb_-s_001:003:_-v", "lsusb_-s_002:002:_-v"])

    def test_host_text_reaches_the_tools_as_one_argument(self):
        # A device name and a machine id full of shell syntax: the shell
        # runs none of it, and the answers under the whole texts are used.
        work = simlib.workdir()
        host = os.path.join(simlib.workdir(), "quoting")
        device = "naa.600;touch${IFS}%s/pwned-device;" % work
        vmid = "12$(touch${IFS}%s/pwned-vm)" % work
        uuid = "5e000001-00000001-0001-000000000001"
        os.makedirs(os.path.join(host, "commands"))
        os.makedirs(os.path.join(host, "files/vmfs/volumes", uuid, "a"))
        files = {
            "hostname": "quote-01.lab.local\n",
            "tools": "/bin/esxcli\n/bin/vim-cmd\n",
            "files/vmfs/volumes/%s/a/a.vmx" % uuid: 'displayName = "a"\n',
            "commands/" + key("esxcli", "storage", "vmfs", "extent", "list"):
                "Volume Name  VMFS UUID  Extent Number  Device Name  Partition\n---\n"
                "ds1  %s  0  %s  1\n" % (uuid, device),
            "commands/" + key("esxcli", "storage", "core", "device", "list", "-d", device):
                "%s\n   Size: 2048\n   Model: QUOTED\n" % device,
            "commands/" + key("esxcli", "storage", "filesystem", "list"):
                "Mount Point  Volume Name  UUID  Mounted  Type  Size  Free\n---\n"
                "/vmfs/volumes/%s  ds1  %s  true  VMFS-6  2147483648  1073741824\n" % (uuid, uuid),
            "commands/" + key("vim-cmd", "vmsvc/getallvms"):
                "Vmid   Name   File   Guest OS\n%s   a   [ds1] a/a.vmx   otherGuest\n" % vmid,
            "commands/" + key("vim-cmd", "vmsvc/power.getstate", vmid): "Retrieved\nPowered on\n",
        }
        for name, text in files.items():
            with open(os.path.join(host, name), "w", encoding="utf-8") as f:
                f.write(text)
        result = simlib.scan(host, ["/silent"], workdir=work)
        self.assertFalse({"pwned-device", "pwned-vm"} & set(result.files))
        self.assertIn(key("esxcli", "storage", "core", "path", "list", "-d", device), result.calls)
        lines = snapshot_lines(result)
        self.assertIn("model=QUOTED", simlib.branch(lines, "Storage"))
        self.assertEqual(simlib.attributes(simlib.branch(lines, "VMs"), 1)[0], ("vm-id", vmid))
        self.assertIn(("vm-state", "1"), simlib.attributes(simlib.branch(lines, "VMs"), 1))


if __name__ == "__main__":
    unittest.main()
