"""End to end: the agent on the simulated host `hostile` (sim/hosts/hostile,
whose answers.py says what each tool prints and why). A scan completes in its
time limit, runs no command injected through host text (the payloads call the
marker tool `pwned` or create pwned* files), changes nothing outside its
directory and stays within MEMORY_BOUND_MB. Variants whose output ends a scan
on purpose end it exactly so: the "basic_string::substr" error, no file.
"""
import json
import os
import re
import shutil
import sys
import unittest

import simlib
from simlib import PROGRESS

HOST_DIR = simlib.host_path("hostile")
sys.path.insert(0, HOST_DIR)
import answers  # noqa: E402  (the host's own description of its outputs)

HERE = os.path.dirname(os.path.abspath(__file__))
PROBE = os.path.join(simlib.SOURCE_DIR, "sim", "host_probe.py")

# Peak resident set of the agent and its tools: measured about 300 MB (32-bit)
# and 350 MB (native); AddressSanitizer keeps shadow memory besides.
MEMORY_BOUND_MB = 512
MEMORY_BOUND_ASAN_MB = 1536
TIME_LIMIT = 300

# From uname -n "h\0st/$(pwned)`pwned`;ile\r\n.lab.local" (the name ends at the
# NUL) and vmk0's MAC.
FILE_NAME = "H_0013320A0001.inv"


def is_asan(binary):
    with open(binary, "rb") as f:
        return b"__asan_init" in f.read()


def host_variant(host, files):
    """A copy of sim/hosts/HOST with files (path in the folder: bytes) in place
    of its own, or of the answer scripts (PATH.sh) of the same name."""
    d = os.path.join(simlib.workdir(), host)
    shutil.copytree(simlib.host_path(host), d, symlinks=True,
                    ignore=shutil.ignore_patterns("__pycache__"))
    for path, data in files.items():
        path = os.path.join(d, path)
        os.unlink(path if os.path.lexists(path) else path + ".sh")  # never write through a link
        with open(path, "wb") as f:
            f.write(data)
    return d


def copy_host(variant_answers, vmware_v=None):
    """A copy of the host whose commands answer as variant_answers says."""
    if vmware_v is not None:
        variant_answers = dict(variant_answers, **{"vmware_-v": vmware_v})
    return host_variant("hostile", {"commands/" + k: v for k, v in variant_answers.items()})


def probe_scan(host, args):
    """(result, probe report) of a scan under host_probe.py."""
    binary = simlib.agent()
    command = ["/usr/bin/python3", "-S", PROBE, str(TIME_LIMIT), binary] + list(args)
    result = simlib.run_in_host(host, command, binds=[os.path.dirname(binary), os.path.dirname(PROBE)],
                                timeout=TIME_LIMIT + 120, changes=True)
    m = re.search(r"^PROBE (\{.*\})$", result.stderr, re.M)
    if m is None:
        raise AssertionError("no probe report; stderr ends with %r" % result.stderr[-2000:])
    return result, json.loads(m.group(1))


def stored(text):
    """A text as the tree stores it: each carriage return swallows the next byte."""
    out, i = [], 0
    while i < len(text):
        out.append(text[i])
        i += 2 if text[i] == "\r" else 1
    return "".join(out)


def tool_of(key):
    return key.split("_", 1)[0]


# The host itself removes the files of answers.VANISHING when machines are listed.
VANISHED = sorted({p for v in answers.VANISHING
                   for p in (os.path.join(answers.DATASTORE_DIR, v),
                             os.path.dirname(os.path.join(answers.DATASTORE_DIR, v)))})


class InjectionChecks(unittest.TestCase):
    maxDiff = None

    def check_clean(self, result, report, expected_changes=("/sim/calls.log",)):
        """Ended in time, ran no payload, changed nothing else, stayed in bounds."""
        self.assertIsNotNone(report["status"], "still running after %d s" % TIME_LIMIT)
        self.assertEqual([c for c in result.calls if tool_of(c) == "pwned"], [])
        self.assertEqual(sorted(result.changes), sorted(expected_changes))
        bound = MEMORY_BOUND_ASAN_MB if is_asan(simlib.agent()) else MEMORY_BOUND_MB
        self.assertLessEqual(report["maxrss_kb"], bound * 1024,
                             "peak resident set %d KiB" % report["maxrss_kb"])

    def clean_scan(self, host, args):
        """A scan that succeeds with only the host's own changes."""
        result, report = probe_scan(host, args)
        self.assertEqual(report["status"], 0)
        self.check_clean(result, report, ["/sim/calls.log"] + VANISHED)
        return result


