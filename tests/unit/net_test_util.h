// Helpers shared by the network collector tests.
#ifndef QUILLSCAN_TESTS_UNIT_NET_TEST_UTIL_H_
#define QUILLSCAN_TESTS_UNIT_NET_TEST_UTIL_H_

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "zxml/tag.h"

namespace net_test {

// The serialized text form of one node and everything below it.
inline std::string subtree_text(const ztag* node) {
  if (node == nullptr) return "<missing>";
  std::vector<char> buffer(node->text_length(false) + 1);
  size_t written = node->write_text(buffer.data(), 0, false, false);
  return std::string(buffer.data(), written);
}

inline std::string read_fixture(const std::string& relative) {
  std::ifstream in(std::string(QS_FIXTURES) + "/" + relative, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

}  // namespace net_test

#endif  // QUILLSCAN_TESTS_UNIT_NET_TEST_UTIL_H_
