#!/usr/bin/python3 -S
"""Answers of the simulated host `hostile`: an ESXi 6.7 host whose tools and
files print everything an agent must survive.

Every commands/KEY.sh of this host is a link to commands/answer.sh, which
runs this program with KEY; the bytes returned by ANSWERS[KEY]() (or the
pieces it yields) are the tool's output. Generating them keeps the hostile bytes (NUL, binary garbage,
CR LF, megabyte lines, a 50 MB output) readable here instead of committing
opaque files, and lets the end-to-end tests import this module for the
values they expect.

What is hostile, in short:
- shell metacharacters (; $( ) backquotes, quotes, |, &&, >) in interface
  names (interfaces file), device names, VM ids and names, USB numbers and
  package names; every payload calls the marker tool `pwned` or creates a
  file named pwned*, so a test can tell that none of them ran;
- outputs cut in the middle of a line, NUL bytes and binary garbage, CR LF
  line ends, lines of a megabyte, and one output of 50 MB (ps -cvu);
- files that loop, vanish, cannot be read, or are FIFOs (setup.sh).

The scan of this host completes. Inputs that end a scan on purpose (the
out-of-range cases) are variants the tests build on top of this host.
"""
import os
import random
import sys

MB = 1 << 20

# ---------------------------------------------------------------------------
# Values shared with setup.sh, the interfaces file and the tests.

# The management interface comes first (after lo0), so its MAC names the
# inventory file. The other names are what the kernel allows in an
# interface name: up to 15 bytes, no "/", ":" or white space.
INTERFACES = [
    ("vmk0", "00:13:32:0a:00:01", "10.66.0.10/24"),
    (";pwned", "00:50:56:66:00:01", "10.66.1.10/24"),
    ("$(pwned)", "00:50:56:66:00:02", "10.66.2.10/24"),
    ("`pwned`", "00:50:56:66:00:03", "10.66.3.10/24"),
    ("'$(pwned)'", "00:50:56:66:00:04", "10.66.4.10/24"),
    ('"$(pwned)"', "00:50:56:66:00:05", "10.66.5.10/24"),
    ("x|pwned&&y>f", "00:50:56:66:00:06", "10.66.6.10/24"),
]
# The gateway the route listing gives each interface (found by grep with the
# interface name as its pattern).
GATEWAYS = {name: "10.66.%d.1" % i for i, (name, _, _) in enumerate(INTERFACES)}

# Device names of the VMFS extents; each reaches "esxcli storage core device
# list -d NAME" as one argument. A line break inside a name can only be a
# carriage return: a line feed ends the listing's line.
DEVICES = [
    "naa.6005;pwned",
    "naa.$(pwned)",
    "naa.`pwned`",
    "naa.'$(pwned)'",
    'naa."$(pwned)"',
    "naa.\rpwned\r$(pwned)",
    "naa.x|pwned&&>pwned.f",
]
# The model each device's answer reports (only the last device has no
# answer: the command prints nothing).
DEVICE_MODELS = {name: "MODEL-%d" % i for i, name in enumerate(DEVICES[:-1])}

# VM ids of the getallvms listing (each read as a number by the agent, so
# each starts with digits) and what "vim-cmd vmsvc/power.getstate ID" says.
VM_IDS = ["1;pwned", "2$(pwned)", "3`pwned`", "4'$(pwned)'", '5"$(pwned)"', "6|pwned&&>pwned.f",
          "7\\\r$(pwned)"]
POWER = {
    "1;pwned": b"Retrieved runtime info\nPowered on\n",
    "2$(pwned)": b"Retrieved runtime info\r\nPowered off\r\n",
    "3`pwned`": b"Retrieved runtime info\nSuspended\n",
    "4'$(pwned)'": b"Retrieved runtime info\nPowered on\n",
    '5"$(pwned)"': b"\x00\xff garbage",
    "6|pwned&&>pwned.f": b"Retrieved runtime info\nPowered on\n",
    "7\\\r$(pwned)": b"Retrieved runtime info\nPowered on\n",
}

