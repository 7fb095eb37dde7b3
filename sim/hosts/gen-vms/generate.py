#!/usr/bin/python3
"""Generates the registered machines of the gen-vms host.

    generate.py ROOT COUNT      writes COUNT machines under ROOT/vmfs/volumes
                                and their listing to ROOT/var/run/gen-vms
    generate.py --tables DIR    writes the host's storage command answers
                                (extents, file systems, devices, paths) to DIR

Everything is derived from the machine number, so two runs give the same
host. Virtual disks and swap files are sparse; only the small text files
(.vmx, descriptors, logs) hold data.
"""
import os
import struct
import sys

# name, VMFS UUID, device, device size in MB, file-system size and free bytes
DATASTORES = [
    ("ds-prod-%02d" % (n + 1),
     "5d%06x-%08x-%04x-0025b5000a1f" % (0x1a2b00 + n, 0x3c4d5e60 + n, 0x7100 + n),
     "naa.60060e80%012x0000%012x" % (0x1f2e3d4c5b6a + n, 0xa000 + n),
     4194304,
     4397509640192,
     4397509640192 - (n + 1) * 262144 * 1048576)
    for n in range(8)
]

GUESTS = [
    ("rhel7-64", "rhel7_64Guest"),
    ("windows9srv-64", "windows9Server64Guest"),
    ("ubuntu-64", "ubuntu64Guest"),
    ("centos7-64", "centos7_64Guest"),
    ("sles12-64", "sles12_64Guest"),
    ("other3xlinux-64", "other3xLinux64Guest"),
]

GIB = 1 << 30


