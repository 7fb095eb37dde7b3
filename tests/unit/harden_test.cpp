// Inputs a hostile host can present to the host layer and the tree: files
// that never end or block, and elements with very many children.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "host/command.h"
#include "test_support.h"
#include "zxml/tag.h"

namespace {

using test_support::TempDir;

TEST(HardenReadFile, SpecialFilesNeitherBlockNorRunOn) {
  TempDir tmp;
  // A FIFO nobody writes to reads as empty at once; opening it would
  // otherwise wait for a writer for ever.
  const std::string fifo = tmp / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  unsigned long length = 7;
  EXPECT_EQ(read_file(fifo, &length), "");
  EXPECT_EQ(length, 0u);
  FILE* f = open_for_reading(fifo.c_str());
  ASSERT_NE(f, nullptr);
  fclose(f);
  // A device that never ends is read up to the limit.
  const std::string zeros = read_file("/dev/zero", &length);
  EXPECT_EQ(length, kMaxReadFileBytes);
  EXPECT_EQ(zeros, std::string(kMaxReadFileBytes, '\0'));
  // So is a regular file larger than the limit (a sparse terabyte here).
  const std::string big = tmp / "big";
  test_support::write_file(big, "head");
  ASSERT_EQ(truncate(big.c_str(), 1LL << 40), 0);
  const std::string head = read_file(big, &length);
  EXPECT_EQ(length, kMaxReadFileBytes);
  EXPECT_EQ(head.substr(0, 4), "head");
}

TEST(HardenTreeIndex, LookupsAgreeWithInsertionOrder) {
  // Past the size at which lookups use an index, the first child or
  // attribute of a name still wins, appends are found at once, and a sort
  // changes which child comes first.
  ztag node("n");
  for (int i = 0; i < 200; ++i) node.child("c" + std::to_string(i % 150));
  EXPECT_EQ(node.children().size(), 150u);
  node.append_child(std::unique_ptr<ztag>(new ztag("c7")));  // a second c7
  EXPECT_EQ(node.find_child("c7"), node.child_at(7));
  ztag* late = node.child("late");
  EXPECT_EQ(node.find_child("late"), late);
  EXPECT_EQ(node.find_child("absent"), nullptr);

  node.child_at(150)->set_value(zvalue("a"));  // the second c7 sorts first
  node.sort_children([](const ztag& a, const ztag& b) { return a.value() && !b.value(); });
  EXPECT_EQ(node.find_child("c7"), node.child_at(0));

  for (int i = 0; i < 100; ++i) node.set_attr("a" + std::to_string(i), zvalue(i));
  node.set_attr("a5", zvalue(55));
  EXPECT_EQ(node.attrs().size(), 100u);
  EXPECT_EQ(node.attrs()[5]->value.as_int(), 55);
  EXPECT_EQ(node.find_attr("a99"), node.attrs()[99].get());
}

}  // namespace
