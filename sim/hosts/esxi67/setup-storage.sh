# Storage part of the host's setup (sourced by setup.sh): the large files of
# the virtual machines, created sparse so that sizes look real while the
# repository only holds the small text files under files/.
vms="$SIMROOT/vmfs/volumes/5bc7459f-967eeb48-b3f7-20677cd9a16c"
ds2="$SIMROOT/vmfs/volumes/5c1a2b3d-4e5f6071-8293-20677cd9a16c"
nfs="$SIMROOT/vmfs/volumes/a1b2c3d4-e5f60718"

# The NFS datastore holds installation images only.
mkdir -p "$nfs/ISO"
truncate -s 3320903680 "$nfs/ISO/en_windows_7_professional_x64.iso"
truncate -s 3895459840 "$nfs/ISO/rhel-server-6.5-x86_64-dvd.iso"

# rhel6 (powered on): a thick 20 GB disk, memory swap, logs.
truncate -s 21474836480 "$vms/rhel6/rhel6-flat.vmdk"
truncate -s 8684 "$vms/rhel6/rhel6.nvram"
truncate -s 4294967296 "$vms/rhel6/rhel6-9b8c7d6e.vswp"
printf '%s\n' \
  '2019-01-15T09:12:44.118Z| vmx| I125: Log for VMware ESX pid=65881 version=6.7.0 build=build-8169922 option=Release' \
  '2019-01-15T09:12:44.118Z| vmx| I125: The process is 64-bit.' \
  > "$vms/rhel6/vmware.log"

# web01 (powered on): a thin 8 GB disk.
truncate -s 8589934592 "$vms/web01/web01-flat.vmdk"
truncate -s 8684 "$vms/web01/web01.nvram"
truncate -s 8589934592 "$vms/web01/web01-5e6f7081.vswp"

# test flo (suspended): a 16 GB base disk and a 50 MB snapshot delta.
truncate -s 17179869184 "$ds2/test flo/test flo_0-flat.vmdk"
truncate -s 52428800 "$ds2/test flo/test flo_0-000004-delta.vmdk"
truncate -s 28464 "$ds2/test flo/test flo-Snapshot4.vmsn"
truncate -s 1074003968 "$ds2/test flo/test flo-988abbf8.vmss"
truncate -s 8684 "$ds2/test flo/test flo.nvram"

# Windows 7 x64 (powered off): a split sparse disk, six extents.
w7="$ds2/Windows 7 x64/Windows 7 x64"
truncate -s 2147483648 "$w7-s001.vmdk"
truncate -s 1610612736 "$w7-s002.vmdk"
truncate -s 327680 "$w7-s003.vmdk"
truncate -s 327680 "$w7-s004.vmdk"
truncate -s 327680 "$w7-s005.vmdk"
truncate -s 196608 "$w7-s006.vmdk"
truncate -s 8684 "$w7.nvram"

# appliance (powered off): one monolithic sparse disk whose descriptor sits
# inside the extent at byte 512, after the "KDMV" header; 700 MB written of
# a 10 GB capacity.
/usr/bin/python3 - "$ds2/appliance/appliance.vmdk" <<'PY'
import struct, sys
descriptor = b'''# Disk DescriptorFile
version=1
encoding="UTF-8"
CID=a3c1e95d
parentCID=ffffffff
isNativeSnapshot="no"
createType="monolithicSparse"

# Extent description
RW 20971520 SPARSE "appliance.vmdk"

# The Disk Data Base
#DDB

ddb.adapterType = "ide"
ddb.geometry.cylinders = "16383"
ddb.geometry.heads = "16"
ddb.geometry.sectors = "63"
ddb.longContentID = "7c4d2e91b05f4a3c8e6d1f20a3c1e95d"
ddb.uuid = "60 00 C2 9d 7c 4d 2e 91-b0 5f 4a 3c 8e 6d 1f 20"
ddb.virtualHWVersion = "10"
'''
# magic, version, flags, capacity, grain size, descriptor offset and size
# (sectors), entries per grain table, redundant and primary grain
# directories, overhead, unclean shutdown, the four line-end check bytes.
header = struct.pack("<4sIIQQQQIQQQB4s", b"KDMV", 1, 3, 20971520, 128, 1, 20, 512,
                     21, 2582, 5248, 0, b"\n \r\n")
with open(sys.argv[1], "wb") as f:
    f.write(header.ljust(512, b"\0"))
    f.write(descriptor.ljust(20 * 512, b"\0"))
    f.truncate(734003200)
PY
truncate -s 8684 "$ds2/appliance/appliance.nvram"
