// The tree library: values, text normalisation, get-or-append, numbering,
// deep copy and the string helpers.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "zxml/tag.h"
#include "zxml/zXML.h"

namespace {

std::string attr_names(const ztag* t) {
  std::string s;
  for (const auto& a : t->attrs()) s += a->name + "=" + a->value.printed() + ";";
  return s;
}

TEST(ZxmlValue, PrintedForms) {
  struct Case {
    zvalue value;
    const char* printed;
  } cases[] = {
      {zvalue(), ""},
      {zvalue(true), "true"},
      {zvalue(false), "false"},
      {zvalue(-1), "-1"},
      {zvalue(static_cast<int64_t>(LLONG_MIN)), "-9223372036854775808"},
      {zvalue(static_cast<uint32_t>(4000000000u)), "4000000000"},
      {zvalue(2.0), "2.00"},
      {zvalue(3.14159), "3.14"},
      {zvalue(2.5), "2.50"},
      {zvalue(1.005), "1.00"},  // 1.005 is stored just below, printf rounds down
      {zvalue(-0.004), "-0.00"},
      {zvalue("text"), "text"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.value.printed(), c.printed);
    EXPECT_EQ(c.value.printed_length(), std::string(c.printed).size()) << c.printed;
    char buf[64];
    ASSERT_EQ(c.value.print(buf), std::string(c.printed).size());
    EXPECT_EQ(std::string(buf, c.value.print(buf)), c.printed);
  }
  // The longest real still prints whole.
  zvalue huge(-1.7976931348623157e308);
  EXPECT_EQ(huge.printed_length(), 313u);
  EXPECT_EQ(huge.printed().substr(huge.printed().size() - 3), ".00");
  EXPECT_EQ(zvalue(std::nan("")).printed(), "nan");
}

TEST(ZxmlValue, AssignmentAndReset) {
  zvalue v("first");
  v = zvalue(7);
  EXPECT_EQ(v.kind(), zvalue::kInt);
  EXPECT_EQ(v.as_text(), "");
  EXPECT_EQ(v.printed(), "7");
  v = zvalue("again");
  const zvalue& same = v;
  v = same;  // self-assignment keeps the value
  EXPECT_EQ(v.printed(), "again");
  v.reset();
  EXPECT_EQ(v.kind(), zvalue::kNone);
  EXPECT_EQ(v.printed_length(), 0u);
  EXPECT_EQ(zvalue(static_cast<const char*>(nullptr)).kind(), zvalue::kText);
}

TEST(ZxmlNormalise, LineEnds) {
  struct Case {
    std::string in, out;
  } cases[] = {
      {"line1\nline2\n", "line1\rline2\r"},
      {"a\rb", "a\r"},       // the byte after a lone CR is dropped
      {"a\r\rbc", "a\rbc"},  // ... even when it is another CR
      {"a\r", "a\r"},        // nothing to drop after a final CR
      {"\n\n", "\r\r"},
      {"a\r\nb\r\n", "a\rb\r"},  // CR LF is one line end and the walk moves on
      {"\r\n\r\n\r\n", "\r\r\r"},
      {"\r\r\n", "\r\r"},
      {"no line ends", "no line ends"},
  };
  for (const Case& c : cases) EXPECT_EQ(normalise_text(c.in), c.out) << c.in;
}

TEST(ZxmlNormalise, Spaces) {
  struct Case {
    std::string in, out;
  } cases[] = {
      {"  word  ", "word"}, {"   ", ""},        {" ", " "},       {"\tword\t", "\tword\t"},
      {" a", "a"},          {"a ", "a"},        {"  ", ""},       {"a b", "a b"},
      {" a b ", "a b"},     {"ab", "ab"},       {"", ""},         {" \ta", "\ta"},
      {"x  \n", "x  \r"},   {"\n  x", "\r  x"}, {"  \n  ", "\r"},
  };
  for (const Case& c : cases) EXPECT_EQ(normalise_text(c.in), c.out) << "[" << c.in << "]";
}

TEST(ZxmlNormalise, EncodingRepair) {
  struct Case {
    std::string in, out;
  } cases[] = {
      {"\xE9", "\xC3\xA9"},
      {"\xA0", "\xC2\xA0"},
      {"\xC3\xA9", "\xC3\xA9"},
      {"caf\xE9 ok", "caf\xC3\xA9 ok"},
      {"\xE2\x82\xAC", "\xE2\x82\xAC"},                  // three-byte sequence kept
      {"\xE2\x82", "\xC3\xA2\xC2\x82"},                  // cut short: both bytes repaired
      {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},          // four-byte sequence kept
      {"\xF8\x88\x80\x80\x80", "\xF8\x88\x80\x80\x80"},  // five-byte form passes
      {"\xC0\x80", "\xC0\x80"},                          // overlong forms pass
      {"\xED\xA0\x80", "\xED\xA0\x80"},                  // surrogates pass
      {"\xFF", "\xC3\xBF"},
      {"\xFE", "\xC3\xBE"},
      {"\xC3"
       "a",
       "\xC3\x83"
       "a"},
      {"\x80\x80", "\xC2\x80\xC2\x80"},
  };
  for (const Case& c : cases) EXPECT_EQ(normalise_text(c.in), c.out);
  // The steps run in order: trimming happens before the repair, so a
  // repaired 0xA0 is not a space and is kept.
  EXPECT_EQ(normalise_text(" \xA0 "), "\xC2\xA0");
}

TEST(ZxmlNormalise, AppliesToTextValuesOnly) {
  EXPECT_EQ(zvalue(std::string(" a\nb ")).as_text(), "a\rb");
  EXPECT_EQ(zvalue(" a\nb ").as_text(), "a\rb");
  ztag t("n");
  t.add_meta(" k\n", " v\n");
  EXPECT_EQ(t.meta().item(0)->first, " k\n");
  EXPECT_EQ(t.meta().item(0)->second, " v\n");
}

TEST(ZxmlTag, SetAttrNeverMoves) {
  ztag t("x");
  t.set_attr("a", zvalue(1));
  t.set_attr("b", zvalue(2), "units", "MB");
  zattr* a = t.set_attr("a", zvalue(3), "ignored", "too");
  EXPECT_EQ(attr_names(&t), "a=3;b=2;");
  EXPECT_EQ(a->meta.count(), 0u);
  ASSERT_EQ(t.find_attr("b")->meta.count(), 1u);
  EXPECT_EQ(*t.find_attr("b")->meta.find("units"), "MB");
  t.find_attr("b")->add_meta("units", "GB");
  t.set_attr("b", zvalue(true));
  EXPECT_EQ(t.find_attr("b")->meta.count(), 2u);  // annotations survive a new value
  EXPECT_EQ(*t.find_attr("b")->meta.find("units"), "MB");
  EXPECT_EQ(t.find_attr("c"), nullptr);
  // A null annotation text is the empty text.
  EXPECT_EQ(*t.set_attr("c", zvalue(), "field-source", nullptr)->meta.find("field-source"), "");
}

TEST(ZxmlTag, ChildGetOrAppend) {
  ztag t("parent");
  EXPECT_EQ(t.kind(), ztag::kLeaf);
  ztag* a = t.child("Processors");
  EXPECT_EQ(t.kind(), ztag::kParent);
  EXPECT_EQ(t.child("Processors"), a);
  EXPECT_EQ(t.children().size(), 1u);
  ztag* b = t.child("b", zvalue(5));
  EXPECT_EQ(b->value()->printed(), "5");
  EXPECT_EQ(t.child("b", zvalue("x")), b);
  EXPECT_EQ(b->value()->printed(), "x");
  EXPECT_EQ(t.child_at(1), b);
  EXPECT_EQ(t.child_at(2), nullptr);
  EXPECT_EQ(t.find_child("Processor"), nullptr);
  // Names compare as bytes, embedded NULs included.
  ztag* nul = t.child(std::string("a\0b", 3));
  EXPECT_NE(nul, t.find_child("a"));
  EXPECT_EQ(t.find_child(std::string("a\0b", 3)), nul);
  // Appending by hand makes a duplicate that lookups never see.
  ztag* dup = t.append_child(std::unique_ptr<ztag>(new ztag("Processors")));
  EXPECT_NE(dup, a);
  EXPECT_EQ(t.find_child("Processors"), a);
  // The root stays a root.
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
  EXPECT_EQ(t.next_index("vm:", false), 1);  // attributes are a separate space
  // Names that "%d" never prints do not count as used.
  ztag u("u");
  u.child("vm:01");
  u.child("vm:+1");
  u.child("vm:1x");
  u.child("vm:");
  u.child("vm:0");
  u.child("vm:-1");
  u.child("vm:99999999999999999999");
  EXPECT_EQ(u.next_index("vm:", true), 1);
  u.child("vm:1");
  EXPECT_EQ(u.next_index("vm:", true), 2);
  // Attributes, and a prefix that is a prefix of another.
  ztag w("w");
  w.set_attr("Warning:1", zvalue("a"));
  w.set_attr("Warning:10", zvalue("b"));
  w.set_attr("Warnings:2", zvalue("c"));
  EXPECT_EQ(w.next_index("Warning:", false), 2);
  // Many siblings: numbering stays dense.
  ztag many("m");
  for (int i = 0; i < 300; ++i)
    many.child(format_string("cache:%d", many.next_index("cache:", true)));
  EXPECT_EQ(many.child_at(299)->name(), "cache:300");
}

TEST(ZxmlTag, DeepCopy) {
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
  EXPECT_EQ(copy->child_at(0)->copied_attrs(), 1u);
  EXPECT_EQ(t.copied_attrs(), 0u);
  // Same text, and independent of the original.
  const size_t n = t.text_length(false);
  ASSERT_EQ(copy->text_length(false), n);
  std::string a(n, '\0'), b(n, '\0');
  t.write_text(&a[0], 0, false, false);
  copy->write_text(&b[0], 0, false, false);
  EXPECT_EQ(a, b);
  c->set_attr("d", zvalue(6));
  EXPECT_EQ(copy->find_child("c")->find_attr("d")->value.printed(), "-5");
  EXPECT_NE(copy->value(), t.value());
}

TEST(ZxmlHelpers, FormatAlloc) {
  std::unique_ptr<char[]> s(format_alloc("%s-%d-%.2f", "ab", 42, 1.5));
  EXPECT_STREQ(s.get(), "ab-42-1.50");
  std::unique_ptr<char[]> e(format_alloc("%s", ""));
  EXPECT_STREQ(e.get(), "");
  EXPECT_EQ(measure_format("%05d|%s", 7, "xyz"), 9);
  const std::string big(100000, 'q');
  EXPECT_EQ(format_string("<%s>", big.c_str()), "<" + big + ">");
  EXPECT_EQ(format_string("%c%c", 'a', '\0'), std::string("a\0", 2));
}

TEST(ZxmlHelpers, TextBetween) {
  const std::string text = "Vendor: Intel\nModel: X\nVendor: AMD\n";
  struct Case {
    std::string open, close;
    size_t from;
    std::string out;
  } cases[] = {
      {"Vendor: ", "\n", 0, "Intel"},
      {"Vendor: ", "\n", 1, "AMD"},
      {"Model: ", "\n", 0, "X"},
      {"Missing", "\n", 0, ""},
      {"Vendor: ", "@", 0, "Intel\nModel: X\nVendor: AMD\n"},  // no close: to the end
      {"AMD\n", "\n", 0, ""},                                  // open at the very end
      {"Vendor: ", "", 0, ""},
      {"Vendor: ", "\n", 1000, ""},  // start past the end
  };
  for (const Case& c : cases) {
    EXPECT_EQ(text_between(text, c.open, c.close, c.from), c.out) << c.open << " from " << c.from;
  }
}

}  // namespace

