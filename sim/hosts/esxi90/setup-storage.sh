# Storage part of the host's setup (sourced by setup.sh): the extents of the
# virtual disks, created sparse so that their apparent sizes look real while
# the repository holds only the descriptors. The thin disks have a few
# blocks written, so the space they take is far below their size; the small
# SATA disk is thick and written in full.
ds="$SIMROOT/vmfs/volumes/6939760a-1c2d3e4f-5a6b-005056b3b989"

# photon9 (powered on): a thin 16 GB SCSI disk with 64 MiB written, a thick
# 8 MiB SATA disk, a thin 4 GB NVMe disk with 1 MiB written.
truncate -s 17179869184 "$ds/photon9/photon9-flat.vmdk"
dd if=/dev/zero of="$ds/photon9/photon9-flat.vmdk" bs=1048576 count=64 conv=notrunc status=none
dd if=/dev/zero of="$ds/photon9/photon9_1-flat.vmdk" bs=1048576 count=8 status=none
truncate -s 4294967296 "$ds/photon9/photon9_2-flat.vmdk"
dd if=/dev/zero of="$ds/photon9/photon9_2-flat.vmdk" bs=1048576 count=1 seek=100 conv=notrunc status=none
truncate -s 4294967296 "$ds/photon9/photon9-5b1e3c7d.vswp"
truncate -s 270840 "$ds/photon9/photon9.nvram"

# win2022 (powered off): a thin 40 GB disk with 16 MiB written.
truncate -s 42949672960 "$ds/win2022/win2022-flat.vmdk"
dd if=/dev/zero of="$ds/win2022/win2022-flat.vmdk" bs=1048576 count=16 conv=notrunc status=none
truncate -s 270840 "$ds/win2022/win2022.nvram"
