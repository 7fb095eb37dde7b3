// Reading .inv files back: trailer, header, record bodies, inflating with a
// size limit, and parsing the text form of documents. Every check reports
// what is wrong as one line of text; nothing here aborts on bad input.
#ifndef QUILLSCAN_TOOLS_INV_READER_H_
#define QUILLSCAN_TOOLS_INV_READER_H_

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace invread {

// Largest inflated size accepted for one file, all records together (and
// so for one record). Real inventories inflate to a few megabytes; a stream
// that would grow past this is refused rather than followed. Records are
// inflated piece by piece, so memory does not grow with it; the limit
// bounds the time a hostile file can take.
constexpr uint64_t kMaxInflated = 512ull << 20;
// Largest header text accepted (about half a million record blocks).
constexpr uint64_t kMaxHeader = 64ull << 20;
// Deepest element nesting accepted in a document (the top element is at
// depth 1; the agent writes 7 at most). Each level is two levels of the JSON
// that `json` prints: jq refuses that JSON from about 80 levels, Python's
// json module from about 490.
constexpr size_t kMaxDepth = 64;
// Longest line accepted in a document (a line is kept whole while it is
// parsed).
constexpr size_t kMaxLine = 16u << 20;
// Most lines (elements, attributes, annotations) turned into a tree; a real
// inventory has a few hundred thousand. Each parsed item costs far more
// memory than its line, so the inflate limit alone would not bound it.
constexpr size_t kMaxItems = 4000000;

using Annotations = std::vector<std::pair<std::string, std::string>>;

struct Attribute {
  std::string name;
  std::string value;
  Annotations meta;
};

struct Element {
  bool parent = false;  // written as "+" (has children) rather than "*"
  std::string name;
  std::string value;
  Annotations meta;
  std::vector<Attribute> attrs;
  std::vector<Element> children;
};

// One record block of the header, its lines in file order.
struct RecordInfo {
  std::string type;  // "snapshot", "assetinfo" or "customdata"
  uint64_t offset = 0;
  uint64_t length = 0;
  std::vector<std::pair<std::string, std::string>> fields;  // every key=value of the block
  bool is_document() const { return type == "snapshot" || type == "assetinfo"; }
  // Value of a field, or "" when the block has none.
  std::string field(const std::string& key) const;
};

struct Header {
  std::string text;           // the header exactly as stored
  uint64_t position = 0;      // where it starts (= total size of the bodies)
  bool little_endian = true;  // byte order of the trailer's position field
  int version = 0;
  int write_flag = 0;
  uint64_t count = 0;
  uint64_t snapshotcount = 0;
  std::vector<RecordInfo> records;
};

// Parses header text; on failure returns false and sets error. The bodies
// must lie back to back from byte 0 up to bodies_end in record order, as
// the writer lays them out: a body listed twice or overlapping another
// would let a small file stand for any amount of data.
bool parse_header(const std::string& text, uint64_t bodies_end, Header* header, std::string* error);

// Inflates a whole zlib stream that must end exactly at the end of data;
// refuses output larger than limit.
bool inflate_limited(const std::string& data, uint64_t limit, std::string* out, std::string* error);

// What a document parser reports, line by line, in file order.
class DocumentHandler {
 public:
  virtual ~DocumentHandler() = default;
  // An element line ("+" parent or "*" leaf) with `depth` elements open
  // around it (0 at the document root).
  virtual void element(bool parent, std::string_view name, std::string_view value,
                       size_t depth) = 0;
  // A "-" line: the innermost open parent ends.
  virtual void close() = 0;
  // An attribute of the latest element.
  virtual void attribute(std::string_view name, std::string_view value) = 0;
  // An annotation of the latest attribute (on_attribute) or element.
  virtual void annotation(bool on_attribute, std::string_view key, std::string_view text) = 0;
  // The document is complete and well formed.
  virtual void end() {}
};

// Parses the text form of a document as it arrives, in pieces of any size,
// holding only the current line and the names of the open elements.
class DocumentParser {
 public:
  // handler may be null (the text is only checked). With count_items, more
  // than kMaxItems lines are refused (for callers that keep every line).
  explicit DocumentParser(DocumentHandler* handler, bool count_items = false)
      : handler_(handler), count_items_(count_items) {}
  // False once the text is found bad; error() then says why.
  bool feed(const char* data, size_t size);
  // Call after the last piece.
  bool finish();
  const std::string& error() const { return error_; }
  // The name of the first element line (the top element).
  const std::string& top_name() const { return top_name_; }

 private:
  bool line(std::string_view text);
  bool fail(const std::string& what);

  DocumentHandler* handler_;
  bool count_items_;
  std::string error_;
  bool failed_ = false;
  std::string start_;  // the first bytes, until the document start is checked
  bool started_ = false;
  std::string partial_;  // an incomplete line carried to the next piece
  std::vector<std::string> open_;
  bool have_target_ = false;  // an element line that attribute lines belong to
  bool have_notes_ = false;   // a line that annotation lines belong to
  bool notes_on_attribute_ = false;
  bool have_top_ = false;
  std::string top_name_;
  size_t items_ = 0;
  size_t line_no_ = 1;
};

// Checks UTF-8 as find_invalid_utf8 does, piece by piece.
class Utf8Checker {
 public:
  // False at the first bad byte; bad_offset() is its offset from the start.
  bool feed(const char* data, size_t size);
  bool finish();
  uint64_t bad_offset() const { return lead_; }

 private:
  uint64_t offset_ = 0;
  uint64_t lead_ = 0;  // where the current sequence started
  int need_ = 0;       // continuation bytes still expected
};

// Receives inflated content piece by piece; returning false stops the
// stream (and the stream reports failure without setting an error).
using Sink = std::function<bool(const char* data, size_t size)>;

// Parses the text form of a document (byte order mark, "?zxml", the top
// element, then any further elements of the root) into top and, when given,
// more. With top null the text is only checked, in memory that does not grow
// with the document.
bool parse_document(const std::string& text, Element* top, std::string* error,
                    std::vector<Element>* more = nullptr);

// Writes an element back in the text form (the inverse of parse_document
// for the element lines; add the document start for a whole document).
std::string element_text(const Element& e);
// The whole document text of a top element and the root's further elements.
std::string document_text(const Element& top, const std::vector<Element>* more = nullptr);

// Checks that text is UTF-8 in the sense the tree library keeps when it
// repairs text: lead bytes 0xC0-0xFD followed by the number of
// continuation bytes they announce. Returns the offset of the first bad
// byte, or npos.
size_t find_invalid_utf8(const std::string& text);

class InvReader {
 public:
  InvReader() = default;
  ~InvReader();
  InvReader(const InvReader&) = delete;
  InvReader& operator=(const InvReader&) = delete;

  // Opens path and reads its trailer and header.
  bool open(const std::string& path, std::string* error);
  const Header& header() const { return header_; }
  uint64_t file_size() const { return size_; }

  // The stored body of record i, whole (the header has placed it inside
  // the file, so it is at most the file's size).
  bool body(size_t i, std::string* out, std::string* error);
  // The inflated content of record i: the document text (framing checked
  // and removed) or the raw text of a custom-data record.
  bool content(size_t i, std::string* out, std::string* error, uint64_t limit = kMaxInflated);
  // The same content handed to sink piece by piece as it is inflated; the
  // framing of a document is checked before anything is inflated. Besides
  // `limit` for the record, all records of the file together may inflate to
  // kMaxInflated bytes (reading a record again does not count twice).
  bool stream(size_t i, const Sink& sink, std::string* error, uint64_t limit = kMaxInflated);

 private:
  bool read_at(uint64_t offset, uint64_t length, std::string* out, std::string* error);
  bool read_some(uint64_t offset, size_t length, char* out, std::string* error);

  int fd_ = -1;
  uint64_t size_ = 0;
  Header header_;
  std::vector<uint64_t> inflated_;  // bytes each record inflated to (so far)
};

// Everything `check` verifies for one file, reading each record piece by
// piece. On success summary describes
// the file ("2 records, snapshotcount=1"); on failure error says what is
// wrong.
bool check_file(const std::string& path, std::string* summary, std::string* error,
                uint64_t limit = kMaxInflated);

}  // namespace invread

#endif  // QUILLSCAN_TOOLS_INV_READER_H_
