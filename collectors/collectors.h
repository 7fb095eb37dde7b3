// Entry points of the collectors that are free functions. The network,
// firewall, storage, virtual-machine and asset-summary collectors are
// members of CScaner (app/scanner.h).
#ifndef QUILLSCAN_COLLECTORS_COLLECTORS_H_
#define QUILLSCAN_COLLECTORS_COLLECTORS_H_

#include <string>

class CScaner;
class zXML;

// OS and host identification. Returns the raw-mode summary line in raw mode,
// "" otherwise; the version numbers are -1 when unknown.
std::string collect_os(CScaner* scanner, zXML* doc, int* out_esx_major, int* out_esx_minor,
                       bool raw_mode);
// Time since boot in the CIM interval form; caller delete[]s.
char* format_uptime();

// Hardware.
void collect_smbios(CScaner* scanner, zXML* doc);
void collect_processors(CScaner* scanner, zXML* doc);
void collect_pci(CScaner* scanner, zXML* doc);
void collect_usb(CScaner* scanner, zXML* doc);
void collect_memory(CScaner* scanner, zXML* doc);

// Software, users, processes, environment.
void collect_software(CScaner* scanner, zXML* doc, int esx_major);
// Seconds since the epoch (-1: now) in the CIM date-time form; caller delete[]s.
char* format_cim_datetime(long long seconds);
void collect_user_accounts(CScaner* scanner, zXML* doc);
void collect_processes(CScaner* scanner, zXML* doc);
void collect_environment(CScaner* scanner, zXML* doc);

#endif  // QUILLSCAN_COLLECTORS_COLLECTORS_H_
