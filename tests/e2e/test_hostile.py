"""End to end: the agent on the simulated host `hostile` (sim/hosts/hostile,
whose answers.py says what each tool prints and why).

A scan of that host completes: it never hangs (each run has a time limit),
never runs a command injected through host text (the payloads call the
marker tool `pwned` or create pwned* files), changes nothing in the host
outside its current directory, and stays within MEMORY_BOUND_MB of resident
memory. Variants of the host whose output ends a scan on purpose end it
exactly so: the "basic_string::substr" out-of-range error, no file.
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

# Largest resident set of the agent (and of the tools it waits for) while it
# scans the hostile host: 50 MB of process list, 100,000 accounts and
# megabyte lines in the tree, then the serialized and compressed copies.
# Measured about 300 MB (32-bit host binary) and 350 MB (native); a build
# with AddressSanitizer keeps shadow memory and freed blocks besides.
MEMORY_BOUND_MB = 512
MEMORY_BOUND_ASAN_MB = 1536
TIME_LIMIT = 300

# uname -n prints "h\0st/$(pwned)`pwned`;ile\r\n.lab.local": the short name
# runs to the first ".", is upper-cased, and "/" and control bytes become
# "_"; the MAC is vmk0's.
FILE_NAME = "H_ST_$(PWNED)`PWNED`;ILE___0013320A0001.inv"


def is_asan(binary):
    with open(binary, "rb") as f:
        return b"__asan_init" in f.read()


def copy_host(variant_answers, vmware_v=None):
    """A copy of the hostile host in which the commands of variant_answers
    (KEY: bytes) answer with those bytes instead."""
    d = os.path.join(simlib.workdir(), "hostile")
    shutil.copytree(HOST_DIR, d, symlinks=True, ignore=shutil.ignore_patterns("__pycache__"))
    if vmware_v is not None:
        variant_answers = dict(variant_answers, **{"vmware_-v": vmware_v})
    for key, data in variant_answers.items():
        os.unlink(os.path.join(d, "commands", key + ".sh"))
        with open(os.path.join(d, "commands", key), "wb") as f:
            f.write(data)
    return d


def probe_scan(host, args):
    """Scans host with the agent under host_probe.py; returns the result and
    the probe's report."""
    binary = simlib.agent()
    command = ["/usr/bin/python3", "-S", PROBE, str(TIME_LIMIT), binary] + list(args)
    result = simlib.run_in_host(host, command, binds=[os.path.dirname(binary), os.path.dirname(PROBE)],
                                timeout=TIME_LIMIT + 120, changes=True)
    m = re.search(r"^PROBE (\{.*\})$", result.stderr, re.M)
    if m is None:
        raise AssertionError("no probe report; stderr ends with %r" % result.stderr[-2000:])
    return result, json.loads(m.group(1))


def stored(text):
    """A text as the tree stores it, for texts whose only special bytes are
    carriage returns: each one swallows the byte after it."""
    out, i = [], 0
    while i < len(text):
        out.append(text[i])
        i += 2 if text[i] == "\r" else 1
    return "".join(out)


def tool_of(key):
    return key.split("_", 1)[0]


# What the host itself changes once the machine list is asked for: the files
# of answers.VANISHING go, and their directories change with them.
VANISHED = sorted({p for v in answers.VANISHING
                   for p in (os.path.join(answers.DATASTORE_DIR, v),
                             os.path.dirname(os.path.join(answers.DATASTORE_DIR, v)))})