namespace {

// Numbers are printed without the C library where that is exact; the text
// must still be what printf gives, including its rounding of halves.
TEST(ZxmlValue, NumbersPrintLikePrintf) {
  std::vector<double> reals = {0.0,    -0.0,   0.005,      0.015, 0.125,  0.375,  2.675,
                               1.005,  -1.005, 1e15,       -1e15, 9.2e16, 9.3e16, 1.5e300,
                               5e-324, 99.995, 99.9949999, 0.5,   -0.125, 1e-3,   123456.785};
  std::mt19937_64 rng(99);
  for (int i = 0; i < 200000; ++i) {
    const uint64_t bits = rng();
    double d;
    switch (i % 4) {
      case 0:  // any bit pattern (NaN, infinities and subnormals included)
        std::memcpy(&d, &bits, sizeof d);
        break;
      case 1:  // ties and near-ties of hundredths
        d = static_cast<double>(static_cast<int64_t>(bits % 2000000) - 1000000) / 8.0;
        break;
      case 2:
        d = std::nextafter(static_cast<double>(bits % 100000) / 1000.0, (bits & 1) ? 1e9 : -1e9);
        break;
      default:
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
  }
  for (int i = 0; i < 100000; ++i) {
    const int64_t n = static_cast<int64_t>(rng()) >> (rng() % 64);
    std::snprintf(expected, sizeof expected, "%lld", static_cast<long long>(n));
    ASSERT_EQ(zvalue(n).printed(), expected);
  }
  EXPECT_EQ(zvalue(static_cast<int64_t>(INT64_MIN)).printed(), "-9223372036854775808");
}

}  // namespace
