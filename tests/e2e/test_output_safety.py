"""End to end: creating the inventory file in a directory others can write to.

A preloaded library (create_gate.c, built here) stops the agent as it creates
its output, so that a race (a link planted at the output name, the directory
swapped for a link, a second agent, a kill) happens every time; it can also
refuse hard links. It needs a dynamically linked agent: QS_AGENT_NATIVE when
set, else QS_AGENT.
"""
import os
import shutil
import signal
import subprocess
import threading
import time
import unittest

import simlib

HOST = "bare"
NAME = "_525400123456.inv"
COPY1 = "_525400123456(1).inv"
HERE = os.path.dirname(os.path.abspath(__file__))


def native_agent():
    path = os.environ.get("QS_AGENT_NATIVE") or simlib.agent()
    return os.path.realpath(path)


def gated(gate_so, agent, env, run=""):
    """The agent's command line with the gate library preloaded."""
    return ("LD_PRELOAD=%s %s ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}"
            "verify_asan_link_order=0 %s%s /silent" % (gate_so, env, run, agent))


def build_gate():
    compiler = shutil.which("cc") or shutil.which("gcc")
    if compiler is None:
        raise unittest.SkipTest("no C compiler to build the gate library")
    out = os.path.join(simlib.workdir(), "gate.so")
    subprocess.run([compiler, "-shared", "-fPIC", "-O1", "-o", out,
                    os.path.join(HERE, "create_gate.c"), "-ldl"], check=True)
    return out


class Scene:
    """A working area bound into the host: scan/ (the agent's directory),
    victim/ (somewhere it must never write) and gate/ (the handshake)."""

    def __init__(self):
        self.base = simlib.workdir()
        self.scan = os.path.join(self.base, "scan")
        self.victim = os.path.join(self.base, "victim")
        self.gate = os.path.join(self.base, "gate")
        for d in (self.scan, self.victim, self.gate):
            os.mkdir(d)
        self.secret = os.path.join(self.victim, "secret")
        with open(self.secret, "w") as f:
            f.write("root only\n")
        os.chmod(self.secret, 0o600)

    def start(self, gate_so, agents=1, when="before"):
        """Starts `agents` gated agents in scan/ on a thread; each one's status
        and output go to gate/rc.N and gate/out.N."""
        agent = native_agent()
        env = "QS_GATE_DIR=%s QS_GATE_PROGRAM=%s QS_GATE_WHEN=%s" % (
            self.gate, os.path.basename(agent), when)
        runs = ["(%s > %s/out.%d 2>/dev/null; echo $? > %s/rc.%d) &"
                % (gated(gate_so, agent, env), self.gate, i, self.gate, i) for i in range(agents)]
        script = "cd %s || exit 99\n%s\nwait\n" % (self.scan, "\n".join(runs))
        thread = threading.Thread(target=simlib.run_in_host, args=(HOST, ["/bin/sh", "-c", script]),
                                  kwargs={"workdir_path": self.base, "timeout": 300, "binds": [
                                      os.path.dirname(agent), os.path.dirname(gate_so)]})
        thread.start()
        return thread

    def wait_ready(self, count, timeout=120, proc=None):
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            if proc is not None and proc.poll() is not None:
                raise AssertionError("the agent ended (status %d) before it created its file"
                                     % proc.returncode)
            if len([n for n in os.listdir(self.gate) if n.startswith("ready.")]) >= count:
                return
            time.sleep(0.02)
        raise AssertionError("the agent never reached the gate")

    def signal_masks(self):
        """Whether SIGPIPE is ignored and whether it is caught, in the
        agent waiting at the gate."""
        ready = [n for n in os.listdir(self.gate) if n.startswith("ready.")][0]
        masks = {}
        with open(os.path.join(self.gate, ready)) as f:
            for line in f:
                key, _, value = line.partition(":")
                if key in ("SigIgn", "SigCgt"):
                    masks[key] = int(value, 16)
        bit = 1 << (signal.SIGPIPE - 1)
        return bool(masks["SigIgn"] & bit), bool(masks["SigCgt"] & bit)

    def release(self):
        open(os.path.join(self.gate, "go"), "w").close()

    def outcome(self, i):
        with open(os.path.join(self.gate, "rc.%d" % i)) as f:
            status = int(f.read())
        with open(os.path.join(self.gate, "out.%d" % i)) as f:
            return status, f.read()

    def result_line(self, i):
        status, out = self.outcome(i)
        return status, [l for l in out.splitlines() if l.startswith(">>>")]


