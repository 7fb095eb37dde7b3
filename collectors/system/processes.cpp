// Processes collector.
#include "collectors/system/processes.h"

#include "collectors/collectors.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "host/text.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

using text::npos;

// Cuts the column that starts at `pos` at the next single blank. Adjacent
// blanks make empty columns: the listing pads its columns with blanks, and
// the cut follows the blanks rather than the layout.
std::string next_column(const std::string& line, size_t& pos) {
  if (pos == npos) return std::string();
  size_t end = line.find(' ', pos);
  std::string column = line.substr(pos, end == npos ? npos : end - pos);
  pos = end == npos ? npos : end + 1;
  return column;
}

}  // namespace

void record_processes(ztag* top, const std::string& listing) {
  // Skip the two heading lines.
  size_t from = 0;
  for (int i = 0; i < 2 && from != npos; ++i) {
    from = listing.find('\n', from);
    if (from != npos) ++from;
  }
  if (from == npos) return;

  unsigned n = 0;
  text::for_each_complete_line(
      listing,
      [top, &n](const std::string& line) {
        size_t pos = 0;
        std::string pid = next_column(line, pos);
        std::string cid = next_column(line, pos);
        std::string name = next_column(line, pos);
        std::string cmd_line = pos == npos ? std::string() : line.substr(pos);

        ++n;
        ztag* process =
            top->child("Processes")->child(format_string("process:%u", n), zvalue(name));
        process->set_attr("pid", zvalue(pid));
        process->set_attr("cid", zvalue(cid));
        process->set_attr("cmd-line", zvalue(cmd_line));
      },
      from);
}

void collect_processes(ScanContext& ctx, zXML* doc) {
  ztag* top = doc->top();
  if (!ctx.tools.has_tool("ps")) {
    add_missing_tool_warning(top->child("Processes"), "ps", "process", true);
    return;
  }
  // The path comes from a directory listing of the host, so it is quoted
  // like any other host text.
  std::string cmdline = shell_quote(ctx.tools.tool_path("ps")) + " -cvu";
  record_processes(top, run_command(ctx.host, cmdline));
}
