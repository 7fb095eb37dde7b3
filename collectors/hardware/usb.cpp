// USB devices: the bus and device numbers from "lsusb", then the verbose
// descriptor of each device.
#include "collectors/hardware/usb.h"

#include <string>

#include "collectors/collectors.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

// The rest of the line after label and the blanks that follow it.
bool line_after_label(const std::string& text, const char* label, std::string* line) {
  size_t at = text.find(label);
  if (at == std::string::npos) return false;
  at = text.find_first_not_of(' ', at + std::string(label).size());
  if (at == std::string::npos) {
    line->clear();
    return true;
  }
  const size_t end = text.find('\n', at);
  *line = text.substr(at, end == std::string::npos ? std::string::npos : end - at);
  return true;
}

}  // namespace

std::vector<std::pair<std::string, std::string>> usb_bus_device_pairs(const std::string& lines) {
  std::vector<std::string> split;
  size_t start = 0;
  for (;;) {
    const size_t end = lines.find('\n', start);
    if (end == std::string::npos) {
      split.push_back(lines.substr(start));
      break;
    }
    split.push_back(lines.substr(start, end - start));
    start = end + 1;
  }
  std::vector<std::pair<std::string, std::string>> pairs;
  for (size_t i = 0; i + 1 < split.size(); i += 2) pairs.emplace_back(split[i], split[i + 1]);
  return pairs;
}

std::string usb_string_field(const std::string& verbose, const char* label) {
  std::string line;
  if (!line_after_label(verbose, label, &line)) return std::string();
  const size_t blank = line.find(' ');
  if (blank == std::string::npos) return std::string();
  return line.substr(blank + 1);
}

void record_usb_device(const std::string& verbose, ztag* top, unsigned number) {
  if (verbose.empty()) return;
  ztag* usb = top->child("Peripherals")->child("USB");
  ztag* device =
      usb->child(format_string("Device:%u", number), zvalue(usb_string_field(verbose, "iProduct")));
  std::string version;
  if (!line_after_label(verbose, "bcdUSB", &version)) {
    device->set_attr("device-speed", zvalue(""));
  } else {
    if (version == "1.10" || version == "1.00") {
      device->set_attr("device-speed", zvalue("12"));
    } else if (version == "2.00") {
      device->set_attr("device-speed", zvalue("480"));
    }
    if (version == "3.00") device->set_attr("device-speed", zvalue("5000"));
  }
  device->set_attr("manuf", zvalue(usb_string_field(verbose, "iManufacturer")));
  device->set_attr("serial", zvalue(usb_string_field(verbose, "iSerial")));
}

void collect_usb(ScanContext& ctx, zXML* doc) {
  if (!ctx.tools.has_tool("lsusb")) {
    add_missing_tool_warning(doc->top()->child("Peripherals"), "lsusb", "USB", true);
    return;
  }
  const std::string lsusb = shell_quote(ctx.tools.tool_path("lsusb"));
  const std::string numbers =
      run_command(ctx.host, format_string("%s|awk '{print $2; print $4}'", lsusb.c_str()));
  if (numbers.empty()) return;
  unsigned number = 1;
  for (const auto& pair : usb_bus_device_pairs(numbers)) {
    // Bus and device numbers are host text: each goes to the shell quoted.
    const std::string command =
        format_string("%s -s %s:%s -v", lsusb.c_str(), shell_quote(pair.first).c_str(),
                      shell_quote(pair.second).c_str());
    record_usb_device(run_command(ctx.host, command), doc->top(), number);
    ++number;
  }
}
