"""End to end: an inventory file that cannot be written completely, in a
tiny tmpfs that fills up during the write or only at the final flush: the
agent reports "Cannot create file :PATH", prints no result line, ends with
status 0 and leaves no .inv file behind.
"""
import os
import re
import unittest

import simlib
from simlib import PROGRESS

SMALL = "/tmp/small"

# Runs the agent ($1 and its arguments) in a small tmpfs (filled first with
# FILL=1), then lists the directory between marker lines (ls may be missing).
SCRIPT = r"""
mkdir %(dir)s
mount -t tmpfs -o size=4k,mode=0755 tmpfs %(dir)s || exit 90
cd %(dir)s
if [ "$FILL" = 1 ]; then
  dd if=/dev/zero of=filler bs=1024 count=64 2>/dev/null
fi
agent=$1; shift
"$agent" "$@"
echo "status=$?"
echo "== files"
for f in .* *; do [ -e "$f" ] && echo "$f"; done
echo "== end"
""" % {"dir": SMALL}


def run_in_small_dir(host, args, fill, size="4k"):
    binary = simlib.agent()
    command = ["/bin/sh", "-c", "FILL=%d; %s" % (fill, SCRIPT.replace("size=4k", "size=" + size)),
               "sh", binary] + args
    return simlib.run_in_host(host, command, binds=[os.path.dirname(binary)])


def split_output(test, out):
    """The agent's own output, its status and the listed directory entries."""
    m = re.fullmatch(r"(?s)(.*)status=(\d+)\n== files\n(.*)== end\n", out)
    test.assertIsNotNone(m, "unexpected output: %r" % out)
    return m.group(1), int(m.group(2)), m.group(3).splitlines()


class WriteFailureTest(unittest.TestCase):
    maxDiff = None

    def check(self, host, args, fill, file_name, leftovers):
        result = run_in_small_dir(host, args, fill)
        self.assertEqual(result.returncode, 0, result.stderr)
        agent_out, status, entries = split_output(self, result.stdout)
        self.assertEqual(status, 0)
        # stderr also holds the shell's complaints about missing tools.
        report = "Cannot create file :%s/%s\n" % (SMALL, file_name)
        self.assertEqual(result.stderr.count("Cannot create file"), 1, result.stderr)
        self.assertIn(report, result.stderr)
        self.assertNotIn(">>>", agent_out)
        self.assertNotIn("Scan finished", agent_out)
        self.assertEqual(sorted(entries), sorted([".", ".."] + leftovers))
        return agent_out

    def test_disk_fills_during_the_write(self):
        out = self.check("esxi67", ["/silent", "/log"], False, "ESX_01_00133208F7D4.inv", [])
        progress = [l for l in out.splitlines() if l.endswith("%")]
        self.assertEqual(progress, PROGRESS)

    def test_disk_full_when_the_buffer_is_flushed(self):
        self.check("bare", ["/silent", "/log"], True, "_525400123456.inv", ["filler"])

    def test_debug_run(self):
        self.check("esxi67", ["/silent", "/log", "/debug"], True, "ESX_01_00133208F7D4.inv",
                   ["filler"])

    def test_same_directory_with_room_keeps_the_file(self):
        # The control: with room to spare the same script leaves the file.
        result = run_in_small_dir("bare", ["/silent"], False, "1m")
        agent_out, status, entries = split_output(self, result.stdout)
        self.assertEqual(status, 0)
        self.assertTrue(agent_out.endswith(">>>_525400123456.inv\n"), agent_out)
        self.assertEqual(sorted(entries), [".", "..", "_525400123456.inv"])
        self.assertNotIn("Cannot create file", result.stderr)


if __name__ == "__main__":
    unittest.main()
