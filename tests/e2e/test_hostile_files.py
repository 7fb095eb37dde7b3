"""End to end: quillscan-inv against small (or sparse) files built here to
exhaust or fool it. Under a 256 MB address-space limit (not with a sanitizer
build), a refused file gives one error line and status 1, never a crash, a
hang or memory that grows with the claims."""
import json
import os
import resource
import shutil
import stat
import struct
import subprocess
import unittest
import zlib

import simlib

LIMIT = 256 << 20
BOM_START = b"\xef\xbb\xbf?zxml\n"
FRAMING = b"\x00\x01ZXML"
ASSET = "type=assetinfo\n"
RAW = "type=customdata\nID=rawdata\n"
SNAPSHOT = "type=snapshot\ntimestamp=20140312101500.000000+180\nsnaptype=esx:1\n"


def sanitized(path):
    with open(path, "rb") as f:
        return b"__asan_init" in f.read()


def limit_memory():
    resource.setrlimit(resource.RLIMIT_AS, (LIMIT, LIMIT))


def document(lines):
    return zlib.compress(BOM_START + lines, 9) + FRAMING


def inv_file(path, bodies, blocks, snapshotcount=0, hole=0):
    """Bodies after a sparse hole, then the header of `blocks` and the trailer."""
    header = "[H]\ncount=%d\nsnapshotcount=%d\n" % (len(blocks), snapshotcount)
    for i, (offset, length, kind) in enumerate(blocks):
        header += "[%d]\noffset=%d\nlength=%d\n%s" % (i, offset, length, kind)
    with open(path, "wb") as f:
        f.truncate(hole)
        f.seek(hole)
        for b in bodies:
            f.write(b)
        position = f.tell()
        f.write(header.encode() + struct.pack("<Q", position) + b"\x03\x01INV!")
    return path


def nested(depth):
    """Elements nested `depth` deep, the innermost with an annotated attribute."""
    lines = b"".join(b"+e%d=\n" % i for i in range(depth - 1))
    lines += b"*leaf=\na=1\n~k=v\n" + b"-\n" * (depth - 1)
    return document(lines)


class HostileFilesTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.decoder = simlib.decoder()
        cls.limited = not sanitized(cls.decoder)
        cls.dir = simlib.workdir()

    def inv(self, name, *args, **kwargs):
        return inv_file(os.path.join(self.dir, name), *args, **kwargs)

    def run_decoder(self, *args, timeout=120, stdout=subprocess.PIPE):
        return subprocess.run([self.decoder] + list(args), stdout=stdout,
                              stderr=subprocess.PIPE, timeout=timeout,
                              preexec_fn=limit_memory if self.limited else None)

    def assertRefused(self, path, commands, message):
        for command in commands:
            run = self.run_decoder(command, path, stdout=subprocess.DEVNULL)
            lines = run.stderr.decode(errors="replace").splitlines()
            self.assertEqual((run.returncode, len(lines)), (1, 1), (command, run.stderr[-500:]))
            self.assertIn(message, lines[0], command)

    def test_bodies_listed_many_times_are_refused(self):
        # 64 MiB of text in 64 KiB, listed 40 times (raw would collect
        # 2.5 GiB); a document of a million elements listed 60 times.
        raw = zlib.compress(b"A" * (64 << 20), 9)
        path = self.inv("raw-repeat.inv", [raw], [(0, len(raw), RAW)] * 40)
        self.assertRefused(path, ["raw", "check", "show", "json"],
                           "record 1: starts at byte 0, not where record 0 ends")
        doc = document(b"+A=\n" + b"*a=\n" * 1000000 + b"-\n")
        path = self.inv("json-repeat.inv", [doc], [(0, len(doc), ASSET)] * 60)
        self.assertRefused(path, ["json", "text", "check"], "record 1: starts at byte 0")
        # Overlapping blocks: the second starts inside the first.
        path = self.inv("overlap.inv", [raw, raw],
                        [(0, len(raw), RAW), (len(raw) - 10, len(raw) + 10, RAW)])
        self.assertRefused(path, ["raw", "check"], "record 1: starts at byte %d" % (len(raw) - 10))

    def test_total_inflated_size_is_bounded(self):
        # Three records of 200 MiB: each below the record limit, not together.
        raw = zlib.compress(b"B" * (200 << 20), 9)
        path = self.inv("total.inv", [raw] * 3, [(i * len(raw), len(raw), RAW) for i in range(3)])
        self.assertRefused(path, ["raw", "check"],
                           "record 2: the records of this file inflate to more than 536870912 "
                           "bytes in all (refused)")

    def test_huge_sparse_record_is_not_read_whole(self):
        # A legal 4 GiB - 1 length of zeros (a hole): not zlib data.
        length = (4 << 30) - 1
        path = self.inv("sparse.inv", [], [(0, length, RAW)], hole=length)
        self.assertRefused(path, ["raw", "check", "show", "json"], "record 0: compressed data is")
        path = self.inv("sparse-doc.inv", [], [(0, length, SNAPSHOT)], 1, hole=length)
        self.assertRefused(path, ["text", "json"], "record 0: body does not end with")

    def test_fifo_is_refused_at_once(self):
        fifo = os.path.join(self.dir, "fifo.inv")
        os.mkfifo(fifo)
        good = self.inv("good.inv", [document(b"*AssetInfo=\n")],
                        [(0, len(document(b"*AssetInfo=\n")), ASSET)])
        # Nobody writes to the FIFO: a plain open would wait for ever.
        run = self.run_decoder("check", fifo, good, timeout=10)
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stderr.decode(), "quillscan-inv: %s: not a regular file\n" % fifo)
        self.assertEqual(run.stdout.decode(), "%s: ok, 1 record, snapshotcount=0\n" % good)
        for command in ("show", "json", "raw", "text"):
            self.assertEqual(self.run_decoder(command, fifo, timeout=10).returncode, 1)
        self.assertRefused(self.dir, ["check"], "not a regular file")

    def test_nesting_limit_is_one_that_json_readers_accept(self):
        ok = nested(64)
        path = self.inv("deep64.inv", [ok], [(0, len(ok), ASSET)])
        for command in ("check", "json"):
            run = self.run_decoder(command, path)
            self.assertEqual(run.returncode, 0, run.stderr)
        tree = json.loads(run.stdout)["records"][0]["document"]
        for _ in range(63):
            tree = tree["children"][0]
        self.assertEqual(tree["attributes"][0]["annotations"], [{"key": "k", "text": "v"}])
        jq = shutil.which("jq")
        if jq is not None:
            read = subprocess.run([jq, "-c", ".count"], input=run.stdout, stdout=subprocess.PIPE)
            self.assertEqual((read.returncode, read.stdout), (0, b"1\n"))
        deep = nested(65)
        path = self.inv("deep65.inv", [deep], [(0, len(deep), ASSET)])
        self.assertRefused(path, ["check", "json", "show"], "elements nested too deep")

    def test_show_escapes_c1_controls(self):
        # U+009B (CSI) and U+009D (OSC) in a value and in raw text, and ESC.
        doc = document("*AssetInfo=\nx=a\u009b2Jb\u009d0;t\x1b[0m\n".encode())
        raw = zlib.compress("r\u009bs\n".encode(), 9)
        path = self.inv("c1.inv", [doc, raw], [(0, len(doc), ASSET), (len(doc), len(raw), RAW)])
        run = self.run_decoder("show", path)
        self.assertEqual(run.returncode, 0, run.stderr)
        for byte in range(0x80, 0xA0):
            self.assertNotIn(b"\xc2" + bytes([byte]), run.stdout)
        self.assertNotIn(b"\x1b", run.stdout)
        self.assertIn(b"    x=a\\xc2\\x9b2Jb\\xc2\\x9d0;t\\x1b[0m\n", run.stdout)
        self.assertIn(b"r\\xc2\\x9bs\n", run.stdout)


if __name__ == "__main__":
    unittest.main()
