// Asset summary internals: the state shared by the stages while one
// "AssetInfo" document is built, and the text helpers the stages use.
#ifndef QUILLSCAN_SUMMARY_ASSET_INFO_H_
#define QUILLSCAN_SUMMARY_ASSET_INFO_H_

#include <string>

#include "summary/asset_stages.h"

struct ScanContext;
class zXML;
class ztag;

struct AssetBuild {
  // Inputs.
  ScanContext* ctx = nullptr;
  zXML* snapshot = nullptr;  // read, except that the storage stage marks the system disk
  const char* ip = "";
  const char* physical = "";
  const char* fs_size = "";
  const char* fs_free = "";
  const char* mac = "";
  const char* login = "";
  std::string smb_conf;  // text of the Samba configuration ("" when absent)

  // The "AssetInfo" element being filled.
  ztag* asset = nullptr;

  // Results that later stages use.
  bool netbios_found = false;  // stage 1 found a "netbios name =" line
  SmbiosIdentity smbios;       // serial and makers read from the SMBIOS dump
};

// The asset summary collector: a new "AssetInfo" document (owned by the
// caller) derived from the finished snapshot and the values handed on.
zXML* collect_asset_info(ScanContext& ctx, bool doc_flag, const char* ip, const char* physical,
                         const char* fs_size, const char* fs_free, const char* mac,
                         const char* login, int& out, zXML* snapshot);

// Runs every stage in order on b.asset, with the stage markers when the
// scanner's log flag is set.
void build_asset_info(AssetBuild& b);

// The value of the first line of a Samba configuration that holds `key`
// (e.g. "netbios name =") and is not commented out (first non-blank
// character ";" or "#"): the rest of the line after the key, leading blanks
// skipped. `found` tells whether there was such a line.
std::string smb_conf_value(const std::string& conf, const std::string& key, bool* found);

// Text up to the first newline (all of it when there is none).
std::string first_line(const std::string& text);

#endif  // QUILLSCAN_SUMMARY_ASSET_INFO_H_
