// The debug run's raw-output text: the sections gathered from the host.
#include "app/raw_data.h"

#include <cstdio>
#include <cstring>

#include "app/scanner.h"
#include "collectors/collectors.h"
#include "host/command.h"
#include "host/raw_data.h"
#include "zxml/tag.h"

namespace {

// Progress markers for an operator watching an interactive debug run; they
// go to standard error and are not part of the text.
void progress(bool silent, const char* marker) {
  if (!silent) fwrite(marker, 1, std::strlen(marker), stderr);
}

// A section from a located tool, or the "Application" section when the
// host does not have it.
void tool_section(HostAccess& host, CTextContainer& text, const PKGDetector& detector,
                  const char* tool, const char* arguments, const char* title,
                  const char* missing_title, const char* missing_body) {
  const char* path = detector.tool_path(tool);
  if (path == nullptr) {
    text.add_section(missing_title, missing_body);
    return;
  }
  text.add_section(title, run_command(host, shell_quote(path) + arguments));
}

// A section from a whole file; an empty or unreadable file gives the
// fallback section.
void file_section(HostAccess& host, CTextContainer& text, const char* path, const char* title,
                  const char* missing_title, const char* missing_body) {
  const std::string body = read_file(host, path);
  if (body.empty()) {
    text.add_section(missing_title, missing_body);
  } else {
    text.add_section(title, body);
  }
}

}  // namespace

char* collect_raw_data(CScaner* scanner, unsigned long* out_length, bool silent, int esx_major) {
  const PKGDetector& detector = *scanner->detector;
  HostAccess& host = scanner->host;
  CTextContainer text;

  text.add_section("Scanner information",
                   format_string("Scanner arch: x86\nScanner version: %s.%s\nInternal Version: %s",
                                 kVersionMajor, kVersionBuild, "2.7.1804.9764"));
  int major = -1;
  int minor = -1;
  text.add_section("System Main Information",
                   collect_os(scanner->context(), nullptr, &major, &minor, true));
  text.add_section("Bios Info(Raw data)", run_command(host, "smbiosDump"));
  progress(silent, "1.\n");

  file_section(host, text, "/etc/fstab", "FSTAB-file info", "FSTAB-file info", "file not found");
  tool_section(host, text, detector, "df", " -T", "DF output info", "Application 'DF'",
               "not installed");
  if (esx_major == 5) {
    static const char* const kEsxcli[] = {
        "esxcli storage vmfs extent list",
        "esxcli storage core device list",
        "esxcli storage core path list",
        "esxcli storage filesystem list",
    };
    for (const char* command : kEsxcli) {
      text.add_section(format_string("'%s' output", command), run_command(host, command));
    }
  } else {
    static const char* const kLegacy[] = {"esxcfg-scsidevs --list", "esxcfg-scsidevs -m", "df -k"};
    for (const char* command : kLegacy) {
      text.add_section(format_string("'%s' output", command), run_command(host, command));
    }
  }
  text.add_section("VM's list", run_command(host, "vim-cmd vmsvc/getallvms"));
  tool_section(host, text, detector, "ifconfig", "", "'IFCONFIG' Output", "Application 'IFCONFIG'",
               "Not installed");
  progress(silent, "2.\n");
  progress(silent, "2.1.\n");

  file_section(host, text, "/etc/resolv.conf", "'Resolv.conf' File Data", "'Resolv.conf'",
               "File not found");
  progress(silent, "2.2.\n");

  tool_section(host, text, detector, "lspci", " -v", "'LSPCI' output", "Application 'LSPCI'",
               "Not installed");
  progress(silent, "3.\n");
  tool_section(host, text, detector, "lsusb", " -v", "'LSUSB' output", "Application 'LSUSB'",
               "Not installed");
  progress(silent, "4.\n");
  tool_section(host, text, detector, "ps", " -cvu", "'PS' output", "Application 'PS'",
               "Not installed");
  progress(silent, "5.\n");
  tool_section(host, text, detector, "env", "", "'ENV' output", "Application 'ENV'",
               "Not installed");
  progress(silent, "6.\n");
  progress(silent, "7.\n");

  file_section(host, text, "/etc/passwd", "'PASSWD' file data", "'PASSWD'", "File Not Found");
  progress(silent, "8.\n");
  text.add_section("'Firewall info' output",
                   run_command(host, "esxcli network firewall ruleset list"));
  progress(silent, "9.\n");
  text.add_section("HOSTNAME", run_command(host, "uname -n"));
  progress(silent, "11.\n");

  char* copy = format_alloc("%s", text.text());
  if (out_length != nullptr) *out_length = std::strlen(copy);
  return copy;
}
