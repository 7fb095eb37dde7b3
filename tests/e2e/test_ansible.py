"""End to end: the Ansible playbook inventories a small fleet of simulated
hosts over OpenSSH, on a private network of the test's own (sim/simnet.py).

esxi67 (capture; no Python on the session's PATH) and esx41 (binary) must
succeed, esxi90 (binary, /tmp mounted noexec) must fail at its scan, bare,
which runs no SSH server, must be reported as refusing the connection, and
a login to esxi67 as an account it lacks as refused. The play runs twice,
as on a second run the same day.
"""
import os
import re
import shutil
import sqlite3
import subprocess
import sys
import unittest

import simlib
import simnet
from test_capture import documents

PLAYBOOK = os.path.join(simlib.SOURCE_DIR, "fleet", "ansible", "quillscan.yml")
APPLETS = ("od", "dd", "md5sum", "find", "tr", "date", "timeout", "stat", "mktemp", "cat")
# A PATH without Python: every program of /usr/bin and /usr/sbin but that.
NO_PYTHON = """\
mkdir /opt/nopython
for f in /usr/bin/* /usr/sbin/*; do
  case ${f##*/} in python*) ;; *) ln -sf "$f" /opt/nopython/ ;; esac
done
"""
NOEXEC_TMP = "mount -t tmpfs -o noexec tmpfs /tmp\n"


def require(program):
    if shutil.which(program, path=os.environ.get("PATH", "") + ":/usr/sbin"):
        return
    if os.environ.get("CI") == "true":
        raise simlib.SimError("%s is missing (make deps installs it)" % program)
    raise unittest.SkipTest("skipped: %s is not installed" % program)


