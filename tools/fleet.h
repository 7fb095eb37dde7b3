// The fleet commands of quillscan-inv: export to typed tables, the JSON
// Schema of those tables, and the diff of two scans; and the input handling
// every command shares (several files, directories, "-" for standard input).
#ifndef QUILLSCAN_TOOLS_FLEET_H_
#define QUILLSCAN_TOOLS_FLEET_H_

#include <string>
#include <vector>

#include "tools/fleet_tables.h"
#include "tools/inv_reader.h"

namespace invtab {

// A file named on the command line, readable by path: "-" is standard input
// copied to a private temporary file (removed with this object).
class InputFile {
 public:
  InputFile() = default;
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  // Resolves name; computes the SHA-256 of the bytes when hash is given.
  bool open(const std::string& name, std::string* hash, uint64_t* size, std::string* error);
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  bool temporary_ = false;
};

// Expands the command line's FILE|DIR|- arguments: a directory gives every
// "*.inv" below it, sorted by path; the rest are kept in order.
bool expand_inputs(const std::vector<std::string>& args, std::vector<std::string>* files,
                   std::string* error);

// Opens a file named on the command line (or "-") and identifies it: its
// SHA-256, size and name. error is one line without the file name.
bool open_scan(const std::string& name, InputFile* input, ScanFile* file, std::string* error);

// Reads the documents of an opened scan and maps them to rows as they are
// parsed. Fails on a damaged file (rows already sent to the sink are the
// caller's to undo) or when the sink refuses a row. texts, when given,
// holds the documents' texts and keeps its capacity from file to file.
bool map_scan(const InputFile& input, const ScanFile& file, RowSink* sink, std::string* error,
              std::vector<std::string>* texts = nullptr);

// The commands. args are the words after the command's name.
int cmd_export(const std::vector<std::string>& args);
int cmd_schema(const std::vector<std::string>& args);
int cmd_diff(const std::vector<std::string>& args);

// The JSON Schema of one table's rows, of the `json` command's output
// ("json"), or of everything ("").
bool schema_text(const std::string& which, std::string* out);

// Formats a typed value for CSV (RFC 4180: quoted when it holds a comma,
// quote, CR or LF; quotes doubled; NULL is an empty field).
std::string csv_field(const Value& v);

extern const char kVersion[];

}  // namespace invtab

#endif  // QUILLSCAN_TOOLS_FLEET_H_
