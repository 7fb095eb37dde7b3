// User accounts collector.
#include "collectors/system/users.h"

#include <algorithm>
#include <cstdlib>

#include "collectors/collectors.h"
#include "collectors/scan_context.h"
#include "host/command.h"
#include "host/text.h"
#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

using text::npos;

// Reads the ":"-separated field that starts at `pos` and moves `pos` past
// its ":" (to npos after the last field). Past the end it gives "".
std::string next_field(const std::string& line, size_t& pos) {
  if (pos == npos) return std::string();
  size_t end = line.find(':', pos);
  std::string field = line.substr(pos, end == npos ? npos : end - pos);
  pos = end == npos ? npos : end + 1;
  return field;
}

}  // namespace

void add_user_account(ztag* top, const std::string& line, long long regular_uid_min,
                      long long regular_uid_max) {
  if (line.empty()) return;
  size_t pos = 0;
  std::string name = next_field(line, pos);
  next_field(line, pos);  // password
  std::string id = next_field(line, pos);
  std::string group = next_field(line, pos);

  ztag* account = top->child("User-accounts")->child("usr-acc:" + name, zvalue(name));
  account->set_attr("id", zvalue(id));
  // strtoll: leading digits, 0 when there are none, saturating on overflow.
  long long uid = std::strtoll(id.c_str(), nullptr, 10);
  bool regular = regular_uid_min <= uid && uid <= regular_uid_max;
  account->set_attr("is-system-user", zvalue(regular ? "0" : "1"));
  account->set_attr("group", zvalue(group));

  // The comment field. A line that has only two more fields and whose fifth
  // field is a path lacks the comment: that path is the home directory.
  std::string home;
  bool have_home = false;
  if (pos != npos && pos < line.size() && line[pos] == '/' &&
      std::count(line.begin() + static_cast<std::ptrdiff_t>(pos), line.end(), ':') == 1) {
    home = next_field(line, pos);
    have_home = true;
  } else if (pos != npos && pos < line.size() && line[pos] == ':') {
    ++pos;  // empty comment: nothing to write
  } else if (pos != npos) {
    std::string comment = next_field(line, pos);
    static const char* const kKeys[] = {"fullname", "location", "wphone", "hphone"};
    size_t piece_start = 0;
    for (const char* key : kKeys) {
      size_t comma = comment.find(',', piece_start);
      account->set_attr(
          key, zvalue(comment.substr(piece_start, comma == npos ? npos : comma - piece_start)));
      if (comma == npos) break;
      piece_start = comma + 1;
    }
  }
  if (!have_home) home = next_field(line, pos);
  account->set_attr("hdir", zvalue(home));

  // The shell is the rest of the line; carriage returns of a file with
  // CR LF line ends are removed.
  std::string shell = pos == npos ? std::string() : line.substr(pos);
  shell.erase(std::remove(shell.begin(), shell.end(), '\r'), shell.end());
  account->set_attr("shell", zvalue(shell));
}

void record_user_accounts(ztag* top, const std::string& passwd_text) {
  text::for_each_complete_line(
      passwd_text, [top](const std::string& line) { add_user_account(top, line, -1, -1); });
}

void collect_user_accounts(ScanContext& ctx, zXML* doc) {
  record_user_accounts(doc->top(), read_file(ctx.host, "/etc/passwd"));
}
