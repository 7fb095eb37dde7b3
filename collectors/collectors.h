// Entry points of the collectors. Each reads the host through the scan
// context and writes its own branch of the document.
#ifndef QUILLSCAN_COLLECTORS_COLLECTORS_H_
#define QUILLSCAN_COLLECTORS_COLLECTORS_H_

#include <string>

class HostAccess;
struct ScanContext;
class zXML;

// OS and host identification. Returns the raw-mode summary line in raw mode,
// "" otherwise; the version numbers are -1 when unknown.
std::string collect_os(ScanContext& ctx, zXML* doc, int* out_esx_major, int* out_esx_minor,
                       bool raw_mode);
// Time since boot in the CIM interval form; caller delete[]s.
char* format_uptime(HostAccess& host);
char* format_uptime();

// Hardware.
void collect_smbios(ScanContext& ctx, zXML* doc);
void collect_processors(ScanContext& ctx, zXML* doc);
void collect_pci(ScanContext& ctx, zXML* doc);
void collect_usb(ScanContext& ctx, zXML* doc);
void collect_memory(ScanContext& ctx, zXML* doc);

// Storage: fills ctx's capacity totals.
void collect_storage(ScanContext& ctx, zXML* doc);
// Network adapters, DNS and DHCP: fills ctx's address list.
void collect_network(ScanContext& ctx, zXML* doc, int esx_major, int reserved);
void collect_firewall(ScanContext& ctx, zXML* doc);
// Virtual machines and their disks.
void collect_vms(ScanContext& ctx, zXML* doc);

// Software, users, processes, environment.
void collect_software(ScanContext& ctx, zXML* doc, int esx_major);
// Seconds since the epoch (-1: now) in the CIM date-time form, in the
// host's local time; caller delete[]s.
char* format_cim_datetime(HostAccess& host, long long seconds);
char* format_cim_datetime(long long seconds);
void collect_user_accounts(ScanContext& ctx, zXML* doc);
void collect_processes(ScanContext& ctx, zXML* doc);
void collect_environment(ScanContext& ctx, zXML* doc);

#endif  // QUILLSCAN_COLLECTORS_COLLECTORS_H_
