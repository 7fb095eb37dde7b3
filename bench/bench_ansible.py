#!/usr/bin/env python3
"""Wall time of the fleet playbook (fleet/ansible/quillscan.yml) over 1, 2,
4 and 8 simulated hosts at forks=4, each host a copy of esxi67 with a name
and address of its own serving SSH on a private test network
(sim/simnet.py), by the capture method and by the binary method (the
best of two runs each). Needs root,
ansible-playbook and sshd, like the end-to-end tests. Environment: QS_AGENT,
QS_BUILDER, QS_DECODER (binaries), QS_SOURCE_DIR."""
import os
import shutil
import sys
import tempfile

SOURCE_DIR = os.environ.get("QS_SOURCE_DIR") or os.path.dirname(
    os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(SOURCE_DIR, "sim"))
import simlib  # noqa: E402
import simnet  # noqa: E402

COUNTS = (1, 2, 4, 8)
FORKS = 4
REPEAT = 2  # the best of two runs: the machine is shared
APPLETS = ("od", "dd", "md5sum", "find", "tr", "date", "timeout", "stat", "mktemp", "cat")


def host_copy(work, n):
    """esxi67 as host n: its own name, MAC and address."""
    path = os.path.join(work, "hosts", "bench%d" % n)
    shutil.copytree(os.path.join(simlib.HOSTS_DIR, "esxi67"), path, symlinks=True)
    with open(os.path.join(path, "hostname"), "w") as f:
        f.write("esx-b%02d.lab.local\n" % n)
    with open(os.path.join(path, "interfaces"), "w") as f:
        f.write("lo0 - 127.0.0.1/8\nvmk0 00:50:56:b0:00:%02x 10.201.0.%d/24\n" % (n, 10 + n))
    return path


def main():
    work = tempfile.mkdtemp(prefix="qs-bench-ansible-")
    net = simnet.Network(work)
    try:
        key = net.client_key()
        applets = net.applets(APPLETS)
        hosts = [net.start(host_copy(work, n), sshd=True, path=applets + ":/usr/bin:/usr/sbin",
                           binds=[os.path.dirname(simlib.agent())])
                 for n in range(1, max(COUNTS) + 1)]
        simnet.wait_listening(net, [h.address for h in hosts])
        common = {"ansible_user": "root", "ansible_ssh_private_key_file": key,
                  "quillscan_ssh_args": net.ssh_args(), "quillscan_agent": simlib.agent(),
                  "quillscan_build": os.environ["QS_BUILDER"], "quillscan_inv": simlib.decoder()}
        os.environ["ANSIBLE_FORKS"] = str(FORKS)
        print("hosts  capture (s)  binary (s)   forks=%d, each host a copy of esxi67" % FORKS)
        for count in COUNTS:
            row = []
            for method in ("capture", "binary"):
                inventory = {"all": {"vars": dict(common, quillscan_method=method), "hosts": {
                    "bench%d" % i: {"ansible_host": h.address}
                    for i, h in enumerate(hosts[:count], 1)}}}
                times = []
                for rep in range(REPEAT):
                    # A fresh folder each time: a host done today is skipped.
                    run_dir = os.path.join(work, "%s-%d-%d" % (method, count, rep))
                    os.mkdir(run_dir)
                    rc, out, seconds = net.run_playbook(
                        os.path.join(SOURCE_DIR, "fleet", "ansible", "quillscan.yml"), inventory,
                        run_dir)
                    if rc != 0:
                        raise SystemExit("the playbook failed (%d):\n%s" % (rc, out))
                    times.append(seconds)
                row.append(min(times))
            print("%5d  %11.1f  %10.1f" % (count, row[0], row[1]))
        for h in hosts:
            h.stop()
    finally:
        net.close()
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
