"""End to end: the "Network" and "Security" branches of scanned hosts and the
identity their adapters give. expected/HOST/ was worked out from sim/hosts/HOST;
on esxi55-dhcp, setup.sh dates the leases around now: vmk0 current (after an
expired one), vmk1 expired / another address / current in dhclient.leases~,
vmk2 starting in the future / expired."""
import os
import shutil
import unittest

import simlib

EXPECTED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "expected")
NETWORK_CALLS = ("esxcli_network_firewall_ruleset_list", "esxcli_network_nic_list",
                 "esxcfg-nics_-l", "esxcfg-route_-l")


def expected(host, name):
    with open(os.path.join(EXPECTED, host, name), encoding="utf-8") as f:
        return f.read().rstrip("\n").split("\n")


def host_without(host, name):
    d = os.path.join(simlib.workdir(), host)
    shutil.copytree(simlib.host_path(host), d, symlinks=True)
    os.remove(os.path.join(d, name))
    return d


class ScanCase(unittest.TestCase):
    host, args, tz = None, ["/silent"], None

    @classmethod
    def setUpClass(cls):
        cls.r = simlib.scan(cls.host, cls.args, tz=cls.tz)
        cls.lines = simlib.decode_text(cls.r.path(cls.r.files[0]), 0) if cls.r.files else []

    def check(self, name, file_name=None, ip=None, lines=None, calls=None):
        """Branch `name` as expected/HOST/NAME.txt (or `lines`), and the file
        name, Snapshot ip-address and network tool calls when given."""
        self.assertEqual((self.r.returncode, len(self.r.files)), (0, 1), self.r.stderr)
        host = os.path.basename(self.host)
        want = lines if lines is not None else expected(host, name + ".txt")
        self.assertEqual(simlib.branch(self.lines, name), want)
        if file_name is not None:
            snapshot = dict(simlib.attributes(self.lines, 1))
            self.assertEqual((self.r.files[0], snapshot["ip-address"]), (file_name, ip))
        if calls is not None:
            self.assertEqual([c for c in self.r.calls if c in NETWORK_CALLS],
                             ["esxcli_network_firewall_ruleset_list"] + calls)


class Esxi67Test(ScanCase):
    host = "esxi67"

    def test_branches(self):
        # The 6.7 NIC listing has two status columns: column 7 is the duplex,
        # so no description; no DNS servers once adapters were read.
        self.check("Network", "ESX_01_00133208F7D4.inv", "10.130.2.121",
                   calls=["esxcli_network_nic_list", "esxcfg-route_-l"] * 4)
        self.check("Security")


class Esxi55DhcpTest(ScanCase):
    # Lease dates are local time: read as UTC they would be 10 hours off.
    host, tz = "esxi55-dhcp", "QST-10"

    def test_branches(self):
        # lo0 has no MAC, so vmk0 names the file; its MAC is vmnic0's, in
        # column 7 of the 5.5 listing.
        self.check("Network", "ESX_05_685B35C99610.inv", "192.168.10.25",
                   calls=["esxcli_network_nic_list", "esxcfg-route_-l"] * 4)
        self.check("Security")
        self.assertIn("ps_-A", self.r.calls)


class Esx41Test(ScanCase):
    host = "esx41"

    def test_branches(self):
        # Major 4 reads esxcfg-nics; "lo" is Ethernet; the vmkernel routes
        # name no service console interface; esxcli has no firewall.
        self.check("Network", calls=["esxcfg-nics_-l", "esxcfg-route_-l"] * 2)
        self.check("Security")


class NoDhcpClientTest(ScanCase):
    @classmethod
    def setUpClass(cls):
        cls.host = host_without("esxi55-dhcp", "commands/ps_-A")
        super().setUpClass()

    def test_lease_files_are_not_read(self):
        want = [l.replace("dhcp-enabled=1", "dhcp-enabled=0")
                for l in expected("esxi55-dhcp", "Network.txt")]
        self.check("Network", lines=want)


class NoInterfaceTest(ScanCase):
    @classmethod
    def setUpClass(cls):
        cls.host = host_without("esxi55-dhcp", "interfaces")  # not even lo0 is up
        super().setUpClass()

    def test_dns_servers_only(self):
        # Without adapters the DNS search starts at the top; the tab after
        # the second "nameserver" stays.
        self.check("Network", "ESX_05_0000000000.inv", "127.0.0.1",
                   lines=["+Network=", "*dns-servers=", "dns-server:1=192.168.10.1",
                          "dns-server:2=\t192.168.10.2", "-"])


if __name__ == "__main__":
    unittest.main()
