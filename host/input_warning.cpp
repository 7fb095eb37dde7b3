// Warning attributes for malformed host input.
#include "host/input_warning.h"

#include "zxml/tag.h"

void add_input_warning(ztag* node, const std::string& source, const std::string& skipped) {
  const int number = node->next_index("Warning:", false);
  zattr* attr =
      node->set_attr(format_string("Warning:%u", static_cast<unsigned>(number)), zvalue(""));
  attr->add_meta("type", "malformed_input");
  attr->add_meta("source", source);
  attr->add_meta("skipped", skipped);
}
