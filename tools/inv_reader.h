// Reading .inv files back: trailer, header, record bodies, inflating with a
// size limit, and parsing the text form of documents. Every check reports
// what is wrong as one line of text; nothing here aborts on bad input.
#ifndef QUILLSCAN_TOOLS_INV_READER_H_
#define QUILLSCAN_TOOLS_INV_READER_H_

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace invread {

// Largest inflated size accepted for one record. Real inventories inflate
// to a few megabytes; a stream that would grow past this is refused rather
// than followed, so a small hostile file cannot exhaust memory.
constexpr uint64_t kMaxInflated = 512ull << 20;
// Largest header text accepted (about half a million record blocks).
constexpr uint64_t kMaxHeader = 64ull << 20;
// Deepest element nesting accepted in a document.
constexpr size_t kMaxDepth = 1000;
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

// Parses header text; on failure returns false and sets error.
bool parse_header(const std::string& text, uint64_t bodies_end, Header* header, std::string* error);

// Inflates a whole zlib stream that must end exactly at the end of data;
// refuses output larger than limit.
bool inflate_limited(const std::string& data, uint64_t limit, std::string* out, std::string* error);

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

  // The stored body of record i.
  bool body(size_t i, std::string* out, std::string* error);
  // The inflated content of record i: the document text (framing checked
  // and removed) or the raw text of a custom-data record.
  bool content(size_t i, std::string* out, std::string* error, uint64_t limit = kMaxInflated);

 private:
  bool read_at(uint64_t offset, uint64_t length, std::string* out, std::string* error);

  std::FILE* file_ = nullptr;
  uint64_t size_ = 0;
  Header header_;
};

// Everything `check` verifies for one file. On success summary describes
// the file ("2 records, snapshotcount=1"); on failure error says what is
// wrong.
bool check_file(const std::string& path, std::string* summary, std::string* error,
                uint64_t limit = kMaxInflated);

}  // namespace invread

#endif  // QUILLSCAN_TOOLS_INV_READER_H_