class HostileScanTest(InjectionChecks):
    @classmethod
    def setUpClass(cls):
        cls.result, cls.report = probe_scan("hostile", ["/silent"])
        files = cls.result.files
        cls.path = cls.result.path(files[0]) if len(files) == 1 else None

    def setUp(self):
        self.assertIsNotNone(self.path, "expected one file, got %r" % self.result.files)

    def test_completes_without_side_effects(self):
        self.assertEqual(self.report["status"], 0)
        self.check_clean(self.result, self.report, ["/sim/calls.log"] + VANISHED)
        self.assertEqual(self.result.files, [FILE_NAME])
        out = self.result.stdout.split("\n")
        self.assertEqual([l for l in out if l.endswith("%")], PROGRESS)
        self.assertEqual(out[-2:], [">>>" + FILE_NAME, ""])
        # The decoder reads every record of the file.
        self.assertEqual(simlib.decode_bytes(self.path, 1)[:3], b"\xef\xbb\xbf")

    def test_host_text_reaches_tools_as_one_word(self):
        # The calls log holds the exact KEY of each command line.
        key = answers.command_key
        expected = [key(["esxcli", "storage", "core", "device", "list", "-d", d])
                    for d in answers.DEVICES]
        # The fourth machine's configuration file vanished.
        expected += [key(["vim-cmd", "vmsvc/power.getstate", vm_id])
                     for vm_id in answers.VM_IDS if vm_id != answers.VM_IDS[3]]
        expected += [key(["lsusb", "-s", "%s:%s" % pair, "-v"]) for pair in answers.USB]
        for k in expected:
            self.assertIn(k, self.result.calls)
        # One route listing per interface (the loopback included).
        self.assertEqual(self.result.calls.count("esxcfg-route_-l"), len(answers.INTERFACES) + 1)


class HostileDebugRunTest(InjectionChecks):
    def test_debug_run(self):
        result = self.clean_scan("hostile", ["/silent", "/debug"])
        self.assertEqual(result.files, [FILE_NAME])
        raw = simlib.decode_raw(result.path(FILE_NAME))
        # /etc/fstab cannot be read; the sections still all end.
        self.assertIn(b">>>---Begin of Section: 'FSTAB-file info'---<<<\nfile not found\n", raw)
        self.assertTrue(raw.endswith(b">>>---End of Section: 'HOSTNAME'---<<<\n"))


class Esx4VariantTest(InjectionChecks):
    def test_packages_reach_ipkg_info_as_one_word(self):
        result = self.clean_scan(copy_host({}, vmware_v=b"VMware ESX 4.1.0 build-260247\n"),
                                 ["/silent"])
        # The empty line before "Successfully" names the empty package.
        infos = [c for c in result.calls if c.startswith("ipkg_info")]
        self.assertEqual(infos, [answers.command_key(["ipkg", "info", p] if p else ["ipkg", "info"])
                                 for p in answers.PACKAGES + [""]])
        lines = simlib.decode_text(result.path(result.files[0]), 0)
        soft = sorted(l.split("=", 1)[1] for l in lines if l.startswith("*Soft:"))
        self.assertEqual(soft, sorted(stored(p) for p in answers.PACKAGES + [""]))


# (name, {KEY: output}, last progress line) of outputs that end a scan.
OUT_OF_RANGE = [
    # Two packages but only one processor record, and no cache record after it.
    ("processor records", {
        "vim-cmd_hostsvc+hosthardware": b"cpuInfo = {\nnumCpuPackages = 2,\nnumCpuCores = 4,\n",
        "smbiosDump": b"  Processor Info: #4\n    Version: \"x\"\n",
    }, "10%"),
    # An extent line of two columns.
    ("extent columns", {
        "esxcli_storage_vmfs_extent_list": b"Volume Name  VMFS UUID\n---  ---\nVMs $(pwned)\n",
    }, "15%"),
    # Ruleset lines without a blank after the name, or with blanks only.
    ("firewall line", {
        "esxcli_network_firewall_ruleset_list": b"Name  Enabled\n----  ----\n$(pwned);pwned\n",
    }, "20%"),
    ("firewall blanks", {
        "esxcli_network_firewall_ruleset_list": b"Name  Enabled\n----  ----\nsshServer   \n",
    }, "20%"),
    # A NIC listing line of six columns.
    ("NIC listing line", {"esxcli_network_nic_list": b"Name\n---\na b c d e $(pwned)\n"}, "25%"),
    # A machine line with nothing after "]".
    ("machine line", {"vim-cmd_vmsvc+getallvms": b"Vmid Name File\n1;pwned evil [hostile-ds]  \n"},
     "60%"),
]


