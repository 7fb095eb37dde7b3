"""The simulated host itself: command keys, the tool sweep, isolation from
the machine, and loud failure when a host cannot be built."""
import os
import shutil
import subprocess
import unittest
from importlib.machinery import SourceFileLoader

import simlib

simrun = SourceFileLoader("simrun", simlib.SIM_RUN).load_module()
simtool = SourceFileLoader("simtool", os.path.join(simlib.SOURCE_DIR, "sim", "simtool")).load_module()


class CommandKeyTest(unittest.TestCase):
    def test_keys(self):
        cases = [
            ("vim-cmd vmsvc/getallvms", "vim-cmd_vmsvc+getallvms"),
            ("ps -cvu", "ps_-cvu"),
            ("esxcli storage core device list -d naa.600", "esxcli_storage_core_device_list_-d_naa.600"),
            ("vim-cmd vmsvc/power.getstate 12", "vim-cmd_vmsvc+power.getstate_12"),
            ("esxcli --formatter=csv a,b x@y", "esxcli_--formatter=csv_a,b_x@y"),
            # "_", "+" and "%" are escaped so that "_" and "+" only ever
            # stand for a space and a slash.
            ("t a_b+c%d", "t_a%5Fb%2Bc%25d"),
            ("t 'q' \"d\" $(x) ;|&", "t_%27q%27_%22d%22_%24%28x%29_%3B%7C%26"),
        ]
        for line, key in cases:
            with self.subTest(line=line):
                self.assertEqual(simtool.command_key([w.encode() for w in line.split(" ")]), key)

    def test_bytes_and_empty_arguments(self):
        self.assertEqual(simtool.command_key([b"t", b"", b"x"]), "t__x")
        self.assertEqual(simtool.command_key([b"t", b"\xe9\x00\t"]), "t_%E9%00%09")


class ToolSweepRuleTest(unittest.TestCase):
    """The sweep removes exactly what the agent's locator would take."""

    def test_consequences(self):
        cases = [
            ("ps", "ps", True), ("ps", "ps.gz", True), ("ps", "ps.old", True),
            ("ps", "ps2.1", True), ("ps", "s.ps", True), ("ps", "ps.Z", True),
            ("ps", "ps.bz2", True), ("ps", "ps2", False), ("ps", "psx", False),
            ("ps", "pstree", False), ("ls", "lsusb", False), ("env", "env.d", True),
            ("ps", "ps.x.C", True), ("ps", "ps.a.b", False), ("ps", "ps.a.Cx", False),
            ("df", "s.df.gz", True), ("ps", "xps", False), ("uname", "unam", False),
        ]
        for tool, entry, expected in cases:
            with self.subTest(tool=tool, entry=entry):
                self.assertEqual(simrun.name_matches(tool, entry), expected)