class InjectionChecks(unittest.TestCase):
    maxDiff = None

    def check_clean(self, result, report, expected_changes=("/sim/calls.log",)):
        """Ended in time, ran no payload, changed nothing outside its
        directory, and stayed within the memory bound."""
        self.assertIsNotNone(report["status"], "still running after %d s" % TIME_LIMIT)
        self.assertEqual([c for c in result.calls if tool_of(c) == "pwned"], [])
        self.assertEqual(sorted(result.changes), sorted(expected_changes))
        bound = MEMORY_BOUND_ASAN_MB if is_asan(simlib.agent()) else MEMORY_BOUND_MB
        self.assertLessEqual(report["maxrss_kb"], bound * 1024,
                             "peak resident set %d KiB" % report["maxrss_kb"])


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
        """Each hostile name arrives at its tool byte for byte: the calls
        log holds the exact KEY of each command line."""
        key = answers.command_key
        expected = [key(["esxcli", "storage", "core", "device", "list", "-d", d])
                    for d in answers.DEVICES]
        # Every machine whose configuration file is there when it is looked
        # for (the fourth one vanished).
        expected += [key(["vim-cmd", "vmsvc/power.getstate", vm_id])
                     for vm_id in answers.VM_IDS if vm_id != answers.VM_IDS[3]]
        expected += [key(["lsusb", "-s", "%s:%s" % pair, "-v"]) for pair in answers.USB]
        for k in expected:
            self.assertIn(k, self.result.calls)
        # One route listing per interface (the loopback included).
        self.assertEqual(self.result.calls.count("esxcfg-route_-l"), len(answers.INTERFACES) + 1)


class HostileDebugRunTest(InjectionChecks):
    def test_debug_run(self):
        result, report = probe_scan("hostile", ["/silent", "/debug"])
        self.assertEqual(report["status"], 0)
        self.check_clean(result, report, ["/sim/calls.log"] + VANISHED)
        self.assertEqual(result.files, [FILE_NAME])
        raw = simlib.decode_raw(result.path(FILE_NAME))
        # /etc/fstab cannot be read; df prints garbage; the loop of its own
        # sections is complete.
        self.assertIn(b">>>---Begin of Section: 'FSTAB-file info'---<<<\nfile not found\n", raw)
        self.assertTrue(raw.endswith(b">>>---End of Section: 'HOSTNAME'---<<<\n"))


class Esx4VariantTest(InjectionChecks):
    """The same host as ESX 4.1: the package names of "ipkg list" reach
    "ipkg info" as one word each."""

    def test_packages(self):
        host = copy_host({}, vmware_v=b"VMware ESX 4.1.0 build-260247\n")
        result, report = probe_scan(host, ["/silent"])
        self.assertEqual(report["status"], 0)
        self.check_clean(result, report, ["/sim/calls.log"] + VANISHED)
        infos = [c for c in result.calls if c.startswith("ipkg_info_")]
        self.assertEqual(infos, [answers.command_key(["ipkg", "info", p])
                                 for p in answers.PACKAGES])
        lines = simlib.decode_text(result.path(result.files[0]), 0)
        soft = sorted(l.split("=", 1)[1] for l in lines if l.startswith("*Soft:"))
        self.assertEqual(soft, sorted(stored(p) for p in answers.PACKAGES))


# Outputs that end a scan with the out-of-range error of std::string::substr,
# and the last progress line printed before it: (name, {KEY: output}, last).
OUT_OF_RANGE = [
    # Two packages but only one processor record, and no cache record after
    # it: the second block starts past the end of the dump.
    ("processor records", {
        "vim-cmd_hostsvc+hosthardware": b"cpuInfo = {\nnumCpuPackages = 2,\nnumCpuCores = 4,\n",
        "smbiosDump": b"  Processor Info: #4\n    Version: \"x\"\n",
    }, "10%"),
    # An extent line of two columns.
    ("extent columns", {
        "esxcli_storage_vmfs_extent_list": b"Volume Name  VMFS UUID\n---  ---\nVMs $(pwned)\n",
    }, "15%"),
    # A ruleset line without a blank after its name.
    ("firewall line", {
        "esxcli_network_firewall_ruleset_list": b"Name  Enabled\n----  ----\n$(pwned);pwned\n",
    }, "20%"),
    # A machine line without "]" before its path.
    ("machine line", {
        "vim-cmd_vmsvc+getallvms": b"Vmid Name File\n1;pwned evil [hostile-ds no bracket.vmx\n",
    }, "60%"),
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


class ChangeDetectionTest(unittest.TestCase):
    """The control for the checks above: writes outside the current
    directory and calls of the marker tool are seen."""

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
