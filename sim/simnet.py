"""A private network of simulated hosts, reachable from a control namespace,
each host optionally serving SSH with the machine's OpenSSH server.

    net = simnet.Network(directory)
    host = net.start("esxi67", sshd=True)      # sim/run, kept running
    net.run(["ssh", ...])                      # a command on the control side
    changes = host.stop()                      # what the host kept
    net.close()

Nothing of the machine's own network is touched: a switch namespace holds
the bridge br0, every host's interfaces are linked to it (sim/run
--uplink), and the control namespace is linked to it too. The control side
gets one address in each subnet of the hosts, chosen among the addresses no
host has, and only ever talks to the hosts' own addresses. Both namespaces
are held by processes of this module and end with them.
"""
import ctypes
import ipaddress
import json
import os
import shutil
import signal
import subprocess
import time

import simlib

SSHD = "/usr/sbin/sshd"

# The account OpenSSH's server drops its privileges to, and its empty
# directory (the simulated hosts bring their own /etc/passwd without it);
# a shadow entry for root without a usable password, since without one the
# server takes the account for locked and refuses even a key. The server's
# log of refused logins is a link, which it declines to write through, so
# that a host's change list holds only what its clients left.
SSHD_SETUP = """\
echo 'sshd:x:74:65534:sshd privilege separation:/run/sshd:/usr/sbin/nologin' >> /etc/passwd
echo 'root:*:19000:0:99999:7:::' > /etc/shadow
mkdir -p /run/sshd /var/log
ln -sf /dev/null /var/log/btmp
"""

SSHD_CONFIG = """\
Port 22
ListenAddress 0.0.0.0
HostKey {dir}/host_key
AuthorizedKeysFile {authorized}
PidFile {dir}/sshd.pid
StrictModes no
UsePAM no
PermitRootLogin prohibit-password
PasswordAuthentication no
KbdInteractiveAuthentication no
PrintMotd no
PrintLastLog no
UseDNS no
SetEnv PATH={path}
"""


def keygen(path):
    """A new ed25519 key pair without passphrase: path and path.pub."""
    subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", "", "-f", path],
                   check=True, stdout=subprocess.DEVNULL)
    with open(path + ".pub", encoding="ascii") as f:
        return f.read().strip()


def _die_with_parent():
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)  # PR_SET_PDEATHSIG


def _netns():
    """A process in a new network namespace, ended with its parent even
    when that is killed; returns (process, ns path)."""
    proc = subprocess.Popen(["unshare", "--net", "--", "sh", "-c", "echo; exec sleep infinity"],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            preexec_fn=_die_with_parent)
    if proc.stdout.readline() != b"\n":
        proc.wait()
        simlib.check_setup("the test network", 125, b"sim/run: could not start " +
                           proc.stderr.read())
    return proc, "/proc/%d/ns/net" % proc.pid


class Host:
    """A running simulated host. stop() ends it and returns its change list
    (paths created, changed or removed outside its working directory)."""

    def __init__(self, name, proc, workdir, addresses):
        self.name = name
        self.proc = proc
        self.workdir = workdir
        self.addresses = addresses
        self.address = addresses[0]
        self.host_key = None

    def stop(self):
        self.proc.stdin.close()
        self.proc.wait(timeout=60)
        self.proc.stdout.close()
        with open(os.path.join(self.workdir, "changes"), encoding="utf-8",
                  errors="surrogateescape") as f:
            return f.read().splitlines()


