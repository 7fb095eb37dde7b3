// The tree library: values, text normalisation, get-or-append, numbering,
// deep copy and the string helpers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

using Cases = std::vector<std::pair<std::string, std::string>>;

std::string attr_list(const ztag& t) {
  std::string s;
  for (const auto& a : t.attrs()) s += a->name + "=" + a->value.printed() + ";";
  return s;
}

// Numbers are printed without the C library where that is exact; the text
// must still be what printf gives, including its rounding of halves.
TEST(ZxmlValue, PrintedFormsMatchPrintf) {
  EXPECT_EQ(zvalue().printed(), "");
  EXPECT_EQ(zvalue(true).printed() + zvalue(false).printed(), "truefalse");
  EXPECT_EQ(zvalue(false).printed_length(), 5u);
  EXPECT_EQ(zvalue(-1).printed() + " " + zvalue(2.5).printed(), "-1 2.50");
  EXPECT_EQ(zvalue(static_cast<int64_t>(INT64_MIN)).printed(), "-9223372036854775808");
  EXPECT_EQ(zvalue(1.005).printed(), "1.00");  // stored just below 1.005
  EXPECT_EQ(zvalue(-1.7976931348623157e308).printed_length(), 313u);

  std::vector<double> reals = {0.0, -0.0, 0.125, 0.375, 2.675, -0.004, 99.995, 1e15, 9.3e16};
  std::mt19937_64 rng(99);
  for (int i = 0; i < 200000; ++i) {
    const uint64_t bits = rng();
    double d;
    if (i % 3 == 0) {  // any bit pattern: NaN, infinities, subnormals, huge
      std::memcpy(&d, &bits, sizeof d);
    } else if (i % 3 == 1) {  // exact halves and quarters of hundredths
      d = static_cast<double>(static_cast<int64_t>(bits % 2000000) - 1000000) / 8.0;
    } else {
      d = std::ldexp(static_cast<double>(bits >> 11), static_cast<int>(bits % 120) - 100);
    }
    reals.push_back(d);
  }
  char expected[400];
  for (double d : reals) {
    std::snprintf(expected, sizeof expected, "%.2lf", d);
    const zvalue v(d);
    ASSERT_EQ(v.printed(), expected) << std::hexfloat << d;
    ASSERT_EQ(v.printed_length(), std::strlen(expected));
    char buf[400];
    ASSERT_EQ(std::string(buf, v.print(buf)), expected);
  }
  for (int i = 0; i < 100000; ++i) {
    const int64_t n = static_cast<int64_t>(rng()) >> (rng() % 64);
    std::snprintf(expected, sizeof expected, "%lld", static_cast<long long>(n));
    ASSERT_EQ(zvalue(n).printed(), expected);
  }
}

TEST(ZxmlValue, AssignmentAndReset) {
  zvalue v("first");
  v = zvalue(7);
  EXPECT_EQ(v.kind(), zvalue::kInt);
  EXPECT_EQ(v.as_text(), "");  // the old text is gone
  const zvalue& same = v;
  v = same;
  EXPECT_EQ(v.printed(), "7");
  v.reset();
  EXPECT_EQ(v.kind(), zvalue::kNone);
  EXPECT_EQ(v.printed_length(), 0u);
}