# USB bus and device words as lsusb prints them (the device word keeps its
# colon); each pair reaches "lsusb -s BUS:DEV -v".
USB = [
    ("001", "001:"),
    ("001;pwned", "$(pwned):"),
    ("`pwned`", "'$(pwned)':"),
    ('"$(pwned)"', "|pwned&&>pwned.f:"),
    ("002", "003:\r"),
]
USB_PRODUCTS = {pair: "Product %d" % i for i, pair in enumerate(USB)}

# Package names of "ipkg list" (the ESX 4 variant of this host); each reaches
# "ipkg info NAME".
PACKAGES = ["busybox", "pkg;pwned", "$(pwned)", "`pwned`", "'$(pwned)'", '"$(pwned)"',
            "|pwned&&>pwned.f", "-pwned", "pkg\rpwned"]

# The datastore every machine lives on, and where it is mounted.
DATASTORE = "hostile-ds"
DATASTORE_DIR = "/vmfs/volumes/5e11e5a1-0bad-cafe-0000-0000000000ff"

PS_SIZE = 50 * MB


def rng(name):
    """A generator of its own for each output, so outputs do not change
    when another one does."""
    return random.Random("hostile:" + name)


def garbage(name, size):
    """Binary garbage: every byte value, NUL included."""
    return rng(name).randbytes(size)


def crlf(text):
    return text.replace(b"\n", b"\r\n")


# ---------------------------------------------------------------------------
# Operating system.


def vmware_v():
    return b"VMware ESXi 6.7.0 build-8169922\r\n"


def esxcli_system_version_get():
    # CR LF line ends, a NUL and garbage in the build, cut in the middle of
    # the last line.
    return (b"   Product: VMware ESXi\r\n   Version: 6.7.0\r\n"
            b"   Build: Releasebuild-8169922\x00\xff\xfe\x80garbage\r\n"
            b"   Update: 3\r\n   Patch: 0\r\n   Patch lev")


def uname_n():
    # The host name decides the file name: it ends at the NUL (a "/" after
    # it would lead the file elsewhere), metacharacters must not run anything.
    return b"h\x00st/$(pwned)`pwned`;ile\r\n.lab.local\n"


def uname_m():
    return b"x86_64\r\n"


# ---------------------------------------------------------------------------
# Hardware.


def smbios_dump():
    serial = b"S" * MB  # a one-megabyte line
    return b"".join([
        b"  BIOS Info: #0\n",
        b'    Vendor: "Am\xe9rican \x00Megatrends"\n',
        b'    Version: "3.2$(pwned)"\n',
        b'    Date: "11/22"\n',
        b"  System Info: #99999999999999999999999999\n",
        b'    Manufacturer: "Super\rmicro"\n',
        b'    Product: "Super Server\r\n',
        b'    Serial: "' + serial + b'"\n',
        b"    Wake-up: 0x06 (Power Switch\n",
        b"  Board Info: #-3\n",
        b'    Manufacturer: "\xff\xfe\xfd"\n',
        b"  Chassis Info: #3\r\n",
        b'    Manufacturer: "Supermicro"\r\n',
        b"    Type: 0x17 (   )\r\n",
        b"    Bootup State: 0x03 (\x00)\r\n",
        b"  Processor Info: #4\n",
        b'    Version: "Intel(R)  Xeon(TM)\x99 CPU \xae E5-2640 (R(R)) @ 2.40GHz"\n',
        b"    Voltage: 1e999 V\n",
        b"    Max. Speed: 99999999999999999999999 MHz\n",
        b"    Current Speed: 2400 MHz\n",
        b"    L1 Cache: #6\n",
        b"    L2 Cache: #\x00\n",
        b"    L3 Cache: #no-such-cache\n",
        b"  Processor Info: #5\n",
        b'    Version: "AMD Athlon(tm) II Neo K325"\n',
        b"    Voltage: nan V\n",
        b"    Max. Speed: 1 MHz\n",
        b"    Current Speed: -7 MHz\n",
        b"    L1 Cache: #6\n",
        b"  Cache Info: #6\n",
        b'    Socket Designation: "L1-Cache\x00"\n',
        b"    Current Size: 640 kB\n",
        b"    Supported SRAM Type: 0x02 (Unknown)\n",
        b"    Current SRAM Type: 0x02 (Unknown)\n",
        b"    Associativity: 0x07 (8-way Set-associative\n",
        b"  Memory Device: #13\n",
        b"    Size: 99999999999999999999 GB\n",
        b"    Form Factor: 0x09 (DIMM)\n",
        b"    Type: 0x1a (DDR4)\n",
        b'    Bank: "P0_Node0_Channel0_Dimm0\n',
        b"  Memory Device: #14\n",
        b"    Size: 16384 MB\r\n",
        b'    Location: "DIMM\x00B1"\n',
        b"  Memory Device: #15\n",
        b"    Size: \x00 MB\n",
        b"  Memory Device: #16\n",
        b"    Size: 4 GB\n",
        garbage("smbios", 4096),
        b"\n  Memory Device: #17\n",
        b'    Size: 2048 MB\n    Bank: "cut in the mid',
    ])


