// How quillscan-inv presents what it read: JSON and an indented outline.
#ifndef QUILLSCAN_TOOLS_INV_FORMAT_H_
#define QUILLSCAN_TOOLS_INV_FORMAT_H_

#include <string>
#include <string_view>
#include <vector>

#include "tools/inv_reader.h"

namespace invread {

// A JSON string literal for arbitrary bytes. Valid UTF-8 (shortest forms,
// no surrogates, at most U+10FFFF) is copied; quote, backslash and control
// characters are escaped; any other byte is taken as a Latin-1 character
// and written as \u00XX, so the output is always valid JSON.
std::string json_string(std::string_view bytes);

// An element as a JSON object: name, value, annotations (array of
// {key, text} in file order), attributes (array of {name, value,
// annotations}) and children (array of elements).
void append_element_json(const Element& e, std::string* out);

// A value for the outline: backslash, control bytes and DEL are written as
// C escapes (\\, \r, \t, \xNN) so that every item stays on one line and
// nothing in it reaches the terminal as a control. C1 controls are escaped
// the same way, byte by byte: U+0080-U+009F in UTF-8 (\xc2\x9b) and the
// bytes 0x80-0x9F outside a valid UTF-8 sequence.
std::string outline_text(std::string_view bytes);

// Raw text for the outline, piece by piece: as outline_text, but line
// feeds, tabs and backslashes stay as they are. A UTF-8 sequence cut between two pieces is held
// back until the next one; call finish after the last piece.
class RawTextEscaper {
 public:
  void feed(const char* data, size_t size, std::string* out);
  void finish(std::string* out);

 private:
  std::string carry_;
};

// Writes a document as JSON (the form of append_element_json) line by line
// as a DocumentParser reports it. With record_fields the first element at
// the document root is written as ,"document":{...} and the others as
// ,"root_siblings":[...], the members of a record object.
class JsonWriter : public DocumentHandler {
 public:
  JsonWriter(std::string* out, bool record_fields) : out_(out), record_fields_(record_fields) {}
  void element(bool parent, std::string_view name, std::string_view value, size_t depth) override;
  void close() override;
  void attribute(std::string_view name, std::string_view value) override;
  void annotation(bool on_attribute, std::string_view key, std::string_view text) override;
  void end() override;

 private:
  enum Section { kAnnotations, kAttributes, kChildren };
  struct Open {
    bool parent;
    Section section;
    bool first;  // nothing in the current array yet
  };
  void enter_children(Open* e);
  void finish(const Open& e);

  std::string* out_;
  bool record_fields_;
  std::vector<Open> open_;
  size_t roots_ = 0;
};

// Writes the outline of append_element_outline line by line.
class OutlineWriter : public DocumentHandler {
 public:
  OutlineWriter(std::string* out, int indent) : out_(out), indent_(indent) {}
  void element(bool parent, std::string_view name, std::string_view value, size_t depth) override;
  void close() override {}
  void attribute(std::string_view name, std::string_view value) override;
  void annotation(bool on_attribute, std::string_view key, std::string_view text) override;

 private:
  std::string* out_;
  int indent_;
  std::string inner_;  // the indent of the latest element's items
};

// Reports a tree to a handler as the parser would have reported its text.
void replay(const Element& e, DocumentHandler* handler, size_t depth = 0);

// The outline of an element: "<name>" (and " value"), then its annotations
// "~key=text", its attributes "name=value" each followed by their own
// annotations, then its children, each level indented two more spaces.
void append_element_outline(const Element& e, int indent, std::string* out);

}  // namespace invread

#endif  // QUILLSCAN_TOOLS_INV_FORMAT_H_
