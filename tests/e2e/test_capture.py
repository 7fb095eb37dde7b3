"""End to end: capture a simulated host with its own shell, build the
inventory file elsewhere, and compare with what the agent writes in the same
host.

For each host the agent scans twice (a normal and a debug run) in one
directory; quillscan-capture runs in the same host under busybox sh; then
quillscan-build builds both files from the capture, outside the host, into
another directory. The file names must be the same, the documents the same
apart from the attributes that depend on when the scan ran, the debug run's
raw text the same, and the builder must report no unanswered request.

busybox stands in for the host's userland: the helpers the script uses that
a host's busybox provides (od, dd, md5sum, find, tr, date, timeout, stat) are
busybox applets put first on the PATH. The tools the agent itself runs stay
the host's own.
"""
import hashlib
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import simlib

HERE = os.path.dirname(os.path.abspath(__file__))
SCRIPT = os.path.join(simlib.SOURCE_DIR, "capture", "quillscan-capture.sh")
BUSYBOX = shutil.which("busybox") or "/bin/busybox"
APPLETS = ("od", "dd", "md5sum", "find", "tr", "date", "timeout", "stat")


sys.path.insert(0, simlib.host_path("hostile"))
import answers  # noqa: E402  (what the hostile host changes by itself)

VANISHED = sorted({p for v in answers.VANISHING
                   for p in (os.path.join(answers.DATASTORE_DIR, v),
                             os.path.dirname(os.path.join(answers.DATASTORE_DIR, v)))})


def builder():
    path = os.environ.get("QS_BUILDER") or os.path.join(
        os.path.dirname(simlib.agent()), "quillscan-build")
    if not os.path.exists(path):
        raise simlib.SimError("no quillscan-build at %s (set QS_BUILDER)" % path)
    return path


def applet_dir():
    path = tempfile.mkdtemp(prefix="qs-applets-")
    simlib._temp_dirs.append(path)
    for name in APPLETS:
        os.symlink(BUSYBOX, os.path.join(path, name))
    return path


def capture(host, applets, workdir=None, changes=False, prefix=""):
    """Runs the capture script in the host under busybox sh, the script on
    standard input as over ssh, after the shell text `prefix`. Returns
    (result, capture bytes)."""
    with open(SCRIPT, "rb") as f:
        script = f.read()
    command = [BUSYBOX, "sh", "-c", "%sPATH=%s:$PATH; exec %s sh -s" % (prefix, applets, BUSYBOX)]
    result = simlib.run_in_host(host, command, script, workdir, binds=[applets], timeout=900,
                                changes=changes)
    return result, result.stdout.encode("utf-8", "surrogateescape")


def build(capture_path, out_dir, *options):
    proc = subprocess.run([builder(), capture_path, "-o", out_dir] + list(options),
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=600)
    return proc.returncode, proc.stdout.decode(errors="replace"), \
        proc.stderr.decode(errors="replace")


def documents(inv_path):
    """Every document record's lines, time-dependent values masked."""
    return [simlib.mask(simlib.decode_text(inv_path, i))
            for i, r in enumerate(simlib.header(inv_path).records) if r.get("type") != "customdata"]


def saved(name, data):
    """`data` written to a new working directory as `name`; returns its path."""
    path = os.path.join(simlib.workdir(), name)
    with open(path, "wb") as f:
        f.write(data)
    return path


class CaptureMatchesScan(unittest.TestCase):
    """One host: agent scan and debug run vs. capture and two builds."""

    @classmethod
    def setUpClass(cls):
        if not os.path.exists(BUSYBOX):
            raise simlib.SimError("busybox is needed (Debian package busybox)")
        cls.applets = applet_dir()

    def compare_host(self, host, changes=False, reading=()):
        agent_dir = simlib.workdir()
        for args in (["/silent"], ["/silent", "/debug"]):
            rc = simlib.scan(host, args + list(reading), workdir=agent_dir).returncode
            self.assertEqual(rc, 0, "%s %s" % (host, args))
        result, data = capture(host, self.applets, changes=changes)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "")
        capture_path = saved(host + ".qscap", data)

        out_dir = simlib.workdir()
        for options in ([], ["--debug"]):
            rc, out, err = build(capture_path, out_dir, *(options + list(reading)))
            self.assertEqual((rc, err), (0, ""), "%s %s" % (host, options))
            self.assertTrue(out.startswith(capture_path + " -> " + out_dir + "/"), out)

        names = sorted(n for n in os.listdir(agent_dir) if n.endswith(".inv"))
        self.assertEqual(len(names), 2)
        self.assertEqual(sorted(n for n in os.listdir(out_dir)), names)
        for name in names:
            self.assertEqual(documents(os.path.join(out_dir, name)),
                             documents(os.path.join(agent_dir, name)), name)
        # The debug run is the second file, "(1)"; its raw text is the tools'
        # output and has no time in it.
        debug = [n for n in names if "(1)" in n][0]
        self.assertEqual(simlib.decode_raw(os.path.join(out_dir, debug)),
                         simlib.decode_raw(os.path.join(agent_dir, debug)))
        return result

    def test_hosts(self):
        for host in ("esxi67", "esx41", "esxi55-dhcp", "bare", "gen-vms"):
            with self.subTest(host=host):
                self.compare_host(host)

    def test_esxi90_current_reading(self):
        # The builder takes the agent's /current, and the capture holds what
        # that reading asks for (version query, SATA/NVMe disks, sizes).
        self.compare_host("esxi90", reading=("/current",))

    def test_hostile(self):
        result = self.compare_host("hostile", changes=True)
        # The capture runs no injected command and changes nothing but what
        # the host changes by itself when its machines are listed.
        self.assertEqual([c for c in result.calls if c.split("_")[0] == "pwned"], [])
        self.assertEqual(sorted(result.changes), sorted(["/sim/calls.log"] + VANISHED))
        # Each hostile name reached its tool as one word, byte for byte.
        for key in ("esxcli_storage_core_device_list_-d_naa.%24%28pwned%29",
                    "vim-cmd_vmsvc+power.getstate_1%3Bpwned"):
            self.assertIn(key, result.calls)