def vim_cmd_hostsvc_hosthardware():
    return crlf(b"(vim.host.HardwareInfo) {\n"
                b"   cpuInfo = (vim.host.CpuInfo) {\n"
                b"      numCpuPackages = 2,\n"
                b"      numCpuCores = 99999999999999999999999,\n"
                b"      numCpuThreads = -40,\n"
                b"   },\n") + garbage("hosthardware", 2048)


def esxcli_hardware_pci_list():
    long_name = b"N" * MB
    return b"".join([
        b"garbage before the first block \x00\xff\n",
        b"0000:00:00.0\r\n   Vendor Name: Intel\x00 Corporation\r\n"
        b"   Device Name: Xeon $(pwned)\r\n   Device Class Name: Host bridge\r\n"
        b"   Flags: 0x3000\r\n",
        b"0000:00:01.0\n   Device Name: " + long_name + b"\n",
        b"0\n0\n0\n",
        garbage("pci", 8192),
        b"\n0000:02:00.0\n   Device Name: cut in the mid",
    ])


def lsusb():
    lines = [b"Bus %s Device %s ID 0e0f:8003 Hub" % (bus.encode(), dev.encode())
             for bus, dev in USB]
    # A last line with a bus word but no device word, and a line of garbage
    # without blanks: the bus and device lines no longer pair up at the end.
    return b"\n".join(lines) + b"\nBus\n"


def lsusb_verbose(pair):
    def answer():
        product = USB_PRODUCTS[pair].encode()
        return (b"\nBus %s Device %s\n  bcdUSB               2.00\r\n"
                b"  iManufacturer           1 $(pwned)\n"
                b"  iProduct                2 %s\n"
                b"  iSerial                 3 " % (pair[0].encode(), pair[1].encode(), product)
                + b"Z" * MB)
    return answer


# ---------------------------------------------------------------------------
# Network.


def esxcli_network_nic_list():
    rows = [b"Name    PCI Device    Driver  Admin Status  Link Status  Speed  Duplex  "
            b"MAC Address         MTU  Description",
            b"------  ------------  ------  ------------  -----------  -----  ------  "
            b"-----------------  ----  -----------"]
    for i, (name, mac, _) in enumerate(INTERFACES):
        if i == 0:
            description = b"Intel\x00 I350 \xe9 $(pwned)"
        elif i == 1:
            description = b"D" * MB
        else:
            description = b"nic `pwned` %d" % i
        rows.append(b"vmnic%d  0000:07:00.%d  igbn    Up            Up            1000  Full    "
                    b"%s  1500  %s" % (i, i, mac.encode(), description))
    # Every line has seven columns (a shorter one ends the scan): the garbage
    # follows the first seven of a row, without line feeds.
    rows.append(b"vmnic8  0000:07:00.8  igbn  Up  Up  1000  Full  " +
                garbage("nic", 1024).replace(b"\n", b"\r"))
    return crlf(b"\n".join(rows) + b"\n") + b"vmnic9  cut in the mid"


