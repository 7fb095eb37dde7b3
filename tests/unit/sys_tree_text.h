// Test helper: the serialized text of one subtree, so that tests compare
// whole lines of output rather than picking single attributes.
#ifndef QUILLSCAN_TESTS_UNIT_SYS_TREE_TEXT_H_
#define QUILLSCAN_TESTS_UNIT_SYS_TREE_TEXT_H_

#include <string>

#include "zxml/tag.h"

inline std::string tree_text(const ztag* node) {
  if (node == nullptr) return "<none>";
  std::string text(node->text_length(false), '\0');
  size_t written = node->write_text(&text[0], 0, false, false);
  text.resize(written);
  return text;
}

#endif  // QUILLSCAN_TESTS_UNIT_SYS_TREE_TEXT_H_