class Network:
    def __init__(self, directory):
        self.dir = directory
        # What every host sees, read-only: authorized_keys and the applets.
        self.shared = os.path.join(directory, "shared")
        self.hosts = []
        self._used = set()
        self._control_nets = {}
        self._switch_proc, self.switch = _netns()
        self._control_proc, self.control = None, None
        try:
            self._control_proc, self.control = _netns()
            self._ip(self.switch, "link add br0 type bridge", "link set br0 up",
                     "link add ctl0 type veth peer name ctl0p", "link set ctl0p master br0 up",
                     "link set ctl0 netns " + self.control)
            self._ip(self.control, "link set lo up", "link set ctl0 up")
        except BaseException:
            self.close()
            raise

    def _ip(self, ns, *commands):
        for c in commands:
            subprocess.run(["nsenter", "--net=" + ns, "ip"] + c.split(), check=True)

    def run(self, argv, **kwargs):
        """subprocess.run of argv on the control side."""
        return subprocess.run(["nsenter", "--net=" + self.control, "--"] + list(argv), **kwargs)

    def start(self, host, sshd=False, setup="", path="/usr/bin:/usr/sbin", binds=()):
        """Starts host linked to the network, with setup (sh) run in it
        first; with sshd, serving SSH on port 22 with a key of its own to
        the keys in SHARED/authorized_keys (SHARED: the folder self.shared,
        visible read-only in every host)."""
        workdir = os.path.join(self.dir, "host-%d-%s" % (len(self.hosts), os.path.basename(host)))
        os.mkdir(workdir)
        os.makedirs(self.shared, exist_ok=True)
        interfaces = [(ipaddress.ip_interface(a), mac) for _, mac, a in
                      simlib.host_interfaces(host) if mac != "-"]
        for iface, _ in interfaces:
            if iface.ip in self._used:
                raise simlib.SimError("%s: address %s is taken" % (host, iface.ip))
            self._used.add(iface.ip)
        for iface, _ in interfaces:
            self._address_control(iface.network)
        command = "echo up; read x"
        if sshd:
            setup = SSHD_SETUP + setup
            config = os.path.join(workdir, "sshd_config")
            with open(config, "w") as f:
                f.write(SSHD_CONFIG.format(dir=workdir, path=path,
                                           authorized=os.path.join(self.shared, "authorized_keys")))
            key = keygen(os.path.join(workdir, "host_key"))
            command = "%s -f %s -E %s/sshd.log || exit 1; echo up; read x; kill $(cat %s/sshd.pid)" % (
                SSHD, config, workdir, workdir)
        setup_file = os.path.join(workdir, "setup.sh")
        with open(setup_file, "w") as f:
            f.write(setup)
        argv = [simlib.SIM_RUN, host, "--workdir", workdir, "--uplink", self.switch,
                "--setup", setup_file, "--changes", os.path.join(workdir, "changes"),
                "--bind", self.shared]
        for b in binds:
            argv += ["--bind", b]
        log = os.path.join(workdir, "sim.log")
        with open(log, "wb") as f:
            proc = subprocess.Popen(argv + ["--", "/bin/sh", "-c", command],
                                    stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=f)
        if proc.stdout.readline() != b"up\n":
            proc.wait()
            with open(log, "rb") as f:
                simlib.check_setup(host, proc.returncode, f.read())
            raise simlib.SimError("%s did not start (see %s)" % (host, log))
        started = Host(host, proc, workdir, [str(i.ip) for i, _ in interfaces])
        if sshd:
            started.host_key = key
        self.hosts.append(started)
        return started

    def _address_control(self, network):
        if network in self._control_nets:
            return
        free = next(a for a in reversed(list(network.hosts())) if a not in self._used)
        self._used.add(free)
        self._control_nets[network] = free
        self._ip(self.control, "addr add %s/%d dev ctl0" % (free, network.prefixlen))

    def client_key(self):
        """A new key pair of the control side (self.dir/id), authorized on
        every SSH host started afterwards; returns the private key's path."""
        os.makedirs(self.shared, exist_ok=True)
        key = os.path.join(self.dir, "id")
        with open(os.path.join(self.shared, "authorized_keys"), "a") as f:
            f.write(keygen(key) + "\n")
        return key

    def applets(self, names):
        """A folder of busybox applets visible in every host: the userland
        of an ESXi host's shell. Returns its path."""
        path = os.path.join(self.shared, "applets")
        os.makedirs(path)
        for name in names:
            os.symlink(shutil.which("busybox"), os.path.join(path, name))
        return path

    def ssh_args(self):
        """ssh options that trust exactly the host keys of the SSH hosts
        started, by their addresses, and read no configuration file."""
        known = os.path.join(self.dir, "known_hosts")
        with open(known, "w") as f:
            for h in self.hosts:
                if h.host_key:
                    f.write("%s %s\n" % (h.address, h.host_key))
        return "-F none -o StrictHostKeyChecking=yes -o UserKnownHostsFile=" + known

    def run_playbook(self, playbook, inventory, cwd):
        """Runs ansible-playbook on the control side with the inventory (a
        dict) in cwd, with its own Ansible home there. Returns (exit status,
        output, seconds)."""
        with open(os.path.join(cwd, "inventory.json"), "w") as f:
            json.dump(inventory, f)
        env = dict(os.environ, ANSIBLE_CONFIG=os.path.join(os.path.dirname(playbook), "ansible.cfg"),
                   ANSIBLE_HOME=os.path.join(cwd, ".ansible"), ANSIBLE_NOCOLOR="1")
        start = time.monotonic()
        proc = self.run(["ansible-playbook", "-i", "inventory.json", playbook], cwd=cwd, env=env,
                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=1800)
        return proc.returncode, proc.stdout.decode(errors="replace"), time.monotonic() - start

    def close(self):
        procs = [h.proc for h in self.hosts] + [self._switch_proc, self._control_proc]
        for proc in filter(None, procs):
            if proc.poll() is None:
                proc.kill()
                proc.wait()
            for pipe in (proc.stdin, proc.stdout, proc.stderr):
                if pipe:
                    pipe.close()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()


def wait_listening(net, addresses, port=22, seconds=30):
    """Waits until every address accepts TCP connections on port."""
    deadline = time.monotonic() + seconds
    script = ("import socket,sys\nfor a in sys.argv[1:]:\n"
              "    socket.create_connection((a, %d), timeout=2).close()\n" % port)
    while net.run(["python3", "-c", script] + list(addresses),
                  stderr=subprocess.DEVNULL).returncode != 0:
        if time.monotonic() > deadline:
            raise simlib.SimError("no SSH service on %s" % " ".join(addresses))
        time.sleep(0.2)

