"""The simulated host's Python API, used by the end-to-end tests: run the
agent inside a simulated host (sim/run) and read back what it wrote.

Binaries come from the environment, as CTest sets it:
  QS_AGENT       the quillscan binary
  QS_DECODER     the quillscan-inv binary
  QS_SOURCE_DIR  the source tree (default: the folder above sim/)

A simulated host that cannot be built because the machine does not let us
create namespaces (not root, or the kernel refuses) skips the test with
"skipped: namespaces not allowed"; under CI=true that is a failure instead.
Any other set-up failure (a broken host folder, say) raises SimError, so a
test fails loudly.
"""
import atexit
import calendar
import os
import re
import shutil
import struct
import subprocess
import tempfile
import time
import unittest
import zlib

SOURCE_DIR = os.environ.get("QS_SOURCE_DIR") or os.path.dirname(
    os.path.dirname(os.path.abspath(__file__)))
SIM_RUN = os.path.join(SOURCE_DIR, "sim", "run")
HOSTS_DIR = os.path.join(SOURCE_DIR, "sim", "hosts")

# Attributes whose values depend on when or how long the scan ran.
TIME_ATTRIBUTES = ("timestamp", "scan-time", "uptime", "first-scan", "last-scan",
                   "snapshot-list", "scan-attempt")
MASK = "<masked>"
BOM = "\ufeff"

# Progress lines of a silent scan, in order.
PROGRESS = ["5%", "10%", "15%", "20%", "25%", "30%", "35%", "40%", "45%", "50%", "60%",
            "70%", "80%", "90%", "100%"]

_temp_dirs = []


class SimError(RuntimeError):
    """The simulated host could not be set up or a helper's tool failed."""


def _binary(var):
    path = os.environ.get(var)
    if not path:
        raise SimError("%s is not set (run the end-to-end tests through ctest)" % var)
    if not os.access(path, os.X_OK):
        raise SimError("%s=%s is not an executable file" % (var, path))
    return os.path.realpath(path)


def agent():
    return _binary("QS_AGENT")


def decoder():
    return _binary("QS_DECODER")


def workdir():
    """A new empty directory, removed when the tests end."""
    d = os.path.realpath(tempfile.mkdtemp(prefix="qs-e2e-"))
    _temp_dirs.append(d)
    return d


@atexit.register
def _cleanup():
    for d in _temp_dirs:
        shutil.rmtree(d, ignore_errors=True)


def _text(data):
    return data.decode("utf-8", "surrogateescape")


class ScanResult:
    """Unpacks as (returncode, stdout, stderr, new files); also has .workdir,
    .calls (the simulated tool calls, in order), .changes (the paths the
    command changed in the host outside its working directory, when asked
    for) and .path(name)."""

    def __init__(self, returncode, stdout, stderr, files, workdir_path, calls_list,
                 changes=None):
        self.returncode = returncode
        self.stdout = stdout
        self.stderr = stderr
        self.files = files
        self.workdir = workdir_path
        self.calls = calls_list
        self.changes = changes

    def __iter__(self):
        return iter((self.returncode, self.stdout, self.stderr, self.files))

    def path(self, name):
        return os.path.join(self.workdir, name)


def check_setup(host, returncode, stderr):
    """Skips the test (fails it under CI=true) when the machine does not
    allow namespaces; raises SimError when sim/run could not set up the
    host for another reason."""
    if returncode == 125 and b"sim/run:" in stderr:
        if (b"must run as root" in stderr or b"could not start" in stderr) and \
                os.environ.get("CI") != "true":
            raise unittest.SkipTest("skipped: namespaces not allowed")
        raise SimError("the simulated host %s could not be set up:\n%s" % (host, _text(stderr)))


