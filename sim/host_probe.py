#!/usr/bin/python3 -S
"""Runs a command inside a simulated host, with a time limit, and reports
how it ended and how much memory it took.

    host_probe.py TIMEOUT COMMAND...

The command's standard streams are passed through. Afterwards one line
"PROBE <json>" goes to standard error with:
  status      the command's exit status (-N when killed by signal N), or
              null when it was still running after TIMEOUT seconds (it is
              then killed)
  seconds     how long it ran
  maxrss_kb   the largest resident set of the command and of every process
              it waited for (its tools), in KiB
"""
import json
import os
import signal
import sys
import time


def main(argv):
    timeout = float(argv[1])
    command = argv[2:]
    start = time.monotonic()
    pid = os.fork()
    if pid == 0:
        try:
            os.execv(command[0], command)
        finally:
            os._exit(127)
    status = None
    while True:
        done, raw, usage = os.wait4(pid, os.WNOHANG)
        if done == pid:
            status = os.waitstatus_to_exitcode(raw)
            break
        if time.monotonic() - start > timeout:
            os.kill(pid, signal.SIGKILL)
            _, _, usage = os.wait4(pid, 0)
            break
        time.sleep(0.05)
    report = {"status": status, "seconds": round(time.monotonic() - start, 2),
              "maxrss_kb": usage.ru_maxrss}
    sys.stdout.flush()
    sys.stderr.write("PROBE " + json.dumps(report) + "\n")
    sys.stderr.flush()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
