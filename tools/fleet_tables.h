// Flat, typed tables of a decoded inventory: one row per entity (scan, host,
// machine, virtual disk, package ...), snake_case columns with fixed types.
// The tables are data: each names the elements that make its rows and, per
// column, where in the document the value comes from and how it is typed.
// Export, schema, documentation and diff all work from these definitions.
#ifndef QUILLSCAN_TOOLS_FLEET_TABLES_H_
#define QUILLSCAN_TOOLS_FLEET_TABLES_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/inv_reader.h"

namespace invtab {

// How a column's text is turned into its value.
enum class Conv {
  kText,      // the text as written
  kInt,       // a decimal integer; NULL when the text is not one
  kFlag,      // "1"/"true" -> 1, "0"/"false" -> 0, else NULL
  kBytes,     // a byte count (a "base-value" annotation); NULL when not a number
  kTime,      // a timestamp or date-time -> UTC ISO 8601 "YYYY-MM-DDThh:mm:ssZ"
  kInterval,  // a CIM interval "DDDDDDDDhhmmss.000000:000" -> seconds
};

// Column types as stored: SQLite INTEGER or TEXT, JSON integer or string.
enum class Type { kInteger, kText };

struct Column {
  std::string name;
  Conv conv;
  // Where the value is, relative to the row's element (or attribute):
  //   "@attr"        an attribute's value       "@attr~key"  its annotation
  //   "="            the element's own value    "~key"       its annotation
  //   "=*"           the value of a "prefix:NAME" element that repeats NAME
  //   "#"            the part of the element's name after the colon
  //   "Child/Sub@a"  descend by exact names first
  //   "^2@a"         go up two elements first
  //   "%~key", "%#"  the row attribute's annotation / name part (attribute rows)
  //   "!"            the element's name
  // Empty for columns the exporter fills itself (scan id, position ...).
  std::string source;
  std::string description;
  Type type() const {
    return conv == Conv::kText || conv == Conv::kTime ? Type::kText : Type::kInteger;
  }
};

struct Table {
  std::string name;
  std::string description;
  // Element names from the document's top element down to the row element;
  // "name:N" matches a number after the colon, "name:*" any text, "*" any
  // element.
  std::vector<std::string> path;
  // For tables whose rows are attributes of the path's element ("Warning:N").
  std::string row_attribute;
  // One row per scan (no position column) rather than one per element.
  bool single = false;
  std::vector<Column> columns;  // scan_id first, then position unless single
  // Identity of a row for diff: each part is a list of alternative columns,
  // the first non-empty one is used.
  std::vector<std::vector<std::string>> key;
  // The table changes from scan to scan by itself (processes, environment).
  bool volatile_rows = false;
  // Columns whose values depend on when the scan ran.
  std::vector<std::string> volatile_columns;

  // The generalised document path of a column's source ("Snapshot / VMs /
  // vm:N @vm-id"), as the format reference writes it; "" for filled columns.
  std::string source_path(const Column& c) const;
  int column_index(const std::string& name) const;
};

// Every table, in a fixed order.
const std::vector<Table>& tables();
const Table* find_table(const std::string& name);

// A typed value: NULL, integer or text.
struct Value {
  enum Kind { kNull, kInt, kText } kind = kNull;
  int64_t i = 0;
  std::string s;
  static Value text(std::string t) {
    Value v;
    v.kind = kText;
    v.s = std::move(t);
    return v;
  }
  static Value integer(int64_t n) {
    Value v;
    v.kind = kInt;
    v.i = n;
    return v;
  }
  bool operator==(const Value& o) const {
    return kind == o.kind && (kind != kInt || i == o.i) && (kind != kText || s == o.s);
  }
  bool operator!=(const Value& o) const { return !(*this == o); }
  // Plain text for messages ("NULL" for NULL).
  std::string display() const;
};

using Row = std::vector<Value>;

// What the exporter knows about a file besides its documents.
struct ScanFile {
  std::string scan_id;    // SHA-256 of the file, lower-case hex
  std::string file_name;  // the file's name without directories
  uint64_t size = 0;
};

// Receives the rows of one file, each table's rows in document order.
class RowSink {
 public:
  virtual ~RowSink() = default;
  // The sink may take the row's values (swap them out): each row's values
  // are all set anew.
  virtual bool row(const Table& t, Row& r, std::string* error) = 0;
};

// Maps the documents of one file to rows while they are parsed, without a
// tree: a row goes to the sink as soon as its element ends. The first
// document whose top element is "Snapshot" and the first with "AssetInfo"
// are mapped; other documents map nothing. The one-per-scan tables (scans,
// hosts, asset_summary), which need both documents, are written by
// finish(). The mapper keeps views into the text given to the parsers, so
// each document's text must stay in place, unchanged, until finish().
class RowMapper {
 public:
  RowMapper(const ScanFile& file, RowSink* sink);
  ~RowMapper();
  RowMapper(const RowMapper&) = delete;
  RowMapper& operator=(const RowMapper&) = delete;
  // The handler for the parser of the file's next document.
  invread::DocumentHandler* document();
  // Whether a Snapshot or AssetInfo document has been seen.
  bool found() const;
  // False once the sink has refused a row; error() says why.
  bool ok() const;
  const std::string& error() const;
  // Writes the one-per-scan rows. False when the sink refused a row.
  bool finish(std::string* error);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

// Maps whole document texts, in file order, to rows.
bool map_documents(const ScanFile& file, const std::vector<std::string>& texts, RowSink* sink,
                   std::string* error);

// The conversions, exposed for tests.
bool parse_int(std::string_view s, int64_t* out);
bool timestamp_to_utc(std::string_view s, std::string* out);
bool interval_to_seconds(std::string_view s, int64_t* out);
Value convert(Conv c, std::string_view text);
// The same into an existing value, reusing its string (the text of a value
// that is not text is left unspecified).
void convert_into(Conv c, std::string_view text, Value* v);

}  // namespace invtab

#endif  // QUILLSCAN_TOOLS_FLEET_TABLES_H_
