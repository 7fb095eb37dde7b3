"""End to end: the "Network" and "Security" branches of scanned hosts and the
identity their adapters give (expected/HOST/ worked out from sim/hosts/HOST).
esxi55-dhcp's setup.sh dates its leases around now: vmk0 current after an expired
one; vmk1 expired, another address, current in dhclient.leases~; vmk2 not yet begun."""
import os
import shutil
import unittest

import simlib

EXPECTED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "expected")


def expected(host, name):
    with open(os.path.join(EXPECTED, host, name + ".txt"), encoding="utf-8") as f:
        return f.read().rstrip("\n").split("\n")


class NetworkTest(unittest.TestCase):
    def check(self, host, identity=None, tz=None, network=None, name=None):
        """Scans host; checks both branches against expected/NAME (Network
        against `network` when given) and the (file name, ip-address) pair."""
        r = simlib.scan(host, ["/silent"], tz=tz)
        self.assertEqual((r.returncode, len(r.files)), (0, 1), r.stderr)
        lines = simlib.decode_text(r.path(r.files[0]), 0)
        name = name or host
        self.assertEqual(simlib.branch(lines, "Network"), network or expected(name, "Network"))
        self.assertEqual(simlib.branch(lines, "Security"), expected(name, "Security"))
        if identity is not None:
            self.assertEqual((r.files[0], dict(simlib.attributes(lines, 1))["ip-address"]), identity)

    def test_esxi67(self):
        # The 6.7 NIC listing has two status columns: column 7 is the duplex,
        # so no description; no DNS servers once adapters were read.
        self.check("esxi67", ("ESX_01_00133208F7D4.inv", "10.130.2.121"))

    def test_esxi55_dhcp(self):
        # lo0 has no MAC, so vmk0 names the file; its MAC is vmnic0's, in
        # column 7 of the 5.5 listing. Lease dates are local time: read as
        # UTC they would be 10 hours off.
        self.check("esxi55-dhcp", ("ESX_05_685B35C99610.inv", "192.168.10.25"), tz="QST-10")

    def test_esx41(self):
        # Major 4 reads esxcfg-nics; "lo" is Ethernet; the vmkernel routes
        # name no service console interface; esxcli has no firewall.
        self.check("esx41")

    def test_lease_files_unread_without_a_dhcp_client(self):
        host = os.path.join(simlib.workdir(), "esxi55-dhcp")
        shutil.copytree(simlib.host_path("esxi55-dhcp"), host, symlinks=True)
        os.remove(os.path.join(host, "commands", "ps_-A"))
        network = [l.replace("dhcp-enabled=1", "dhcp-enabled=0")
                   for l in expected("esxi55-dhcp", "Network")]
        self.check(host, tz="QST-10", network=network, name="esxi55-dhcp")


if __name__ == "__main__":
    unittest.main()
