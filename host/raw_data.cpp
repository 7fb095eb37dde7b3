// The debug run's raw-output text.
#include "host/raw_data.h"

#include <cstdio>
#include <cstring>

#include "zxml/tag.h"

CTextContainer::~CTextContainer() {
  delete[] text_;
}

void CTextContainer::add_section(const std::string& title, const std::string& body) {
  char* begin = format_alloc(">>>---Begin of Section: '%s'---<<<", title.c_str());
  char* end = format_alloc(">>>---End of Section: '%s'---<<<", title.c_str());
  // The first section ends without a newline and every later one with one,
  // so from the third section on a blank line precedes each section. The
  // body is text: it ends at its first NUL byte, if any.
  char* text;
  if (text_ == nullptr) {
    text = format_alloc("%s\n%s\n%s", begin, body.c_str(), end);
  } else {
    text = format_alloc("%s\n%s\n%s\n%s\n", text_, begin, body.c_str(), end);
  }
  delete[] text_;
  text_ = text;
  length_ = std::strlen(text_);
  delete[] begin;
  delete[] end;
}
