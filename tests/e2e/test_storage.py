"""End to end: the tools the storage, machine and USB collectors run on
esxi67, in order, and how device names and machine ids reach the host's
tools. (The documents themselves are compared whole by test_whole_documents
and, in-process, by the unit tests.)"""
import os
import unittest
from importlib.machinery import SourceFileLoader

import simlib

simtool = SourceFileLoader("simtool", os.path.join(simlib.SOURCE_DIR, "sim", "simtool")).load_module()


def key(*words):
    return simtool.command_key([w.encode() for w in words])


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


if __name__ == "__main__":
    unittest.main()
