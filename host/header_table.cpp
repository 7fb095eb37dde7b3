// Header-based reading of tool tables.
#include "host/header_table.h"

#include <algorithm>

namespace {

const size_t npos = std::string::npos;

// Complete lines of text from `from` on ("\n"-terminated), empty ones left
// out.
std::vector<std::string> complete_lines(const std::string& text, size_t from) {
  std::vector<std::string> lines;
  while (from < text.size()) {
    const size_t end = text.find('\n', from);
    if (end == npos) break;
    if (end > from) lines.push_back(text.substr(from, end - from));
    from = end + 1;
  }
  return lines;
}

bool is_dash_line(const std::string& line) {
  return !line.empty() && line[0] == '-' && line.find_first_not_of("- ") == npos;
}

}  // namespace

std::string trim_space(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r");
  if (first == npos) return std::string();
  const size_t last = text.find_last_not_of(" \t\r");
  return text.substr(first, last - first + 1);
}

int HeaderTable::column(const std::string& name) const {
  for (size_t i = 0; i < columns.size(); ++i) {
    if (columns[i].name == name) return static_cast<int>(i);
  }
  return -1;
}

bool HeaderTable::reaches(const std::string& row, int index) const {
  return index >= 0 && static_cast<size_t>(index) < columns.size() &&
         row.size() > columns[static_cast<size_t>(index)].start;
}

std::string HeaderTable::cell(const std::string& row, int index) const {
  if (!reaches(row, index)) return std::string();
  const size_t i = static_cast<size_t>(index);
  const size_t start = columns[i].start;
  const size_t end = i + 1 < columns.size() ? columns[i + 1].start : npos;
  return trim_space(row.substr(start, end == npos ? npos : end - start));
}

HeaderTable read_dashed_table(const std::string& text) {
  HeaderTable table;
  size_t line_start = 0;
  size_t header_start = npos;
  while (line_start < text.size()) {
    const size_t end = text.find('\n', line_start);
    if (end == npos) break;
    const std::string line = text.substr(line_start, end - line_start);
    if (header_start != npos && is_dash_line(line)) {
      const std::string header = text.substr(header_start, line_start - 1 - header_start);
      for (size_t pos = 0; pos < line.size();) {
        const size_t group = line.find('-', pos);
        if (group == npos) break;
        size_t group_end = line.find(' ', group);
        if (group_end == npos) group_end = line.size();
        table.columns.push_back({std::string(), group});
        pos = group_end;
      }
      // A label may run past its dash group only in the last column (9.0
      // sizes that group to the label, not to the values).
      for (size_t i = 0; i < table.columns.size(); ++i) {
        const size_t start = table.columns[i].start;
        const size_t stop = i + 1 < table.columns.size() ? table.columns[i + 1].start : npos;
        if (start < header.size()) {
          table.columns[i].name =
              trim_space(header.substr(start, stop == npos ? npos : stop - start));
        }
      }
      table.rows = complete_lines(text, end + 1);
      return table;
    }
    header_start = line_start;
    line_start = end + 1;
  }
  return table;
}

HeaderTable read_labelled_table(const std::string& text, const std::vector<std::string>& labels) {
  HeaderTable table;
  const size_t end = text.find('\n');
  if (end == npos) return table;
  const std::string header = text.substr(0, end);
  for (const std::string& label : labels) {
    const size_t at = header.find(label);
    if (at != npos) table.columns.push_back({label, at});
  }
  std::sort(table.columns.begin(), table.columns.end(),
            [](const TableColumn& a, const TableColumn& b) { return a.start < b.start; });
  table.rows = complete_lines(text, end + 1);
  return table;
}
