"""End to end: the host binaries (make esxi, which checks with `file` that
they are static, stripped 32-bit x86 and x86-64 executables) each write the
same documents as the native build on the same simulated host. make
test-esxi sets QS_AGENT_ESXI, QS_AGENT_ESXI64 and QS_AGENT_NATIVE; without
them the tests are skipped.
"""
import os
import unittest

import simlib

ESXI = os.environ.get("QS_AGENT_ESXI")
ESXI64 = os.environ.get("QS_AGENT_ESXI64")
NATIVE = os.environ.get("QS_AGENT_NATIVE")
NEEDS_ALL = unittest.skipUnless(
    ESXI and ESXI64 and NATIVE,
    "QS_AGENT_ESXI, QS_AGENT_ESXI64 and QS_AGENT_NATIVE not set (make test-esxi)")
HOSTS = ("esxi67", "esx41", "bare", "esxi55-dhcp", "hostile", "esxi90")

def scan_with(binary, host, args):
    """(result, masked texts or raw text of each record of the file written)."""
    result = simlib.run_in_host(host, [binary] + args, env={"TZ": "QST-3"},
                                binds=[os.path.dirname(os.path.realpath(binary))])
    if len(result.files) != 1:
        raise AssertionError("%s in %s wrote %r" % (binary, host, result.files))
    path = result.path(result.files[0])
    h = simlib.header(path)
    return result, [("raw", simlib.decode_raw(path)) if r["type"] == "customdata" else
                    (r["type"], simlib.mask(simlib.decode_text(path, i)))
                    for i, r in enumerate(h.records)]


@NEEDS_ALL
class SameDocumentsTest(unittest.TestCase):
    maxDiff = None

    def compare(self, host, args):
        native, native_records = scan_with(NATIVE, host, args)
        for binary in (ESXI, ESXI64):
            esxi, esxi_records = scan_with(binary, host, args)
            self.assertEqual(esxi.returncode, native.returncode, binary)
            self.assertEqual(esxi.files, native.files, binary)
            self.assertEqual(esxi.stdout, native.stdout, binary)
            self.assertEqual([kind for kind, _ in esxi_records],
                             [kind for kind, _ in native_records], binary)
            for (kind, theirs), (_, ours) in zip(esxi_records, native_records):
                self.assertEqual(theirs, ours, "%s record of %s by %s differs" % (kind, host, binary))
        return native_records

    def test_silent_scans(self):
        for host in HOSTS:
            with self.subTest(host=host):
                records = self.compare(host, ["/silent"])
                # Something to compare: the snapshot holds more than its top line.
                self.assertGreater(len(records[0][1]), 20)

    def test_current_reading(self):
        for host in ("esxi90", "esxi67"):
            with self.subTest(host=host):
                self.compare(host, ["/silent", "/current"])

    def test_debug_run(self):
        records = self.compare("esxi67", ["/silent", "/debug"])
        self.assertEqual([kind for kind, _ in records], ["assetinfo", "raw"])


if __name__ == "__main__":
    unittest.main()
