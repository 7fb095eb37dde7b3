// Tables of the host's tools read by their header line: the columns are
// found by name, so a release that adds, drops or widens a column is read
// the same way. esxcli prints a line of dash groups under the header, one
// group per column; esxcfg-* tools print the header alone, with each label
// at the start of its column.
#ifndef QUILLSCAN_HOST_HEADER_TABLE_H_
#define QUILLSCAN_HOST_HEADER_TABLE_H_

#include <cstddef>
#include <string>
#include <vector>

struct TableColumn {
  std::string name;  // header label, blanks trimmed
  size_t start = 0;  // first character of the column
};

struct HeaderTable {
  std::vector<TableColumn> columns;  // in order of their start
  std::vector<std::string> rows;     // complete lines after the header (and dashes)
  // Index of the column named `name` exactly; -1 when there is none.
  int column(const std::string& name) const;
  // The cell of column `index` of `row`: the text from the column's start
  // to the next column's start (the last column runs to the end of the
  // line), blanks trimmed. "" when the row ends before the column.
  std::string cell(const std::string& row, int index) const;
  // Whether `row` reaches the start of column `index`.
  bool reaches(const std::string& row, int index) const;
};

// Reads a table whose header is followed by a line of dash groups: the
// column spans are the groups, the names the header text above them. Rows
// are the lines after the dashes that end with "\n" (a last line without it
// is a cut-off line and not read); empty rows are left out. No dash line
// gives a table without columns or rows.
HeaderTable read_dashed_table(const std::string& text);

// Reads a table whose first line is the header and whose columns start
// where the given labels start in it (labels not in the header are not
// columns). Rows as above.
HeaderTable read_labelled_table(const std::string& text, const std::vector<std::string>& labels);

// Blanks and tabs removed at both ends.
std::string trim_space(const std::string& text);

#endif  // QUILLSCAN_HOST_HEADER_TABLE_H_