class AnsibleFleet(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for program in ("ansible-playbook", "sshd", "ssh-keygen", "busybox"):
            require(program)
        cls.dir = tmp = simlib.workdir()
        net = simnet.Network(tmp)
        try:
            cls.run_fleet(net, tmp)
        finally:
            net.close()

    @classmethod
    def run_fleet(cls, net, tmp):
        key = net.client_key()
        applets = net.applets(APPLETS)
        hosts = cls.hosts = {
            "esxi67": net.start("esxi67", sshd=True, setup=NO_PYTHON,
                                path=applets + ":/opt/nopython"),
            "esx41": net.start("esx41", sshd=True, path=applets + ":/usr/bin:/usr/sbin",
                               binds=[os.path.dirname(simlib.agent())]),
            "esxi90": net.start("esxi90", sshd=True, setup=NOEXEC_TMP,
                                path=applets + ":/usr/bin:/usr/sbin"),
            "bare": net.start("bare"),
        }
        simnet.wait_listening(net, [h.address for n, h in hosts.items() if n != "bare"])
        ssh_args = net.ssh_args()
        inventory = {"all": {"vars": {
            "ansible_user": "root", "ansible_ssh_private_key_file": key,
            "quillscan_ssh_args": ssh_args, "quillscan_agent": simlib.agent(),
            "quillscan_build": os.path.realpath(os.environ.get("QS_BUILDER") or os.path.join(
                os.path.dirname(simlib.agent()), "quillscan-build")),
            "quillscan_inv": simlib.decoder(), "quillscan_ndjson": True},
            "hosts": {n: {"ansible_host": h.address} for n, h in hosts.items()}}}
        for name in ("esx41", "esxi90"):
            inventory["all"]["hosts"][name]["quillscan_method"] = "binary"
        # A login the host refuses: an account it does not have.
        inventory["all"]["hosts"]["esxi67-login"] = {"ansible_host": hosts["esxi67"].address,
                                                     "ansible_user": "operator"}
        cls.runs = []
        for _ in range(2):
            rc, out, seconds = net.run_playbook(PLAYBOOK, inventory, tmp)
            sys.stderr.write("ansible-playbook, %d inventory hosts: %.1f s\n" %
                             (len(inventory["all"]["hosts"]), seconds))
            if os.environ.get("QS_SHOW_PLAY"):
                sys.stderr.write(out)
            summary = sorted(cls.day_file("summary.tsv").splitlines())
            scans = cls.query("SELECT file_name FROM scans ORDER BY file_name")
            cls.runs.append((rc, out, summary, scans))

        login = ["ssh"] + ssh_args.split() + ["-i", key, "-l", "root", hosts["esxi67"].address,
                                              "command -v python3 python; echo $PATH"]
        cls.python = net.run(login, stdout=subprocess.PIPE).stdout.decode()
        cls.changes = {n: h.stop() for n, h in hosts.items()}

    @classmethod
    def day_dir(cls):
        inv = os.path.join(cls.dir, "inv")
        days = [d for d in os.listdir(inv) if re.fullmatch(r"\d{4}-\d\d-\d\d", d)]
        return os.path.join(inv, days[0]) if len(days) == 1 else inv

    @classmethod
    def day_file(cls, *parts):
        with open(os.path.join(cls.day_dir(), *parts), encoding="utf-8") as f:
            return f.read()

    @classmethod
    def query(cls, sql):
        with sqlite3.connect(os.path.join(cls.dir, "fleet.sqlite")) as db:
            return db.execute(sql).fetchall()

    def test_inventory_files_match_direct_scans(self):
        for name, extra in (("esxi67", ["esxi67.qscap"]), ("esx41", [])):
            files = sorted(os.listdir(os.path.join(self.day_dir(), name)))
            direct_dir = simlib.workdir()
            rc = simlib.scan(name, ["/silent"], workdir=direct_dir,
                             setup=os.path.join(self.hosts[name].workdir, "setup.sh")).returncode
            self.assertEqual(rc, 0)
            (inv,) = os.listdir(direct_dir)
            self.assertEqual(files, sorted([inv] + extra), name)
            self.assertEqual(documents(os.path.join(self.day_dir(), name, inv)),
                             documents(os.path.join(direct_dir, inv)), name)
        # The capture ran without Python on the PATH.
        self.assertEqual(self.python, os.path.join(self.dir, "shared", "applets") +
                         ":/opt/nopython\n")

    def test_failures_reported_others_loaded_once(self):
        (rc1, out1, summary1, scans1), (rc2, out2, summary2, scans2) = self.runs
        day = self.day_dir()
        names = {n: os.listdir(os.path.join(day, n)) for n in ("esxi67", "esx41")}
        done = ["esx41\tdone\t%s/esx41/%s" % (day, [f for f in names["esx41"]][0]),
                "esxi67\tdone\t%s/esxi67/%s" % (day, [f for f in names["esxi67"]
                                                      if f.endswith(".inv")][0])]
        failed = ["bare\tconnect\tssh: connect to host %s port 22: Connection refused" %
                  self.hosts["bare"].address,
                  "esxi67-login\tconnect\toperator@%s: Permission denied (publickey)." %
                  self.hosts["esxi67"].address]
        # The host's shell words the refusal to run the agent its own way.
        for summary in (summary1, summary2):
            self.assertRegex(summary.pop(), r"^esxi90\tscan\t.*quillscan: Permission denied$")
        self.assertEqual(summary1, sorted(done + failed))
        self.assertEqual(summary2, sorted(
            [re.sub(r"\tdone\t(.*)/[^/]+$", r"\tdone\talready inventoried today: \1", d)
             for d in done] + failed))
        for rc, out in ((rc1, out1), (rc2, out2)):
            self.assertEqual(rc, 2, out)
            for host, failures in (("esxi67", 0), ("esx41", 0), ("esxi90", 1), ("bare", 1),
                                   ("esxi67-login", 1)):
                self.assertRegex(out, r"\n%s +: ok=\d+ +changed=\d+ +unreachable=0 +failed=%d "
                                 % (host, failures))
        # One scan per reachable host, loaded once although the play ran twice.
        self.assertEqual(len(scans1), 2)
        self.assertEqual(scans2, scans1)
        with open(os.path.join(self.dir, "inv", "ndjson", os.path.basename(day),
                               "scans.ndjson")) as f:
            self.assertEqual(len(f.read().splitlines()), 2)
        self.assertEqual(os.listdir(os.path.join(self.dir, "inv", ".partial")), [])

    def test_hosts_keep_nothing(self):
        # The simulated tools log their calls in the host; nothing else may
        # have changed, on the failed hosts either.
        for name, changes in self.changes.items():
            self.assertEqual([c for c in changes if c != "/sim/calls.log"], [], name)


if __name__ == "__main__":
    unittest.main()
