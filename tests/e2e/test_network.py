"""End to end: the "Network" and "Security" branches of scanned hosts, and the
host identity the adapters give.

The expected branches in expected/HOST/ were worked out from the host
folders (sim/hosts/HOST): the interfaces file gives the kernel's list (the
loopback first), the NIC and route listings in commands/ give descriptions
and gateways, and esxi55-dhcp's setup.sh writes lease files dated around the
current time:
  vmk0  current lease in dhclient-vmk0.leases (after an expired one)  -> 1
  vmk1  expired in its own file, another address in dhclient.leases,
        current in dhclient.leases~                                    -> 1
  vmk2  starts in the future in its own file, expired in the shared one -> 0
"""
import os
import shutil
import unittest

import simlib

EXPECTED_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "expected")

# The simulated tools the firewall and network collectors run.
NETWORK_CALLS = ("esxcli_network_firewall_ruleset_list", "esxcli_network_nic_list",
                 "esxcfg-nics_-l", "esxcfg-route_-l")


def expected_lines(host, name):
    with open(os.path.join(EXPECTED_DIR, host, name), encoding="utf-8") as f:
        text = f.read()
    assert text.endswith("\n")
    return text[:-1].split("\n")


def host_copy(host, drop):
    """A copy of a host folder without the files in `drop`."""
    d = os.path.join(simlib.workdir(), host)
    shutil.copytree(simlib.host_path(host), d, symlinks=True)
    for name in drop:
        os.remove(os.path.join(d, name))
    return d


class ScanCase(unittest.TestCase):
    host = None
    args = ["/silent"]
    tz = None

    @classmethod
    def setUpClass(cls):
        cls.result = simlib.scan(cls.host, cls.args, tz=cls.tz)
        files = cls.result.files
        cls.path = cls.result.path(files[0]) if len(files) == 1 else None
        cls.lines = simlib.decode_text(cls.path, 0) if cls.path else None

    def setUp(self):
        self.assertEqual(self.result.returncode, 0, self.result.stderr)
        self.assertIsNotNone(self.path, "expected one file, got %r" % self.result.files)

    def identity(self):
        snapshot = dict(simlib.attributes(self.lines, 1))
        return self.result.files[0], snapshot["ip-address"]

    def network_calls(self):
        return [c for c in self.result.calls if c in NETWORK_CALLS]


class Esxi67Test(ScanCase):
    host = "esxi67"

    def test_network_branch(self):
        # The ESXi 6.7 NIC listing has two status columns, so column 7 is the
        # duplex and no adapter gets a description; only vmk0 has the default
        # route; without dhclient nothing is DHCP; no DNS servers are written
        # once adapters were read.
        self.assertEqual(simlib.branch(self.lines, "Network"),
                         expected_lines("esxi67", "Network.txt"))

    def test_security_branch(self):
        self.assertEqual(simlib.branch(self.lines, "Security"),
                         expected_lines("esxi67", "Security.txt"))

    def test_commands(self):
        # Firewall first, then the NIC listing and the route listing once per
        # adapter (lo0, vmk0, vmk1, vmk2).
        self.assertEqual(self.network_calls(),
                         ["esxcli_network_firewall_ruleset_list"] +
                         ["esxcli_network_nic_list", "esxcfg-route_-l"] * 4)


class Esxi55DhcpTest(ScanCase):
    host = "esxi55-dhcp"
    # Ten hours east of UTC: the lease dates are local time, and read as
    # UTC they would all be ten hours off.
    tz = "QST-10"

    def test_network_branch(self):
        # ESXi 5.5's listing has the MAC in column 7: vmk0 (vmnic0's MAC) gets
        # the description, MTU first.
        self.assertEqual(simlib.branch(self.lines, "Network"),
                         expected_lines("esxi55-dhcp", "Network.txt"))

    def test_security_branch(self):
        self.assertEqual(simlib.branch(self.lines, "Security"),
                         expected_lines("esxi55-dhcp", "Security.txt"))

    def test_identity_follows_the_adapters(self):
        # lo0 has no MAC, so vmk0 is the first usable adapter.
        self.assertEqual(self.identity(), ("ESX_05_685B35C99610.inv", "192.168.10.25"))

    def test_commands(self):
        self.assertIn("ps_-A", self.result.calls)
        self.assertEqual(self.network_calls(),
                         ["esxcli_network_firewall_ruleset_list"] +
                         ["esxcli_network_nic_list", "esxcfg-route_-l"] * 4)


class Esxi55IpOptionTest(ScanCase):
    host = "esxi55-dhcp"
    args = ["/silent", "/ip:192.168.20.31"]

    def test_given_address_of_an_adapter_wins(self):
        self.assertEqual(self.identity(), ("ESX_05_0050566C210A.inv", "192.168.20.31"))


class Esxi55ForeignIpTest(ScanCase):
    host = "esxi55-dhcp"
    # The address of a lease in dhclient.leases, but of no interface.
    args = ["/silent", "/ip:192.168.20.77"]

    def test_address_of_no_adapter_is_ignored(self):
        self.assertEqual(self.identity(), ("ESX_05_685B35C99610.inv", "192.168.10.25"))


class Esx41Test(ScanCase):
    host = "esx41"

    def test_network_branch(self):
        # The Linux loopback "lo" is typed Ethernet; vswif0's generated MAC
        # is no physical NIC's; the vmkernel routes name no service console
        # interface, so there is no gateway.
        self.assertEqual(simlib.branch(self.lines, "Network"),
                         expected_lines("esx41", "Network.txt"))

    def test_security_branch(self):
        # This esxcli has no firewall namespace: the node has its annotation
        # and no rulesets.
        self.assertEqual(simlib.branch(self.lines, "Security"),
                         expected_lines("esx41", "Security.txt"))

    def test_commands(self):
        # Major version 4 reads esxcfg-nics instead of esxcli.
        self.assertEqual(self.network_calls(),
                         ["esxcli_network_firewall_ruleset_list"] +
                         ["esxcfg-nics_-l", "esxcfg-route_-l"] * 2)


class NoDhcpClientTest(ScanCase):
    @classmethod
    def setUpClass(cls):
        # The same lease files, but no dhclient among the processes.
        cls.host = host_copy("esxi55-dhcp", ["commands/ps_-A"])
        super().setUpClass()

    def test_no_adapter_is_dhcp(self):
        expected = [l.replace("dhcp-enabled=1", "dhcp-enabled=0")
                    for l in expected_lines("esxi55-dhcp", "Network.txt")]
        self.assertEqual(simlib.branch(self.lines, "Network"), expected)


class NoInterfaceTest(ScanCase):
    @classmethod
    def setUpClass(cls):
        # Not even the loopback is up: the kernel lists no interface.
        cls.host = host_copy("esxi55-dhcp", ["interfaces"])
        super().setUpClass()

    def test_dns_servers_only(self):
        # Only a pass without adapters records the DNS servers; the tab after
        # the second "nameserver" stays in front of its value.
        self.assertEqual(simlib.branch(self.lines, "Network"),
                         ["+Network=", "*dns-servers=", "dns-server:1=192.168.10.1",
                          "dns-server:2=\t192.168.10.2", "-"])

    def test_identity_without_adapters(self):
        self.assertEqual(self.identity(), ("ESX_05_0000000000.inv", "127.0.0.1"))


if __name__ == "__main__":
    unittest.main()
