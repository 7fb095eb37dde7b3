"""Whole documents of a silent scan of each simulated host, compared with
expected/HOST/whole-Snapshot.txt and expected/HOST/whole-AssetInfo.txt (time-dependent
values masked). The unit tests replay the same hosts in-process and compare
with the same files, so the two must agree; hosts whose documents are too
large to keep hold a SHA-256 of the text instead (whole-Snapshot.sha256).

QS_UPDATE_EXPECTED=1 rewrites the files from this run instead."""
import hashlib
import os
import unittest

import simlib

EXPECTED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "expected")
HOSTS = ("esxi67", "esx41", "esxi55-dhcp", "bare", "hostile", "esxi90", "gen-vms")
# Documents above this size are kept as a digest.
MAX_TEXT = 200000


def masked_text(inv, record):
    return "\n".join(simlib.mask(simlib.decode_text(inv, record))) + "\n"


class WholeDocumentsTest(unittest.TestCase):
    def check(self, host, name, text):
        base = os.path.join(EXPECTED, host, name)
        digest = hashlib.sha256(text.encode("utf-8", "surrogateescape")).hexdigest() + "\n"
        if os.environ.get("QS_UPDATE_EXPECTED") == "1":
            os.makedirs(os.path.dirname(base), exist_ok=True)
            for old in (base + ".txt", base + ".sha256"):
                if os.path.exists(old):
                    os.remove(old)
            if len(text) > MAX_TEXT:
                with open(base + ".sha256", "w") as f:
                    f.write(digest)
            else:
                with open(base + ".txt", "w", encoding="utf-8", errors="surrogateescape", newline="") as f:
                    f.write(text)
            return
        if os.path.exists(base + ".sha256"):
            with open(base + ".sha256") as f:
                self.assertEqual(digest, f.read(), base)
        else:
            with open(base + ".txt", encoding="utf-8", errors="surrogateescape", newline="") as f:
                self.assertEqual(text, f.read(), base)

    def test_hosts(self):
        for host in HOSTS:
            with self.subTest(host=host):
                result = simlib.scan(host, ["/silent"])
                self.assertEqual(result.returncode, 0, result.stderr)
                inv = [f for f in result.files if f.endswith(".inv")]
                self.assertEqual(len(inv), 1, result.files)
                self.check(host, "whole-Snapshot", masked_text(result.path(inv[0]), 0))
                self.check(host, "whole-AssetInfo", masked_text(result.path(inv[0]), 1))


if __name__ == "__main__":
    unittest.main()
