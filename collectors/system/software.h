// Installed software: the VIB list of ESXi 5/6 and the ipkg packages of
// ESX 4, as children "Soft:NAME VERSION" of the "Software" node. The parsing
// works on tool text so that it can be exercised without a host.
#ifndef QUILLSCAN_COLLECTORS_SYSTEM_SOFTWARE_H_
#define QUILLSCAN_COLLECTORS_SYSTEM_SOFTWARE_H_

#include <functional>
#include <string>
#include <vector>

class HostAccess;
class ztag;

// Turns a VIB install date "YYYY-MM-DD" into the date-time form with a fixed
// midnight time and a zero offset ("2014-01-21" -> "20140121000000.000000+000").
std::string vib_install_date(const std::string& date);

// Writes one child of top's "Software" node per data line of the output of
// "esxcli software vib list".
void record_vib_list(ztag* top, const std::string& text);

// Package names from the output of "ipkg list", up to its closing
// "Successfully ..." line: the text of each line up to its first blank,
// empty for an empty line unless skip_empty_names leaves those out.
std::vector<std::string> ipkg_package_names(const std::string& list_text,
                                            bool skip_empty_names = false);

// Writes the child of one package from the output of "ipkg info NAME".
void record_ipkg_package(HostAccess& host, ztag* top, const std::string& name,
                         const std::string& info_text);

// Lists every package of "ipkg list" with its "ipkg info"; `run` runs one
// command line and returns its output.
void record_ipkg(HostAccess& host, ztag* top, const std::string& list_text,
                 const std::function<std::string(const std::string&)>& run,
                 bool skip_empty_names = false);

// Orders the children of top's "Software" node by package name when there are
// three or more; one or two are left in the order they were found.
void sort_software(ztag* top);

#endif  // QUILLSCAN_COLLECTORS_SYSTEM_SOFTWARE_H_
