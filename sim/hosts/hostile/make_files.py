#!/usr/bin/python3 -S
"""Files of the simulated host `hostile`, made by setup.sh inside the host
(large, binary or special files cannot be committed under files/).

  /etc/passwd        100,000 accounts, then broken lines, a megabyte line,
                     NUL bytes, CR LF, and a last line without a line end
  /etc/samba/smb.conf  metacharacters, NUL, Latin-1, CR LF
  /etc/fstab         a link to /proc/self/mem: opens, but every read fails
  /etc/resolv.conf   a link to nothing (vanished)
  /var/lib/dhcp/     a current lease of vmk0, garbage, a FIFO
  the datastore      the machines of the getallvms listing (see answers.py)
                     with parent chains that loop, a descriptor of 20 MB,
                     FIFOs, dangling links, directories where files belong
"""
import os
import random
import struct
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import answers  # noqa: E402

MB = answers.MB
ROOT = sys.argv[1] if len(sys.argv) > 1 else "/"

PASSWD_ACCOUNTS = 100000


def path(*parts):
    return os.path.join(ROOT, *[p.lstrip("/") for p in parts])


def write(rel, data, mode=0o644):
    p = path(rel)
    os.makedirs(os.path.dirname(p), exist_ok=True)
    with open(p, "wb") as f:
        f.write(data)
    os.chmod(p, mode)


def link(rel, target):
    p = path(rel)
    os.makedirs(os.path.dirname(p), exist_ok=True)
    os.symlink(target, p)


def fifo(rel):
    p = path(rel)
    os.makedirs(os.path.dirname(p), exist_ok=True)
    os.mkfifo(p)


def passwd():
    lines = [b"root:x:0:0:Administrator:/:/bin/sh\n"]
    for n in range(1, PASSWD_ACCOUNTS):
        lines.append(b"user%d:x:%d:%d:User %d,Room %d,555-%d,555-%d:/home/user%d:/bin/sh\n" %
                     (n, 1000 + n, 100, n, n % 97, n, n, n))
    lines += [
        b"nul\x00name:x:1:1:a\x00b:/:/bin/sh\n",
        b"crlf:x:2:2:Carriage Return:/:/bin/ash\r\n",
        b"long:x:3:3:" + b"C" * MB + b":/:/bin/sh\n",
        b"::::::\n",
        b":\n",
        b"\n",
        b"$(pwned):x:99999999999999999999999:-1:`pwned`,;pwned,|pwned:/$(pwned):/bin/`pwned`\n",
        b"latin:x:5:5:Jos\xe9 \xff:/:/bin/sh\n",
        b"onlyname\n",
        b"nohome:x:6:6:/home/dir:/bin/sh\n",
        b"last:x:7:7:no line end:/:/bin/sh",
    ]
    return b"".join(lines)


def smb_conf():
    return (b"[global]\r\n  ; netbios name = COMMENTED\r\n"
            b"   netbios name = $(pwned)\x00 `pwned`\r\n"
            b"   workgroup = \xe9quipe;pwned\r\n")


def lease(interface, address):
    # Read as local time; the start (expiry minus lease time) lies in 2000.
    return (b'lease {\n  interface "%s";\n  fixed-address %s;\n'
            b"  option dhcp-lease-time 1200000000;\n"
            b"  expire 4 2037/12/31 00:00:00;\n}\n" % (interface.encode(), address.encode()))


def descriptor(parent=None, extents=(), create_type="vmfsSparse", padding=b""):
    text = b"# Disk DescriptorFile\nversion=1\nCID=fffffffe\n"
    if parent is not None:
        text += b'parentFileNameHint="%s"\n' % parent
    text += b'createType="%s"\n' % create_type.encode()
    text += b"\n# Extent description\n"
    for line in extents:
        text += line + b"\n"
    text += b"\n# The Disk Data Base\n#DDB\n" + padding
    return text


def sparse_extent(embedded):
    """A sparse extent ("KDMV") whose descriptor sits at byte 512."""
    header = struct.pack("<4sIIQQQQ", b"KDMV", 1, 3, 2097152, 128, 1, 20)
    return header.ljust(512, b"\0") + embedded.ljust(20 * 512, b"\0")