class RefusedCaptures(unittest.TestCase):
    """A cut or altered capture is refused with one line and status 1; with
    --strict, an unanswered request fails the build and keeps no file."""

    @classmethod
    def setUpClass(cls):
        cls.applets = applet_dir()
        _, cls.data = capture("bare", cls.applets)

    def refuse(self, data, expected):
        """The build fails with one line starting with `expected`."""
        path = saved("bad.qscap", data)
        out_dir = simlib.workdir()
        rc, out, err = build(path, out_dir)
        self.assertEqual(rc, 1)
        self.assertEqual(out, "")
        prefix = "quillscan-build: %s: %s" % (path, expected)
        self.assertTrue(err.startswith(prefix), err)
        self.assertEqual(err.count("\n"), 1, err)
        self.assertEqual(os.listdir(out_dir), [])

    def test_truncated_and_altered(self):
        data = self.data
        count = int(data.rstrip(b"\n").rsplit(b"\n", 1)[1].split()[1])
        for cut in (0, 1, 12, len(data) // 3, len(data) // 2, len(data) - 3):
            self.refuse(data[:cut], "empty file" if cut == 0 else
                        "not a capture" if cut < 12 else "capture is truncated")
        self.refuse(data[:-1], "capture is truncated after record %d" % count)
        hex_at = data.index(b"\n ") + 2
        altered = data[:hex_at] + (b"0" if data[hex_at:hex_at + 1] != b"0" else b"1") + \
            data[hex_at + 1:]
        self.refuse(altered, "capture is damaged: the block ending with record ")
        self.refuse(b"QSCAP 2 md5\nZ 0\n",
                    "unsupported capture version or checksum (this reader reads \"QSCAP 1 md5\")")

    def test_strict_fails_on_unanswered_requests(self):
        # Put a harmless probe in place of the locator's listing of /bin (and
        # mend the block's checksum): the scan asks for /bin and the capture
        # cannot answer.
        lines = self.data.split(b"\n")
        at = next(i for i, line in enumerate(lines) if line.startswith(b"R 4 "))
        self.assertTrue(lines[at].startswith(b"R 4 D find"), lines[at])
        end = at + 1
        while not lines[end].startswith((b"R ", b"E ")):
            end += 1
        lines[at:end] = [b"R 4 I =none"]
        begin = max(i for i in range(at) if i == 0 or lines[i].startswith(b"E ")) + 1
        close = next(i for i in range(at, len(lines)) if lines[i].startswith(b"E "))
        block = b"\n".join(lines[begin:close]) + b"\n"
        lines[close] = b"E " + hashlib.md5(block).hexdigest().encode()
        path = saved("hole.qscap", b"\n".join(lines))
        out_dir = simlib.workdir()
        rc, out, err = build(path, out_dir)
        self.assertEqual((rc, err.splitlines()), (0, ["quillscan-build: %s: unanswered directory: /bin" % path]))
        self.assertEqual(len(os.listdir(out_dir)), 1)
        strict_dir = simlib.workdir()
        rc, out, err = build(path, strict_dir, "--strict")
        self.assertEqual(rc, 1)
        self.assertTrue(err.endswith("1 request(s) unanswered, no file kept (--strict)\n"), err)
        self.assertEqual(os.listdir(strict_dir), [])


class NoexecHost(unittest.TestCase):
    """A host whose working directory and /tmp refuse to run programs: the
    copied agent cannot start, the capture (a script read by the host's own
    shell) works, and the file built from it is the one the agent writes on
    the same host without the restriction."""

    NOEXEC = 'mount -o remount,bind,noexec "$PWD" && mount -t tmpfs -o noexec tmpfs /tmp && '

    def test_noexec_working_directory_and_tmp(self):
        host = "esxi67"
        agent_dir = simlib.workdir()
        self.assertEqual(simlib.scan(host, ["/silent"], workdir=agent_dir).returncode, 0)

        agent = simlib.agent()
        blocked = simlib.run_in_host(host, ["/bin/sh", "-c", self.NOEXEC +
                                            "cp %s ./quillscan && ./quillscan /silent; "
                                            "cp ./quillscan /tmp/q && /tmp/q /silent" % agent],
                                     binds=[os.path.dirname(agent)])
        self.assertEqual(blocked.returncode, 126)
        self.assertEqual(blocked.stderr.count("Permission denied"), 2, blocked.stderr)
        self.assertEqual([f for f in blocked.files if f.endswith(".inv")], [])

        result, data = capture(host, applet_dir(), prefix=self.NOEXEC)
        self.assertEqual(result.returncode, 0, result.stderr)
        path = saved("noexec.qscap", data)
        out_dir = simlib.workdir()
        rc, _, err = build(path, out_dir, "--strict")
        self.assertEqual((rc, err), (0, ""))
        names = os.listdir(agent_dir)
        self.assertEqual(os.listdir(out_dir), names)
        self.assertEqual(documents(os.path.join(out_dir, names[0])),
                         documents(os.path.join(agent_dir, names[0])))


if __name__ == "__main__":
    unittest.main()