def machine(i):
    """The description of machine number i (from 1)."""
    guest, guest_id = GUESTS[i % len(GUESTS)]
    name = "vm-%04d" % i if i % 37 else "app server %04d" % i
    return {
        "id": str(i),
        "name": name,
        "ds": DATASTORES[(i - 1) % len(DATASTORES)],
        "guest": guest,
        "guest_id": guest_id,
        "hw": (13, 11, 14)[i % 3],
        "cpus": (1, 2, 4, 8)[i % 4],
        "cores": (1, 2)[(i // 4) % 2],
        "mem": (1024, 2048, 4096, 8192)[(i // 2) % 4],
        "disk_gb": 16 + (i * 7) % 85,
        "second_disk": i % 3 == 0,
        "snapshot": i % 4 == 0,
        "sparse_ide": i % 16 == 5,
        "iso": i % 2 == 0,
        "static_nic": i % 2 == 1,
        "powered_on": i % 2 == 0,
        "notes": "Owner: team-%d|0ARebuilt in 2018" % (i % 9) if i % 10 == 0 else
                 ("Service %d" % i if i % 3 == 0 else ""),
    }


def descriptor(cid, create_type, extents, parent=None, adapter="lsilogic"):
    lines = ["# Disk DescriptorFile", "version=1", 'encoding="UTF-8"', "CID=%08x" % cid,
             "parentCID=%s" % ("%08x" % (cid ^ 0x5a5a) if parent else "ffffffff"),
             'isNativeSnapshot="no"', 'createType="%s"' % create_type]
    if parent:
        lines.append('parentFileNameHint="%s"' % parent)
    else:
        lines.append("")
    lines.append("# Extent description")
    lines += extents
    lines += ["", "# The Disk Data Base", "#DDB", "", 'ddb.adapterType = "%s"' % adapter,
              'ddb.longContentID = "%024x%08x"' % (cid * 7919, cid)]
    if not parent:
        lines.append('ddb.thinProvisioned = "1"')
    return "\n".join(lines) + "\n"


def sparse(path, size, head=b""):
    with open(path, "wb") as f:
        f.write(head)
        f.truncate(size)


def sparse_extent(path, sectors, written, name):
    """A monolithic sparse disk with its descriptor at byte 512."""
    text = descriptor(0xa3c10000 + sectors % 0xffff, "monolithicSparse",
                      ['RW %d SPARSE "%s"' % (sectors, name)], adapter="ide").encode()
    header = struct.pack("<4sIIQQQQIQQQB4s", b"KDMV", 1, 3, sectors, 128, 1, 20, 512,
                         21, 2582, 5248, 0, b"\n \r\n")
    sparse(path, written, header.ljust(512, b"\0") + text.ljust(20 * 512, b"\0"))


def vmx_text(m):
    keys = [
        (".encoding", "UTF-8"), ("config.version", "8"),
        ("virtualHW.version", str(m["hw"])), ("nvram", m["name"] + ".nvram"),
        ("pciBridge0.present", "TRUE"), ("svga.present", "TRUE"),
        ("pciBridge4.present", "TRUE"), ("pciBridge4.virtualDev", "pcieRootPort"),
        ("pciBridge4.functions", "8"), ("vmci0.present", "TRUE"), ("hpet0.present", "TRUE"),
        ("floppy0.present", "FALSE"), ("numvcpus", str(m["cpus"])),
        ("cpuid.coresPerSocket", str(m["cores"])), ("memsize", str(m["mem"])),
        ("sched.cpu.units", "mhz"), ("powerType.powerOff", "default"),
        ("scsi0.virtualDev", "pvscsi"), ("scsi0.present", "TRUE"),
        ("scsi0:0.deviceType", "scsi-hardDisk"),
        ("scsi0:0.fileName", m["name"] + ("-000001.vmdk" if m["snapshot"] else ".vmdk")),
        ("sched.scsi0:0.shares", "normal"), ("scsi0:0.present", "TRUE"),
    ]
    if m["second_disk"]:
        keys += [("scsi0:1.deviceType", "scsi-hardDisk"), ("scsi0:1.fileName", m["name"] + "_1.vmdk"),
                 ("scsi0:1.present", "TRUE")]
    if m["sparse_ide"]:
        keys += [("ide0.present", "TRUE"), ("ide0:0.present", "TRUE"),
                 ("ide0:0.deviceType", "ata-hardDisk"), ("ide0:0.fileName", m["name"] + "-ide.vmdk")]
    if m["iso"]:
        keys += [("ide1:0.present", "TRUE"), ("ide1:0.deviceType", "cdrom-image"),
                 ("ide1:0.fileName", "/vmfs/volumes/%s/ISO/install-%d.iso" % (m["ds"][1], int(m["id"]) % 5))]
    else:
        keys += [("ide1:0.present", "TRUE"), ("ide1:0.deviceType", "atapi-cdrom"),
                 ("ide1:0.autodetect", "TRUE"), ("ide1:0.startConnected", "FALSE")]
    n = int(m["id"])
    keys += [("ethernet0.virtualDev", "vmxnet3"), ("ethernet0.networkName", "VM Network"),
             ("ethernet0.addressType", "generated"), ("ethernet0.present", "TRUE")]
    if m["static_nic"]:
        keys += [("ethernet1.virtualDev", "e1000"), ("ethernet1.networkName", "Backup"),
                 ("ethernet1.addressType", "static"),
                 ("ethernet1.address", "00:50:56:%02x:%02x:%02x" % (n >> 16 & 0x3f, n >> 8 & 0xff, n & 0xff)),
                 ("ethernet1.present", "TRUE")]
    keys += [("displayName", m["name"]), ("guestOS", m["guest"])]
    if m["notes"]:
        keys.append(("annotation", m["notes"]))
    keys += [
        ("toolScripts.afterPowerOn", "TRUE"), ("toolScripts.afterResume", "TRUE"),
        ("toolScripts.beforeSuspend", "TRUE"), ("toolScripts.beforePowerOff", "TRUE"),
        ("uuid.bios", "56 4d %02x %02x 1a 2b 3c 4d-5e 6f 70 81 92 a3 b4 c5" % (n >> 8 & 0xff, n & 0xff)),
        ("uuid.location", "56 4d %02x %02x 1a 2b 3c 4d-5e 6f 70 81 92 a3 b4 c5" % (n >> 8 & 0xff, n & 0xff)),
        ("vc.uuid", "52 %02x %02x 33 44 55 66 77-88 99 aa bb cc dd ee ff" % (n >> 8 & 0xff, n & 0xff)),
        ("sched.swap.derivedName", "/vmfs/volumes/%s/%s/%s-%08x.vswp" % (m["ds"][1], m["name"], m["name"], n)),
        ("scsi0.pciSlotNumber", "160"), ("ethernet0.pciSlotNumber", "192"),
        ("ethernet0.generatedAddress", "00:0c:29:%02x:%02x:%02x" % (n >> 16 & 0xff, n >> 8 & 0xff, n & 0xff)),
        ("ethernet0.generatedAddressOffset", "0"), ("tools.syncTime", "FALSE"),
        ("cleanShutdown", "FALSE" if m["powered_on"] else "TRUE"), ("softPowerOff", "FALSE"),
    ]
    return "".join('%s = "%s"\n' % kv for kv in keys)


def write_machine(root, m):
    n = int(m["id"])
    d = os.path.join(root, "vmfs", "volumes", m["ds"][1], m["name"])
    os.makedirs(d, exist_ok=True)
    name = m["name"]

    def path(suffix):
        return os.path.join(d, name + suffix)

    with open(path(".vmx"), "w") as f:
        f.write(vmx_text(m))
    sectors = m["disk_gb"] * GIB // 512
    with open(path(".vmdk"), "w") as f:
        f.write(descriptor(0x10000 + n, "vmfs", ['RW %d VMFS "%s-flat.vmdk"' % (sectors, name)]))
    sparse(path("-flat.vmdk"), m["disk_gb"] * GIB)
    if m["snapshot"]:
        with open(path("-000001.vmdk"), "w") as f:
            f.write(descriptor(0x20000 + n, "vmfsSparse",
                               ['RW %d VMFSSPARSE "%s-000001-delta.vmdk"' % (sectors, name)],
                               parent=name + ".vmdk"))
        sparse(path("-000001-delta.vmdk"), (n % 50 + 1) * 1048576)
        with open(path(".vmsd"), "w") as f:
            f.write('.encoding = "UTF-8"\nsnapshot.lastUID = "1"\nsnapshot.current = "1"\n'
                    'snapshot0.uid = "1"\nsnapshot0.filename = "%s-Snapshot1.vmsn"\n'
                    'snapshot0.numDisks = "1"\nsnapshot0.disk0.fileName = "%s.vmdk"\n'
                    'snapshot.numSnapshots = "1"\n' % (name, name))
        sparse(path("-Snapshot1.vmsn"), 28464)
    else:
        open(path(".vmsd"), "w").close()
    if m["second_disk"]:
        with open(path("_1.vmdk"), "w") as f:
            f.write(descriptor(0x30000 + n, "vmfs", ['RW %d VMFS "%s_1-flat.vmdk"' % (2 * sectors, name)]))
        sparse(path("_1-flat.vmdk"), 2 * m["disk_gb"] * GIB)
    if m["sparse_ide"]:
        sparse_extent(path("-ide.vmdk"), 20971520, 734003200, name + "-ide.vmdk")
    sparse(path(".nvram"), 8684)
    if m["powered_on"]:
        sparse(path("-%08x.vswp" % n), m["mem"] * 1048576)
    with open(os.path.join(d, "vmware.log"), "w") as f:
        f.write("2019-03-02T10:%02d:%02d.118Z| vmx| I125: Log for VMware ESX pid=%d version=6.7.0 "
                "build=build-8169922 option=Release\n" % (n // 60 % 60, n % 60, 60000 + n))


def listing(machines):
    """The getallvms table: each column as wide as its widest cell, cells
    padded, three blanks between columns, headers centred. Notes print raw,
    so a note with a line break continues on a line of its own."""
    header = ["Vmid", "Name", "File", "Guest OS", "Version", "Annotation"]
    rows = [[m["id"], m["name"], "[%s] %s/%s.vmx" % (m["ds"][0], m["name"], m["name"]),
             m["guest_id"], "vmx-%02d" % m["hw"], m["notes"].replace("|0A", "\n")]
            for m in machines]
    widths = [max([len(h)] + [len(r[i]) for r in rows]) for i, h in enumerate(header)]
    line, column = "", 0
    for i, h in enumerate(header):
        line = line.ljust(column + (widths[i] - len(h)) // 2) + h
        column += widths[i] + 3
    out = [line.ljust(sum(widths) + 3 * (len(widths) - 1))]
    for r in rows:
        out.append("   ".join(r[i].ljust(widths[i]) for i in range(len(header))))
    return "\n".join(out) + "\n"


def esxcli_table(header, rows, right):
    widths = [max([len(h)] + [len(r[i]) for r in rows]) for i, h in enumerate(header)]

    def fmt(r):
        return "  ".join(c.rjust(w) if i in right else c.ljust(w)
                         for i, (c, w) in enumerate(zip(r, widths))).rstrip()

    return "\n".join([fmt(header), "  ".join("-" * w for w in widths)] + [fmt(r) for r in rows]) + "\n"


def write_tables(out):
    def put(key, text):
        with open(os.path.join(out, key), "w") as f:
            f.write(text)

    extents = [[name, uuid, "0", dev, "1"] for name, uuid, dev, _, _, _ in DATASTORES]
    put("esxcli_storage_vmfs_extent_list",
        esxcli_table(["Volume Name", "VMFS UUID", "Extent Number", "Device Name", "Partition"],
                     extents, {2, 4}))
    systems = [["/vmfs/volumes/" + uuid, name, uuid, "true", "VMFS-6", str(size), str(free)]
               for name, uuid, _, _, size, free in DATASTORES]
    for uuid, size, free in [("5d00aa01-0b1c2d3e-4f50-0025b5000a1f", 4293591040, 4267114496),
                             ("8a3e6b1c-2d4f5a6b-7c8d-9e0fa1b2c3d4", 261853184, 113819648),
                             ("5d00aa02-6a7b8c9d-0e1f-0025b5000a1f", 299712512, 80486400)]:
        systems.append(["/vmfs/volumes/" + uuid, "", uuid, "true", "vfat", str(size), str(free)])
    put("esxcli_storage_filesystem_list",
        esxcli_table(["Mount Point", "Volume Name", "UUID", "Mounted", "Type", "Size", "Free"],
                     systems, {3, 5, 6}))
    for n, (name, uuid, dev, mb, _, _) in enumerate(DATASTORES):
        put("esxcli_storage_core_device_list_-d_" + dev,
            "%s\n   Display Name: HITACHI Fibre Channel Disk (%s)\n"
            "   Has Settable Display Name: true\n   Size: %d\n   Device Type: Direct-Access \n"
            "   Multipath Plugin: NMP\n   Devfs Path: /vmfs/devices/disks/%s\n"
            "   Vendor: HITACHI \n   Model: OPEN-V          \n   Revision: 80%02d\n"
            "   SCSI Level: 2\n   Is Pseudo: false\n   Status: on\n   Is RDM Capable: true\n"
            "   Is Local: false\n   Is Removable: false\n   Is SSD: false\n"
            "   Queue Full Sample Size: 0\n   Queue Full Threshold: 0\n\n"
            % (dev, dev, mb, dev, n))
        put("esxcli_storage_core_path_list_-d_" + dev,
            "fc.20000025b5000a1f:20000025b5000a0f-fc.50060e8007e1c3%02x:50060e8007e1c3%02x-%s\n"
            "   Runtime Name: vmhba2:C0:T0:L%d\n   Device: %s\n   Adapter: vmhba2\n"
            "   Channel: 0\n   Target: 0\n   LUN: %d\n   Plugin: NMP\n   State: active\n"
            "   Transport: fc\n   Adapter Identifier: fc.20000025b5000a1f:20000025b5000a0f\n\n"
            % (n, n, dev, n, dev, n))


def main(argv):
    if len(argv) == 3 and argv[1] == "--tables":
        write_tables(argv[2])
        return 0
    root, count = argv[1], int(argv[2])
    machines = [machine(i) for i in range(1, count + 1)]
    for m in machines:
        write_machine(root, m)
    for _, uuid, _, _, _, _ in DATASTORES:
        iso = os.path.join(root, "vmfs", "volumes", uuid, "ISO")
        os.makedirs(iso, exist_ok=True)
        for k in range(5):
            sparse(os.path.join(iso, "install-%d.iso" % k), 4 * GIB + k * 1048576)
    out = os.path.join(root, "var", "run", "gen-vms")
    os.makedirs(out, exist_ok=True)
    with open(os.path.join(out, "getallvms"), "w") as f:
        f.write(listing(machines))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