TEST(ZxmlNormalise, LineEndsSpacesAndEncoding) {
  const Cases cases = {
      // line ends
      {"line1\nline2\n", "line1\rline2\r"},
      {"a\rb", "a\r"},       // the byte after a lone CR is dropped
      {"a\r\rbc", "a\rbc"},  // ... even when it is another CR
      {"a\r", "a\r"},
      {"a\r\nb\r\n", "a\rb\r"},  // CR LF is one line end and the walk moves on
      {"\r\r\n", "\r\r"},
      // spaces
      {"  word  ", "word"},
      {"   ", ""},
      {" ", " "},
      {"\tword\t", "\tword\t"},
      {"a ", "a"},
      {" a b ", "a b"},
      {"\n  x", "\r  x"},
      {"  \n  ", "\r"},
      // encoding
      {"\xE9", "\xC3\xA9"},
      {"\xA0", "\xC2\xA0"},
      {"\xC3\xA9", "\xC3\xA9"},
      {"\xE2\x82\xAC", "\xE2\x82\xAC"},
      {"\xE2\x82", "\xC3\xA2\xC2\x82"},  // cut short: both bytes repaired
      {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
      {"\xF8\x88\x80\x80\x80", "\xF8\x88\x80\x80\x80"},  // five-byte form passes
      {"\xC0\x80", "\xC0\x80"},                          // overlong forms pass
      {"\xFF\xFE", "\xC3\xBF\xC3\xBE"},
      {"\xC3"
       "a",
       "\xC3\x83"
       "a"},
      {" \xA0 ", "\xC2\xA0"},  // trimming comes before the repair
  };
  for (const auto& c : cases) EXPECT_EQ(normalise_text(c.first), c.second) << c.first;
  EXPECT_EQ(zvalue(std::string(" a\nb ")).as_text(), "a\rb");
  EXPECT_EQ(zvalue(" a\nb ").as_text(), "a\rb");
  // Names and annotations are stored as given.
  ztag t(" n\n");
  t.add_meta(" k\n", " v\n");
  EXPECT_EQ(t.name() + t.meta().item(0)->first + t.meta().item(0)->second, " n\n k\n v\n");
}

TEST(ZxmlTag, SetAttrNeverMoves) {
  ztag t("x");
  t.set_attr("a", zvalue(1));
  t.set_attr("b", zvalue(2), "units", "MB");
  zattr* a = t.set_attr("a", zvalue(3), "ignored", "too");
  EXPECT_EQ(attr_list(t), "a=3;b=2;");
  EXPECT_EQ(a->meta.count(), 0u);
  t.find_attr("b")->add_meta("units", "GB");
  t.set_attr("b", zvalue(true));
  EXPECT_EQ(t.find_attr("b")->meta.count(), 2u);  // annotations survive a new value
  EXPECT_EQ(*t.find_attr("b")->meta.find("units"), "MB");
  EXPECT_EQ(t.find_attr("c"), nullptr);
  EXPECT_EQ(*t.set_attr("c", zvalue(), "field-source", nullptr)->meta.find("field-source"), "");
}

TEST(ZxmlTag, ChildGetOrAppend) {
  ztag t("parent");
  ztag* a = t.child("Processors");
  EXPECT_EQ(t.kind(), ztag::kParent);
  EXPECT_EQ(t.child("Processors"), a);
  ztag* b = t.child("b", zvalue(5));
  EXPECT_EQ(t.child("b", zvalue("x")), b);
  EXPECT_EQ(b->value()->printed(), "x");
  EXPECT_EQ(t.children().size(), 2u);
  EXPECT_EQ(t.child_at(1), b);
  EXPECT_EQ(t.child_at(2), nullptr);
  // A duplicate appended by hand is never found by name.
  EXPECT_NE(t.append_child(std::unique_ptr<ztag>(new ztag("Processors"))), a);
  EXPECT_EQ(t.find_child("Processors"), a);
  zXML doc(true, "Snapshot");
  doc.root()->child("second");
  EXPECT_EQ(doc.root()->kind(), ztag::kRoot);
  EXPECT_EQ(doc.top()->name(), "Snapshot");
  EXPECT_EQ(doc.top()->kind(), ztag::kLeaf);
}

TEST(ZxmlTag, NextIndexFillsFirstGap) {
  ztag t("vms");
  EXPECT_EQ(t.next_index("vm:", true), 1);
  t.child("vm:1");
  t.child("vm:3");
  EXPECT_EQ(t.next_index("vm:", true), 2);
  t.child("vm:2");
  EXPECT_EQ(t.next_index("vm:", true), 4);
  EXPECT_EQ(t.next_index("vm:", false), 1);  // attributes are counted separately
  // Names that "%d" never prints do not count as used.
  ztag u("u");
  for (const char* n :
       {"vm:01", "vm:+1", "vm:1x", "vm:", "vm:0", "vm:-1", "vm:99999999999999999"}) {
    u.child(n);
  }
  EXPECT_EQ(u.next_index("vm:", true), 1);
  ztag w("w");
  w.set_attr("Warning:1", zvalue("a"));
  w.set_attr("Warning:10", zvalue("b"));
  w.set_attr("Warnings:2", zvalue("c"));
  EXPECT_EQ(w.next_index("Warning:", false), 2);
}

TEST(ZxmlTag, DeepCopyIsCompleteAndIndependent) {
  ztag t("top");
  t.set_value(zvalue(1.5));
  t.add_meta("kind", "esx");
  t.set_attr("a", zvalue("x"), "pos", "1");
  t.set_attr("b", zvalue(false));
  ztag* c = t.child("c");
  c->set_attr("d", zvalue(-5));
  c->child("e");
  std::unique_ptr<ztag> copy = t.deep_copy();
  EXPECT_EQ(copy->copied_attrs(), 2u);
  EXPECT_EQ(copy->copied_children(), 1u);
  EXPECT_EQ(t.copied_attrs(), 0u);
  std::string a(t.text_length(false), '\0'), b(copy->text_length(false), '\0');
  t.write_text(&a[0], 0, false, false);
  copy->write_text(&b[0], 0, false, false);
  EXPECT_EQ(a, b);
  c->set_attr("d", zvalue(6));
  EXPECT_EQ(copy->find_child("c")->find_attr("d")->value.printed(), "-5");
}

TEST(ZxmlHelpers, FormatAllocAndTextBetween) {
  std::unique_ptr<char[]> s(format_alloc("%s-%d-%.2f", "ab", 42, 1.5));
  EXPECT_STREQ(s.get(), "ab-42-1.50");
  EXPECT_EQ(measure_format("%05d|%s", 7, "xyz"), 9);
  const std::string big(100000, 'q');
  EXPECT_EQ(format_string("<%s>", big.c_str()), "<" + big + ">");
  EXPECT_EQ(format_string("%c%c", 'a', '\0'), std::string("a\0", 2));

  const std::string text = "Vendor: Intel\nModel: X\nVendor: AMD\n";
  EXPECT_EQ(text_between(text, "Vendor: ", "\n"), "Intel");
  EXPECT_EQ(text_between(text, "Vendor: ", "\n", 1), "AMD");
  EXPECT_EQ(text_between(text, "Missing", "\n"), "");
  EXPECT_EQ(text_between(text, "Model: ", "@"), "X\nVendor: AMD\n");  // no close: to the end
  EXPECT_EQ(text_between(text, "AMD\n", "\n"), "");
  EXPECT_EQ(text_between(text, "Vendor: ", "\n", 1000), "");
}

}  // namespace
