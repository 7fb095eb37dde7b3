// Named switches that change how a scan reads the host. Each one replaces
// one default reading by the reading current ESXi releases (7, 8, 9) need;
// all are off in a default scan, whose output never changes. The option
// "/current" turns every one of them on (see current_reading()).
#ifndef QUILLSCAN_HOST_READING_H_
#define QUILLSCAN_HOST_READING_H_

struct ReadingSwitches {
  // Releases from 7 on get the version query, the package list and the NIC
  // listing of release 6; the package list is read by its header columns
  // (the 9.0 list has a further "Platforms" column).
  bool current_releases = false;
  // An adapter's description is the NIC listing's "Description" column on
  // the line whose "MAC Address" column holds its address, both columns
  // found by the header line.
  bool nic_columns_by_header = false;
  // .vmx keys are matched as whole keys at the start of a line, without
  // regard to letter case ("memSize" is the memory size).
  bool vmx_keys_any_case = false;
  // Disks on "sata" and "nvme" controllers are listed after the "scsi" and
  // "ide" ones ("interface" "SATA" / "NVME").
  bool sata_nvme_disks = false;
  // A descriptor with ddb.thinProvisioned = "1" is not preallocated.
  bool thin_disks = false;
  // "cur-size" is the space the extent files take on the datastore
  // (allocated blocks), not their apparent size.
  bool allocated_disk_size = false;
  // DNS servers come from the "nameserver" lines of resolv.conf, whatever
  // the adapter pass did.
  bool dns_always = false;
  // The summary's "used%" and "free%" come from the file systems the
  // storage collector recorded.
  bool summary_fs_usage = false;
  // Malformed input (a missing processor record, a listing line shorter than
  // its columns, a firewall or package line without text after its name, a
  // cpuid.coresPerSocket of 0) is skipped or read safely, with a warning
  // attribute, instead of ending the scan; an empty ipkg package name is
  // not asked for.
  bool skip_malformed = false;
};

// Every switch on: the reading of current releases.
inline ReadingSwitches current_reading() {
  ReadingSwitches s;
  s.current_releases = true;
  s.nic_columns_by_header = true;
  s.vmx_keys_any_case = true;
  s.sata_nvme_disks = true;
  s.thin_disks = true;
  s.allocated_disk_size = true;
  s.dns_always = true;
  s.summary_fs_usage = true;
  s.skip_malformed = true;
  return s;
}

// Whether a command-line argument is the option that selects that reading
// ("/current" or "-current", matched exactly).
bool is_current_option(const char* arg);

// For every program that takes the option (the agent, and the builder that
// makes an inventory file from a capture): when `arg` is the option, turns
// every switch of *reading on and returns true; otherwise leaves it as it
// is and returns false.
bool apply_reading_option(const char* arg, ReadingSwitches* reading);

// Whether a release of this major number is read with esxcli's version
// query, VIB list and NIC list (5 and 6; from 7 on too with the switch).
inline bool esxcli_release(int esx_major, const ReadingSwitches& s) {
  return esx_major == 5 || esx_major == 6 || (s.current_releases && esx_major >= 7);
}

#endif  // QUILLSCAN_HOST_READING_H_
