// Summary values read the way current releases need.
#ifndef QUILLSCAN_SUMMARY_ASSET_CURRENT_H_
#define QUILLSCAN_SUMMARY_ASSET_CURRENT_H_

class ztag;

// Used and free percentage over every file system of the snapshot's
// "Storage" / "Logical-disks" (the children with a "size" and a "free"
// carrying a "base-value" in bytes): free% = whole percent of the free space
// of the total size, used% = 100 - free%. False when there is no such file
// system or the total size is 0.
bool filesystem_usage(const ztag* snapshot, int* used_percent, int* free_percent);

// Sets "used%" and "free%" of the summary from filesystem_usage when it
// gives figures; otherwise leaves them as they are.
void asset_filesystem_usage(ztag* asset, const ztag* snapshot);

#endif  // QUILLSCAN_SUMMARY_ASSET_CURRENT_H_