def check_files(test, directory, names, skip=()):
    """The directory holds exactly `names` (besides the names in `skip`);
    each .inv among them reads back."""
    test.assertEqual(sorted(n for n in os.listdir(directory) if n not in skip), sorted(names))
    for name in names:
        if name.endswith(".inv") and not os.path.islink(os.path.join(directory, name)):
            run = subprocess.run([simlib.decoder(), "check", os.path.join(directory, name)],
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            test.assertEqual(run.returncode, 0, run.stderr)


class OutputSafetyTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.gate_so = build_gate()

    def test_link_planted_at_the_output_name_is_not_followed(self):
        scene = Scene()
        thread = scene.start(self.gate_so)
        scene.wait_ready(1)
        # The name was free when the agent chose it; now it is a link to a
        # file the agent must not touch.
        os.symlink(scene.secret, os.path.join(scene.scan, NAME))
        scene.release()
        thread.join()
        with open(scene.secret, "rb") as f:
            self.assertEqual(f.read(), b"root only\n")
        self.assertEqual(os.stat(scene.secret).st_mode & 0o777, 0o600)
        self.assertEqual(os.readlink(os.path.join(scene.scan, NAME)), scene.secret)
        self.assertEqual(scene.result_line(0), (0, [">>>" + COPY1]))
        check_files(self, scene.scan, [NAME, COPY1])

    def test_directory_swapped_for_a_link_is_not_followed(self):
        scene = Scene()
        thread = scene.start(self.gate_so)
        scene.wait_ready(1)
        moved = scene.scan + ".moved"
        os.rename(scene.scan, moved)
        os.symlink(scene.victim, scene.scan)
        scene.release()
        thread.join()
        self.assertEqual(os.listdir(scene.victim), ["secret"])
        # The file is in the directory the scan started in, wherever it went.
        self.assertEqual(scene.result_line(0), (0, [">>>" + NAME]))
        check_files(self, moved, [NAME])

    def test_two_agents_in_one_directory_keep_both_files(self):
        scene = Scene()
        thread = scene.start(self.gate_so, agents=2)
        # Both have chosen their name before either writes.
        scene.wait_ready(2)
        scene.release()
        thread.join()
        lines = []
        for i in range(2):
            status, result = scene.result_line(i)
            self.assertEqual(status, 0)
            lines += result
        self.assertEqual(sorted(lines), [">>>" + COPY1, ">>>" + NAME])
        check_files(self, scene.scan, [NAME, COPY1])

    def test_killed_while_writing_leaves_no_inventory(self):
        scene = Scene()
        thread = scene.start(self.gate_so, when="kill")
        thread.join()
        status, out = scene.outcome(0)
        self.assertEqual(status, 128 + 9)
        self.assertNotIn(">>>", out)
        # The killed scan's temporary file stays; no .inv was made of it.
        left = os.listdir(scene.scan)
        self.assertEqual([n for n in left if not n.startswith(".quillscan-")], [])
        # The next scan takes the name as if nothing had happened.
        status, out, _, _ = simlib.run_in_host(
            HOST, ["/bin/sh", "-c", "cd %s && exec %s /silent" % (scene.scan, native_agent())],
            workdir_path=scene.base, binds=[os.path.dirname(native_agent())])
        self.assertEqual(status, 0)
        self.assertTrue(out.endswith(">>>%s\n" % NAME), out)
        check_files(self, scene.scan, [NAME], skip=left)

    def test_file_system_without_hard_links(self):
        # The file is then created under its final name, as exclusively.
        scene = Scene()
        os.symlink(scene.secret, os.path.join(scene.scan, NAME))
        agent = native_agent()
        script = "cd %s && %s" % (
            scene.scan, gated(self.gate_so, agent, "QS_GATE_NO_LINKS=1", "exec "))
        status, out, _, _ = simlib.run_in_host(
            HOST, ["/bin/sh", "-c", script], workdir_path=scene.base,
            binds=[os.path.dirname(agent), os.path.dirname(self.gate_so)])
        self.assertEqual(status, 0)
        self.assertTrue(out.endswith(">>>%s\n" % COPY1), out)
        with open(scene.secret, "rb") as f:
            self.assertEqual(f.read(), b"root only\n")
        check_files(self, scene.scan, [NAME, COPY1])

    def test_output_closed_after_the_first_line(self):
        scene = Scene()
        agent = native_agent()
        env = "QS_GATE_DIR=%s QS_GATE_PROGRAM=%s" % (scene.gate, os.path.basename(agent))
        script = "cd %s && %s" % (scene.scan, gated(self.gate_so, agent, env, "exec "))
        argv = [simlib.SIM_RUN, HOST, "--workdir", scene.base, "--bind", os.path.dirname(agent),
                "--bind", os.path.dirname(self.gate_so), "--", "/bin/sh", "-c", script]
        proc = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.DEVNULL)
        self.assertEqual(proc.stdout.readline(), b"5%\n")
        # The reader goes away; everything the agent prints from now on
        # (at least the result line, after the gate) meets a closed pipe.
        proc.stdout.close()
        scene.wait_ready(1, proc=proc)
        # SIGPIPE is caught (by a handler that does nothing), not ignored:
        # an ignored signal would stay ignored in every tool the agent runs.
        self.assertEqual(scene.signal_masks(), (False, True))
        scene.release()
        self.assertEqual(proc.wait(timeout=300), 0)
        check_files(self, scene.scan, [NAME])


if __name__ == "__main__":
    unittest.main()