def run_in_host(host, command, stdin=None, workdir_path=None, env=None, binds=(), timeout=600,
                changes=False, setup=None):
    """Runs command (a list) inside the host via sim/run. Returns a
    ScanResult; stdout and stderr are text (undecodable bytes kept as
    surrogates). Raises SimError when the host could not be set up. With
    changes, the result lists what the command changed in the host."""
    if workdir_path is None:
        workdir_path = workdir()
    calls_file = os.path.join(workdir(), "calls.log")
    changes_file = os.path.join(workdir(), "changes")
    before = set(os.listdir(workdir_path))
    argv = [SIM_RUN, host, "--workdir", workdir_path, "--calls", calls_file]
    if changes:
        argv += ["--changes", changes_file]
    for b in binds:
        argv += ["--bind", b]
    if setup:
        argv += ["--setup", setup]
    argv += ["--"] + list(command)
    if isinstance(stdin, str):
        stdin = stdin.encode()
    proc_env = dict(os.environ)
    if env:
        proc_env.update(env)
    proc = subprocess.run(argv, input=stdin if stdin is not None else b"",
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=proc_env,
                          timeout=timeout)
    check_setup(host, proc.returncode, proc.stderr)
    files = sorted(set(os.listdir(workdir_path)) - before)
    calls_list = []
    if os.path.exists(calls_file):
        with open(calls_file, encoding="ascii") as f:
            calls_list = f.read().splitlines()
    changed = None
    if changes:
        with open(changes_file, "rb") as f:
            changed = _text(f.read()).splitlines()
    return ScanResult(proc.returncode, _text(proc.stdout), _text(proc.stderr), files,
                      workdir_path, calls_list, changed)


def scan(host, args, stdin=None, workdir=None, tz=None, timeout=600, setup=None):
    """Runs the agent with args inside host. tz, when given, is the TZ of
    the host's processes (otherwise the caller's TZ, or the machine's
    local time); setup, a script run in the host first (sim/run --setup)."""
    binary = agent()
    env = {"TZ": tz} if tz is not None else None
    return run_in_host(host, [binary] + list(args), stdin=stdin, workdir_path=workdir, env=env,
                       binds=[os.path.dirname(binary)], timeout=timeout, setup=setup)


def calls(result):
    """The simulated tool calls (encoded keys) of a run, in order."""
    return list(result.calls)


# ---------------------------------------------------------------------------
# Reading .inv files with the decoder.


