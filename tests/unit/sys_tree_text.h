// Test helper: a subtree's serialized text ("<none>" for a missing node).
#ifndef QUILLSCAN_TESTS_UNIT_SYS_TREE_TEXT_H_
#define QUILLSCAN_TESTS_UNIT_SYS_TREE_TEXT_H_

#include <string>

#include "spine_test_support.h"

inline std::string tree_text(const ztag* node) {
  return node == nullptr ? "<none>" : spine_test::text_of(node);
}

#endif  // QUILLSCAN_TESTS_UNIT_SYS_TREE_TEXT_H_