def esxcfg_route_l():
    rows = [b"VMkernel Routes:", b"Network          Netmask          Gateway          Interface"]
    for name, _, address in INTERFACES:
        net = address.rsplit(".", 1)[0] + ".0"
        rows.append(b"%-16s 255.255.255.0    Local Subnet     %s" % (net.encode(), name.encode()))
    for name, _, _ in INTERFACES:
        rows.append(b"default          0.0.0.0          %-16s %s" %
                    (GATEWAYS[name].encode(), name.encode()))
    return crlf(b"\n".join(rows) + b"\n")


def esxcli_network_firewall_ruleset_list():
    # Every line has a blank (a line without one ends the scan); CR LF
    # makes every "true" read as "true\r".
    rows = [b"Name                      Enabled", b"------------------------  -------",
            b"sshServer                    true", b"$(pwned)\x00;pwned               false",
            b"R" * MB + b" true", b"\xff\xfe\x80 true"]
    return crlf(b"\n".join(rows) + b"\n") + b"cutInTheMid tr"


# ---------------------------------------------------------------------------
# Storage.


def esxcli_storage_vmfs_extent_list():
    rows = [b"Volume Name  VMFS UUID                            Extent Number  Device Name  "
            b"Partition",
            b"-----------  -----------------------------------  -------------  -----------  "
            b"---------"]
    for i, device in enumerate(DEVICES):
        rows.append(b"ds%d          5e11e5a1-0bad-cafe-0000-00000000000%d  0  %s  %d" %
                    (i, i, device.encode(), i + 1))
    return crlf(b"\n".join(rows) + b"\n")


def device_list(i):
    def answer():
        size = b"99999999999999999999999" if i == 0 else b"%d" % (476908 * (i + 1))
        return crlf(b"%s\n   Display Name: x\x00y\n   Size: %s\n   Model: %s\n"
                    b"   Revision: \xff\n" % (DEVICES[i].encode(), size,
                                            DEVICE_MODELS[DEVICES[i]].encode()))
    return answer


def path_list():
    return b"Adapter Identifier: $(pwned)\n"


def esxcli_storage_filesystem_list():
    head = (b"Mount Point  Volume Name  UUID  Mounted  Type  Size  Free\n"
            b"-----------  -----------  ----  -------  ----  ----  ----\n")
    rows = [
        b"%s  %s  5e11e5a1  true  VMFS-6  1192121860096  556500254720" %
        (DATASTORE_DIR.encode(), DATASTORE.encode()),
        b"/vmfs/volumes/zero  zero;pwned  u1  true  VMFS-6  0  0",
        b"/vmfs/volumes/nan  $(pwned)  u2  true  NFS  nan  inf",
        b"/vmfs/volumes/neg  `pwned`  u3  true  NFS  -1  1e39",
        b"/vmfs/volumes/x  \x00\xff  u4  true  vfat  1e400  -1e400",
        b"only three fields",
        b"/vmfs/volumes/crlf  crlf  u5  true  vfat  4096  2048\r",
    ]
    return head + b"\n".join(rows) + b"\n/vmfs/volumes/cut  cut  u6  true  vfat  40"