class HostTest(unittest.TestCase):
    def test_inside_esxi67(self):
        script = r'''
set -u
echo "host=$(hostname)"
echo "pid1=$(tr '\0' ' ' < /proc/1/cmdline)"
for f in /etc/fstab /etc/samba /etc/resolv.conf /etc/group /etc/shadow /vmfs /var/lib/dhcp \
         /sbin/ifconfig /usr/sbin/iptables /usr/bin/netstat; do
  [ -e "$f" ] && [ ! -e "/sim/host/files$f" ] && echo "present $f"
done
cmp -s /etc/samba/smb.conf /sim/host/files/etc/samba/smb.conf && echo "smb=host"
cmp -s /etc/passwd /sim/host/files/etc/passwd && echo "passwd=host"
echo "ps-file=$(head -c 9 /bin/ps)"
ip -4 -o addr show | while read -r n name fam addr rest; do echo "addr $name $addr"; done
ip -o link show vmk0 | grep -o 'link/ether [0-9a-f:]*'
esxcli system version get > version.out
vim-cmd 'a b_c' x
echo "unknown=$?"
echo made > made-inside
rm -f /etc/os-release && echo removed-inside
'''
        r = simlib.run_in_host("esxi67", ["/bin/sh", "-c", script])
        self.assertEqual(r.returncode, 0, r.stderr)
        out = r.stdout.splitlines()
        self.assertIn("host=esx-01.lab.local", out)
        # /proc belongs to the host's own PID namespace: its init is sim/run.
        self.assertTrue(any(l.startswith("pid1=") and "--inner" in l for l in out), out)
        self.assertEqual([l for l in out if l.startswith("present ")], [])
        self.assertIn("passwd=host", out)
        self.assertIn("smb=host", out)
        self.assertIn("ps-file=#!/bin/sh", out)
        # Only the host's interfaces have IPv4 addresses (veth peers do not),
        # the loopback first, then the others in file order.
        ifs = simlib.host_interfaces("esxi67")
        loopback = [i for i in ifs if i[1] == "-"]
        self.assertEqual(loopback, [("lo0", "-", "127.0.0.1/8")])
        self.assertEqual([l for l in out if l.startswith("addr ")],
                         ["addr %s %s" % (i[0], i[2]) for i in loopback] +
                         ["addr %s %s" % (i[0], i[2]) for i in ifs if i[1] != "-"])
        self.assertIn("link/ether 00:13:32:08:f7:d4", out)
        # An unknown command prints nothing on stdout and exits 127.
        self.assertIn("unknown=127", out)
        self.assertIn("vim-cmd: the simulated host has no answer for this command "
                      "(vim-cmd_a_b%5Fc_x)", r.stderr)
        self.assertEqual(r.calls, ["esxcli_system_version_get", "vim-cmd_a_b%5Fc_x"])
        self.assertEqual(sorted(r.files), ["made-inside", "version.out"])
        with open(r.path("version.out"), "rb") as f:
            self.assertEqual(f.read(), simlib.host_bytes("esxi67", "commands",
                                                         "esxcli_system_version_get"))
        # Nothing the host did reached the machine.
        self.assertIn("removed-inside", out)
        self.assertTrue(os.path.exists("/etc/os-release"))

    def test_script_answers_and_real_tools(self):
        # esx41's procps ps only complains on stderr (commands/ps_-cvu.sh).
        r = simlib.run_in_host("esx41", ["/bin/ps", "-cvu"])
        self.assertEqual((r.returncode, r.stdout), (1, ""))
        self.assertIn("ERROR: Conflicting format options.", r.stderr)
        self.assertEqual(r.calls, ["ps_-cvu"])
        # bare keeps the machine's ls and has no uname, ps, df or env at all.
        r = simlib.run_in_host("bare", ["/bin/sh", "-c",
                                        "ls -d /etc; for t in uname ps df env; do "
                                        "command -v $t || echo no-$t; done; whoami"])
        self.assertEqual(r.stdout, "/etc\nno-uname\nno-ps\nno-df\nno-env\nroot\n")
        self.assertEqual(r.calls, [])


class LoudFailureTest(unittest.TestCase):
    def test_broken_host_folder(self):
        d = simlib.workdir()
        shutil.copytree(simlib.host_path("bare"), os.path.join(d, "broken"))
        with open(os.path.join(d, "broken", "interfaces"), "w") as f:
            f.write("eth0 52:54:00:12:34:56\n")
        p = subprocess.run([simlib.SIM_RUN, os.path.join(d, "broken"), "--", "/bin/true"],
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(p.returncode, 125)
        self.assertIn(b"sim/run: ", p.stderr)
        with self.assertRaises(simlib.SimError):
            simlib.run_in_host(os.path.join(d, "broken"), ["/bin/true"])

    def test_without_privileges(self):
        # Without root nothing can be built; that must be an error, never a
        # silent pass of the command.
        p = subprocess.run(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                            "/usr/bin/python3", simlib.SIM_RUN, "bare", "--workdir", "/",
                            "--", "/bin/true"],
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(p.returncode, 125, p.stderr)
        self.assertIn(b"sim/run: must run as root", p.stderr)


if __name__ == "__main__":
    unittest.main()