def _decode(args):
    proc = subprocess.run([decoder()] + args, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if proc.returncode != 0:
        raise SimError("quillscan-inv %s failed (%d): %s" %
                       (" ".join(args), proc.returncode, _text(proc.stderr)))
    return proc.stdout


def decode_bytes(inv_path, record):
    """The inflated text of document record N, byte for byte."""
    return _decode(["text", inv_path, str(record)])


def decode_text(inv_path, record):
    """The lines of document record N (split at LF only: values keep CR)."""
    data = _text(decode_bytes(inv_path, record))
    if not data.endswith("\n"):
        raise SimError("document text of record %d does not end with a line end" % record)
    return data[:-1].split("\n")


def decode_raw(inv_path):
    """The inflated raw text of the custom-data record, byte for byte."""
    return _decode(["raw", inv_path])


def show(inv_path):
    return _text(_decode(["show", inv_path]))


# ---------------------------------------------------------------------------
# Reading .inv files directly (independent of the decoder).


def trailer(inv_path):
    """The last 14 bytes: header position (little-endian), version, write
    flag and magic."""
    with open(inv_path, "rb") as f:
        data = f.read()
    if len(data) < 14:
        raise SimError("%s is shorter than a trailer" % inv_path)
    t = data[-14:]
    return {
        "bytes": t,
        "position": struct.unpack("<Q", t[:8])[0],
        "version": t[8],
        "write_flag": t[9],
        "magic": t[10:],
        "file_size": len(data),
    }


class Header:
    """The header text of an .inv file: .text, .lines, .fields (the [H]
    block as a dict) and .records (one dict per record block, in order)."""

    def __init__(self, text):
        self.text = text
        self.lines = text.split("\n")
        if self.lines and self.lines[-1] == "":
            self.lines.pop()
        self.fields = {}
        self.records = []
        current = None
        for line in self.lines:
            m = re.fullmatch(r"\[(H|\d+)\]", line)
            if m:
                if m.group(1) == "H":
                    current = self.fields
                else:
                    if int(m.group(1)) != len(self.records):
                        raise SimError("header block [%s] out of order" % m.group(1))
                    current = {}
                    self.records.append(current)
                continue
            if current is None or "=" not in line:
                raise SimError("unexpected header line %r" % line)
            key, value = line.split("=", 1)
            current[key] = value


def header(inv_path):
    t = trailer(inv_path)
    with open(inv_path, "rb") as f:
        data = f.read()
    if t["position"] > len(data) - 14:
        raise SimError("header position %d beyond the file" % t["position"])
    return Header(data[t["position"]:len(data) - 14].decode("ascii"))


def body(inv_path, record):
    """The stored body of record N, as the header locates it."""
    h = header(inv_path)
    r = h.records[record]
    with open(inv_path, "rb") as f:
        data = f.read()
    off, length = int(r["offset"]), int(r["length"])
    return data[off:off + length]


def inflate_record(inv_path, record):
    """Inflates record N with zlib: a document body without its 6 framing
    bytes (00 01 "ZXML"), a custom-data body whole."""
    b = body(inv_path, record)
    if header(inv_path).records[record]["type"] == "customdata":
        return zlib.decompress(b)
    if not b.endswith(b"\x00\x01ZXML"):
        raise SimError("document body of record %d lacks its framing" % record)
    return zlib.decompress(b[:-6])


# ---------------------------------------------------------------------------
# Working with document lines.


def _kind(line):
    if line == "-":
        return "close"
    if line[:1] in ("+", "*"):
        return "element"
    if line[:1] == "~":
        return "meta"
    return "attr"


def branch(lines, name):
    """The lines of the top-level branch `name` (a child of the top
    element): "+name=..." through its closing "-", or a "*name=..." leaf
    with its annotation and attribute lines. None when there is none."""
    if len(lines) < 2 or not lines[1].startswith("+"):
        return None
    depth = 1
    i = 2
    while i < len(lines):
        line = lines[i]
        kind = _kind(line)
        if kind == "close":
            depth -= 1
            i += 1
            continue
        if kind == "element" and depth == 1 and (line.startswith("+%s=" % name) or
                                                  line.startswith("*%s=" % name)):
            out = [line]
            j = i + 1
            if line[0] == "*":
                while j < len(lines) and _kind(lines[j]) in ("meta", "attr"):
                    out.append(lines[j])
                    j += 1
                return out
            d = 1
            while j < len(lines) and d > 0:
                k = _kind(lines[j])
                if k == "close":
                    d -= 1
                elif k == "element" and lines[j][0] == "+":
                    d += 1
                out.append(lines[j])
                j += 1
            return out
        if kind == "element" and line[0] == "+":
            depth += 1
        i += 1
    return None


def mask(lines, names=TIME_ATTRIBUTES):
    """The lines with the values of the named attributes replaced by MASK."""
    out = []
    for line in lines:
        if _kind(line) == "attr" and not line.startswith(BOM):
            key = line.split("=", 1)[0]
            if key in names:
                line = key + "=" + MASK
        out.append(line)
    return out


def attributes(lines, start):
    """The attribute lines (name, value) that directly follow the element
    line at index start, skipping annotation lines."""
    out = []
    for line in lines[start + 1:]:
        k = _kind(line)
        if k == "meta":
            continue
        if k != "attr":
            break
        key, _, value = line.partition("=")
        out.append((key, value))
    return out


# ---------------------------------------------------------------------------
# Host data, for deriving expected values.


def host_path(host, *parts):
    return os.path.join(HOSTS_DIR, host, *parts)


def host_bytes(host, *parts):
    with open(host_path(host, *parts), "rb") as f:
        return f.read()


def host_interfaces(host):
    """(name, mac, ipv4/prefix) per line of the host's interfaces file."""
    out = []
    try:
        with open(host_path(host, "interfaces"), encoding="utf-8") as f:
            for raw in f:
                line = raw.split("#", 1)[0].strip()
                if line:
                    out.append(tuple(line.split()))
    except FileNotFoundError:
        pass
    return out


# ---------------------------------------------------------------------------
# Timestamps ("%Y%m%d%H%M%S.000000" and the signed UTC offset in minutes).

TIMESTAMP_RE = re.compile(r"(\d{14})\.000000([+-])(\d+)")


def timestamp_utc(text):
    """Seconds since the epoch of a timestamp text, or None when it is not
    one."""
    m = TIMESTAMP_RE.fullmatch(text)
    if not m:
        return None
    local = time.strptime(m.group(1), "%Y%m%d%H%M%S")
    offset = int(m.group(3)) * (1 if m.group(2) == "+" else -1)
    # timegm treats the local fields as UTC; subtracting the offset gives UTC.
    return calendar.timegm(local) - offset * 60