class OutOfRangeTest(InjectionChecks):
    def test_scan_ends_before_writing(self):
        for name, outputs, last in OUT_OF_RANGE:
            with self.subTest(name):
                result, report = probe_scan(copy_host(outputs), ["/silent", "/log"])
                self.assertEqual(report["status"], -6)  # SIGABRT from std::terminate
                self.assertIn("terminate called after throwing an instance of "
                              "'std::out_of_range'\n  what():  basic_string::substr",
                              result.stderr)
                self.assertEqual(result.files, [])
                progress = [l for l in result.stdout.split("\n") if l.endswith("%")]
                self.assertEqual(progress, PROGRESS[:PROGRESS.index(last) + 1])
                self.check_clean(result, report)


class UnguardedInputTest(InjectionChecks):
    def test_machine_line_without_bracket_is_read_from_its_start(self):
        result, report = probe_scan(copy_host({
            "vim-cmd_vmsvc+getallvms": b"Vmid Name File\n1;pwned evil [hostile-ds no bracket.vmx\n",
        }), ["/silent"])
        self.assertEqual((report["status"], result.files), (0, [FILE_NAME]))
        self.check_clean(result, report)
        # No file at that path: the machine is written with state 3.
        self.assertIn("vm-state=3", simlib.decode_text(result.path(FILE_NAME), 0))

    def test_zero_cores_per_socket_and_raw_host_name(self):
        vmx = "files/vmfs/volumes/5bc7459f-967eeb48-b3f7-20677cd9a16c/web01/web01.vmx"
        data = simlib.host_bytes("esxi67", vmx).replace(b'PerSocket = "2"', b'PerSocket = "0"')
        host = host_variant("esxi67", {vmx: data})
        r = simlib.scan(host, ["/silent"])
        # The arithmetic fault, where the processors are counted (before "~2.").
        self.assertEqual((r.returncode, r.files), (136, []))
        self.assertRegex(r.stdout, r"\n60%\n(.*\n)*ProcessVM start\nGuestOS = [^\n]*\n\Z")
        self.assertEqual(len(simlib.scan(host, ["/silent", "/current"]).files), 1)
        host = host_variant("esxi55-dhcp", {"commands/uname_-n": b"esx1\r\n"})
        r = simlib.scan(host, ["/silent"])
        self.assertEqual((r.returncode, r.files), (0, ["ESX1\r_685B35C99610.inv"]))


class ChangeDetectionTest(unittest.TestCase):
    """The control: writes outside the directory and marker calls are seen."""

    def test_writes_and_marker_calls_are_reported(self):
        result = simlib.run_in_host("hostile", [
            "/bin/sh", "-c", "echo x > ../pwned.f; echo y > /etc/pwned.g; pwned; echo z > here"],
            changes=True)
        parent = os.path.dirname(result.workdir)
        self.assertEqual(sorted(result.changes),
                         sorted(["/etc", "/etc/pwned.g", "/sim/calls.log",
                                 os.path.join(parent, "pwned.f")]))
        self.assertIn("pwned", result.calls)
        self.assertEqual(result.files, ["here"])


class HostFolderTest(unittest.TestCase):
    def test_answers_and_interfaces_agree(self):
        links = sorted(k[:-3] for k in os.listdir(os.path.join(HOST_DIR, "commands"))
                       if k.endswith(".sh") and k != "answer.sh")
        self.assertEqual(links, sorted(answers.ANSWERS))
        self.assertEqual(simlib.host_interfaces("hostile")[1:],
                         [tuple(i) for i in answers.INTERFACES])


if __name__ == "__main__":
    unittest.main()