def vim_cmd_vmsvc_getallvms():
    rows = [b"Vmid  Name  File  Guest OS  Version  Annotation"]
    vmx = ["loops/loops.vmx", "huge/huge.vmx", "garbage/garbage.vmx", "gone/gone.vmx",
           "unreadable/unreadable.vmx", "isdir/isdir.vmx", "fifo/fifo.vmx"]
    for vm_id, path in zip(VM_IDS, vmx):
        rows.append(b"%s  evil $(pwned) name  [%s] %s  otherGuest  vmx-13  note `pwned`" %
                    (vm_id.encode(), DATASTORE.encode(), path.encode()))
        # An annotation spread over lines; a continuation line never reads
        # as a machine.
        rows.append(b"   continued $(pwned) annotation")
    rows.append(b"0;pwned  zero id is a continuation  [%s] x.vmx" % DATASTORE.encode())
    rows.append(b"8  no such datastore  [nowhere] x/x.vmx  otherGuest  vmx-13")
    rows.append(b"9  a device, not a file  [%s] ../../../dev/zero" % DATASTORE.encode())
    return crlf(b"\n".join(rows[:2]) + b"\n") + b"\n".join(rows[2:]) + b"\n10  cut in the mid"


# Files that exist when the host starts and vanish when the machine list is
# asked for: the agent lists them and then finds them gone.
VANISHING = ["gone/gone.vmx", "loops/vanishing.vmdk"]


def vim_cmd_vmsvc_getallvms_and_vanish():
    for path in VANISHING:
        try:
            # SIMROOT: where the host's root is when the host folder is read
            # outside a simulated host (the unit tests' replay).
            root = os.environ.get("SIMROOT", "/")
            os.unlink(os.path.join(root, DATASTORE_DIR.lstrip("/"), path))
        except FileNotFoundError:
            pass
    return vim_cmd_vmsvc_getallvms()


def power_state(vm_id):
    return lambda: POWER[vm_id]


# ---------------------------------------------------------------------------
# Software, processes, environment.


def esxcli_software_vib_list():
    rows = [b"Name  Version  Vendor  Acceptance Level  Install Date",
            b"----  -------  ------  ----------------  ------------",
            b"net55-r8168  8.045a-napi  Realtek  CommunitySupported  2019-12-27",
            b"$(pwned);pwned  1.0  `pwned`  x  2019-12",
            b"\x00\xff\xfe  \x80  \x81  \x82  \x83",
            b"one-column",
            b"V" * MB + b"  2.0  VMW  VMwareCertified  --",
            b"dup  1  A  x  2019-01-01",
            b"dup  1  B  x  2019-02-02"]
    return crlf(b"\n".join(rows) + b"\n") + b"cut-in  the  mid"


def ipkg_list():
    rows = [b"%s - 1.0 - a package" % name.encode() for name in PACKAGES]
    return b"\n".join(rows) + b"\n\nSuccessfully terminated.\nafter-the-end - 1\n"


def ipkg_info(name):
    def answer():
        return (b"Package: %s\nVersion: 1.0 $(pwned)\nArchitecture: i386\x00\n"
                b"Installed-Time: 99999999999999999999999\n" % name.encode())
    return answer


