#!/usr/bin/env python3
"""Wall time of a capture of the generated 1,024-machine host (busybox sh
running quillscan-capture inside the host) plus the build of its inventory
file (quillscan-build, outside), beside the agent's own scan of the same
host. Needs root and the simulated hosts (sim/run), like the end-to-end
tests. Environment: QS_AGENT, QS_BUILDER, QS_DECODER (binaries),
QS_SOURCE_DIR."""
import os
import shutil
import subprocess
import sys
import tempfile
import time

SOURCE_DIR = os.environ.get("QS_SOURCE_DIR") or os.path.dirname(
    os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(SOURCE_DIR, "sim"))
import simlib  # noqa: E402

HOST = "gen-vms"
APPLETS = ("od", "dd", "md5sum", "find", "tr", "date", "timeout", "stat")


def main():
    busybox = shutil.which("busybox") or "/bin/busybox"
    builder = os.environ["QS_BUILDER"]
    work = tempfile.mkdtemp(prefix="qs-bench-capture-")
    try:
        applets = os.path.join(work, "applets")
        os.mkdir(applets)
        for name in APPLETS:
            os.symlink(busybox, os.path.join(applets, name))
        agent_dir = os.path.join(work, "agent")
        out_dir = os.path.join(work, "built")
        os.mkdir(agent_dir)
        os.mkdir(out_dir)

        start = time.monotonic()
        result = simlib.scan(HOST, ["/silent"], workdir=agent_dir, timeout=1800)
        agent_seconds = time.monotonic() - start
        if result.returncode != 0:
            raise SystemExit("the agent's scan failed: %s" % result.stderr)

        with open(os.path.join(SOURCE_DIR, "capture", "quillscan-capture.sh"), "rb") as f:
            script = f.read()
        capture_path = os.path.join(work, HOST + ".qscap")
        start = time.monotonic()
        with open(capture_path, "wb") as out:
            proc = subprocess.run(
                [simlib.SIM_RUN, HOST, "--workdir", work, "--bind", applets, "--",
                 busybox, "sh", "-c", "PATH=%s:$PATH; exec %s sh -s" % (applets, busybox)],
                input=script, stdout=out, stderr=subprocess.PIPE, timeout=3600)
        capture_seconds = time.monotonic() - start
        if proc.returncode != 0:
            raise SystemExit("the capture failed: %s" % proc.stderr.decode(errors="replace"))

        start = time.monotonic()
        proc = subprocess.run([builder, capture_path, "-o", out_dir, "--strict"],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=1800)
        build_seconds = time.monotonic() - start
        if proc.returncode != 0:
            raise SystemExit("the build failed: %s" % proc.stderr.decode(errors="replace"))

        size = os.path.getsize(capture_path)
        print("host %s (1,024 machines)" % HOST)
        print("agent scan in the host:        %8.1f s" % agent_seconds)
        print("capture in the host (busybox): %8.1f s  (%.1f MB)" % (capture_seconds, size / 1e6))
        print("build outside the host:        %8.1f s" % build_seconds)
        print("capture + build:               %8.1f s  (%.1f x the agent's scan)" %
              (capture_seconds + build_seconds,
               (capture_seconds + build_seconds) / max(agent_seconds, 0.001)))
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
