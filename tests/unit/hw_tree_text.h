// Test helper: the text form of one subtree, for whole-branch comparisons.
#ifndef QUILLSCAN_TESTS_UNIT_HW_TREE_TEXT_H_
#define QUILLSCAN_TESTS_UNIT_HW_TREE_TEXT_H_

#include <string>
#include <vector>

#include "zxml/tag.h"

namespace hw_test {

// The serialized form of node and everything below it ("" for null).
inline std::string tree_text(const ztag* node) {
  if (node == nullptr) return std::string();
  std::vector<char> buffer(node->text_length(false) + 1, '\0');
  const size_t written = node->write_text(buffer.data(), 0, false, false);
  return std::string(buffer.data(), written);
}

}  // namespace hw_test

#endif  // QUILLSCAN_TESTS_UNIT_HW_TREE_TEXT_H_