def ps_cvu():
    """50 MB: two heading lines, then process lines, most of them a
    megabyte long (command lines of hex text, some of raw bytes with NULs),
    cut in the middle of the last one. Made piece by piece, so that the
    simulated tool itself stays small."""
    r = rng("ps")
    head = (b"WID     CID     World Name                       Command\n"
            b"------- ------- -------------------------------- -------\n")
    yield head
    size = len(head)
    n = 0
    while size < PS_SIZE:
        n += 1
        left = PS_SIZE - size
        if n % 10 == 0:
            body = r.randbytes(min(MB, left)).replace(b"\n", b"N")
        else:
            body = r.randbytes(min(MB, left) // 2).hex().encode()
        line = b"%d  %d $(pwned) /bin/`pwned` %s\n" % (2097000 + n, 2097000 + n, body)
        line = line[:left]
        yield line
        size += len(line)


def ps_a():
    # "dhclient" anywhere in the output makes the agent read the lease files.
    # (grep takes input with NUL bytes for binary and would not print the line.)
    return b"WID CID World Name\n1 1 init\n2 2 dhclient-uw $(pwned)\n"


def env():
    rows = [b"PATH=/bin:/sbin:$(pwned):`pwned`", b"HOME=/", b"noequals", b"=value only",
            b"NUL=a\x00b", b"LATIN=caf\xe9", b"LONG=" + b"L" * MB, b"CR=\rx", b"EMPTY="]
    return crlf(b"\n".join(rows) + b"\n") + b"CUT=in the mid"


def df_t():
    return b"Filesystem Type Size\n\x00\xff garbage\n"


ANSWERS = {
    "vmware_-v": vmware_v,
    "esxcli_system_version_get": esxcli_system_version_get,
    "esxcli_system_uuid_get": lambda: b"5e5d2a1f-1c3e-9a7b\r\n\x00$(pwned)\n",
    "uname_-n": uname_n,
    "uname_-m": uname_m,
    "smbiosDump": smbios_dump,
    "vim-cmd_hostsvc+hosthardware": vim_cmd_hostsvc_hosthardware,
    "esxcli_hardware_pci_list": esxcli_hardware_pci_list,
    "lsusb": lsusb,
    "esxcli_network_nic_list": esxcli_network_nic_list,
    "esxcfg-nics_-l": esxcli_network_nic_list,
    "esxcfg-route_-l": esxcfg_route_l,
    "esxcli_network_firewall_ruleset_list": esxcli_network_firewall_ruleset_list,
    "esxcli_storage_vmfs_extent_list": esxcli_storage_vmfs_extent_list,
    "esxcli_storage_filesystem_list": esxcli_storage_filesystem_list,
    "vim-cmd_vmsvc+getallvms": vim_cmd_vmsvc_getallvms_and_vanish,
    "esxcli_software_vib_list": esxcli_software_vib_list,
    "ipkg_list": ipkg_list,
    "ps_-cvu": ps_cvu,
    "ps_-A": ps_a,
    "env": env,
    "df_-T": df_t,
}


def command_key(words):
    """The simulated tools' KEY of a command line (see sim/README.md)."""
    keep = frozenset(b"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.,=:@-")
    out = []
    for byte in b" ".join(w.encode() if isinstance(w, str) else w for w in words):
        if byte == 0x20:
            out.append("_")
        elif byte == 0x2F:
            out.append("+")
        elif byte in keep:
            out.append(chr(byte))
        else:
            out.append("%%%02X" % byte)
    return "".join(out)


for _i, _device in enumerate(DEVICES[:-1]):
    ANSWERS[command_key(["esxcli", "storage", "core", "device", "list", "-d", _device])] = \
        device_list(_i)
for _device in DEVICES:
    ANSWERS[command_key(["esxcli", "storage", "core", "path", "list", "-d", _device])] = path_list
for _vm_id in VM_IDS:
    ANSWERS[command_key(["vim-cmd", "vmsvc/power.getstate", _vm_id])] = power_state(_vm_id)
for _pair in USB:
    ANSWERS[command_key(["lsusb", "-s", "%s:%s" % _pair, "-v"])] = lsusb_verbose(_pair)
for _name in PACKAGES:
    ANSWERS[command_key(["ipkg", "info", _name])] = ipkg_info(_name)


def main(argv):
    if len(argv) != 2 or argv[1] not in ANSWERS:
        sys.stderr.write("answers.py: no answer for %r\n" % argv[1:])
        return 127
    data = ANSWERS[argv[1]]()
    pieces = [data] if isinstance(data, bytes) else data
    out = sys.stdout.buffer
    try:
        for piece in pieces:
            for i in range(0, len(piece), MB):
                out.write(piece[i:i + MB])
        out.flush()
    except BrokenPipeError:
        pass
    return 0


if __name__ == "__main__":
    status = main(sys.argv)
    try:
        sys.stdout.flush()
    except BrokenPipeError:
        pass
    os._exit(status)
