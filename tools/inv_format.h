// How quillscan-inv presents what it read: JSON and an indented outline.
#ifndef QUILLSCAN_TOOLS_INV_FORMAT_H_
#define QUILLSCAN_TOOLS_INV_FORMAT_H_

#include <string>

#include "tools/inv_reader.h"

namespace invread {

// A JSON string literal for arbitrary bytes. Valid UTF-8 (shortest forms,
// no surrogates, at most U+10FFFF) is copied; quote, backslash and control
// characters are escaped; any other byte is taken as a Latin-1 character
// and written as \u00XX, so the output is always valid JSON.
std::string json_string(const std::string& bytes);

// An element as a JSON object: name, value, annotations (array of
// {key, text} in file order), attributes (array of {name, value,
// annotations}) and children (array of elements).
void append_element_json(const Element& e, std::string* out);

// A value for the outline: backslash, control bytes and DEL are written as
// C escapes (\\, \r, \t, \xNN) so that every item stays on one line.
std::string outline_text(const std::string& bytes);

// The outline of an element: "<name>" (and " value"), then its annotations
// "~key=text", its attributes "name=value" each followed by their own
// annotations, then its children, each level indented two more spaces.
void append_element_outline(const Element& e, int indent, std::string* out);

}  // namespace invread

#endif  // QUILLSCAN_TOOLS_INV_FORMAT_H_