def machines():
    ds = answers.DATASTORE_DIR
    loops = ds + "/loops"
    vmx = b"".join([
        b'.encoding = "UTF-8"\n',
        b'displayName = "evil\nname $(pwned) `pwned` \'q\' \\"\n',
        b'guestOS = "otherlinux-$(pwned)"\n',
        b'virtualHW.version = "13\x00"\n',
        b'annotation = "line1|0Aline2|0A|0A|0|0AA\xe9"\n',
        b'memsize = "99999999999999999999"\n',
        b'numvcpus = "-9223372036854775808"\n',
        b'cpuid.coresPerSocket = "-1"\n',
        b'scsi0.present = "TRUE"\n',
    ])
    disks = ["loop-a.vmdk", "self.vmdk", "big-loop.vmdk", "fifo.vmdk", "gone.vmdk",
             "vanishing.vmdk", "sparse-loop.vmdk", "extents.vmdk", "d.vmdk"]
    for unit, name in enumerate(disks):
        vmx += b'scsi0:%d.present = "TRUE"\nscsi0:%d.fileName = "%s"\n' % (unit, unit, name.encode())
    vmx += b"".join([
        b'ide0.present = "TRUE"\n',
        b'ide0:0.present = "TRUE"\nide0:0.fileName = "/abs/olute.vmdk"\n',
        b'ide1:0.present = "TRUE"\nide1:0.deviceType = "cdrom-raw"\n',
        b'ide1:0.fileName = "/dev/$(pwned)"\n',
        b'ide1:1.present = "TRUE"\nide1:1.deviceType = "atapi-cdrom"\nide1:1.autodetect = "TRUE"\n',
        b'ethernet0.present = "TRUE"\nethernet0.connectionType = "custom"\n',
        b'ethernet0.vnet = "vmnet$(pwned)"\nethernet0.generatedAddress = "00:0c:29:$(pwned)"\n',
        b'ethernet14.present = "TRUE"\nethernet15.present = "TRUE"\n',
        b"\x00\xff garbage after the keys",
    ])
    write(loops + "/loops.vmx", vmx)
    write(loops + "/loop-a.vmdk", descriptor(b"loop-b.vmdk", [b'RW 2048 VMFSSPARSE "loop-a-delta.vmdk"']))
    write(loops + "/loop-b.vmdk", descriptor(b"loop-a.vmdk", [b'RW 2048 VMFSSPARSE "loop-b-delta.vmdk"']))
    write(loops + "/self.vmdk", descriptor(b"self.vmdk"))
    # A descriptor of 20 MB that names itself as its parent: read once per
    # step of the chain.
    write(loops + "/big-loop.vmdk", descriptor(b"big-loop.vmdk", padding=b"#" * (20 * MB)))
    fifo(loops + "/fifo.vmdk")
    link(loops + "/gone.vmdk", "nowhere.vmdk")
    write(loops + "/vanishing.vmdk", descriptor(None, [b'RW 8 VMFS "vanishing-flat.vmdk"'], "vmfs"))
    write(loops + "/sparse-loop.vmdk",
          sparse_extent(descriptor(b"sparse-loop.vmdk", [b'RW 2048 SPARSE "sparse-loop.vmdk"'])))
    os.makedirs(path(loops + "/d.vmdk"))
    fifo(loops + "/pipe.vmdk")
    link(loops + "/mem", "/proc/self/mem")
    link(loops + "/dangling", "nowhere")
    with open(path(loops + "/huge-flat.vmdk"), "wb") as f:
        f.truncate(1 << 40)  # sparse: a terabyte that takes no space
    write(loops + "/extents.vmdk", descriptor(None, [
        b'RW 99999999999999999999999 FLAT "d.vmdk/../../../../../../../dev/zero"',
        b'RW -5 FLAT "pipe.vmdk"',
        b'RW 1 FLAT "d.vmdk/../mem"',
        b'RDONLY 10 FLAT "missing.vmdk"',
        b'RW 20 FLAT "\x00.vmdk"',
        b'NOACCESS 5 FLAT "huge-flat.vmdk"',
        b'RW 41943040 VMFS "huge-flat.vmdk"',
        b'RW 7 FLAT "no closing quote.vmdk',
    ], "twoGbMaxExtentFlat"))

    # One megabyte lines, and an annotation made only of line breaks.
    write(ds + "/huge/huge.vmx", b"".join([
        b'displayName = "' + b"H" * MB + b'"\n',
        b'annotation = "' + b"|0A" * (MB // 3) + b'"\n',
        b'guestOS = "' + b"g" * MB + b'"\n',
        b'memsize = "4096"\n',
    ]))
    rng = random.Random("hostile:garbage.vmx")
    write(ds + "/garbage/garbage.vmx", rng.randbytes(32768) + b'\ndisplayName = "found"\n' +
          rng.randbytes(32768))
    write(ds + "/gone/gone.vmx", b'displayName = "gone"\n')
    link(ds + "/unreadable/unreadable.vmx", "/proc/self/mem")
    os.makedirs(path(ds + "/isdir/isdir.vmx"))
    fifo(ds + "/fifo/fifo.vmx")


def main():
    write("/etc/passwd", passwd())
    os.makedirs(path("/etc/samba"), exist_ok=True)
    write("/etc/samba/smb.conf", smb_conf())
    link("/etc/fstab", "/proc/self/mem")
    link("/etc/resolv.conf", "/run/nowhere/resolv.conf")
    name, _, address = answers.INTERFACES[0]
    write("/var/lib/dhcp/dhclient-%s.leases" % name, lease(name, address.split("/")[0]))
    write("/var/lib/dhcp/dhclient-$(pwned).leases",
          random.Random("hostile:lease").randbytes(65536))
    fifo("/var/lib/dhcp/dhclient.leases")
    write("/var/lib/dhcp/dhclient.leases~", b'"vmk0"' * (MB // 6))
    machines()


if __name__ == "__main__":
    main()
