// The tree library: printed values, text normalisation, get-or-append,
// numbering and deep copy.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "inv_test_util.h"
#include "zxml/zXML.h"

namespace {

using invtest::text_of;

// Numbers are printed without the C library where that is exact; the text
// must still be what "%lld" / "%.2lf" give, rounding of halves included.
TEST(ZxmlValue, PrintedFormsMatchPrintf) {
  EXPECT_EQ(zvalue(false).printed() + zvalue(-1).printed() + zvalue(INT64_MIN).printed(),
            "false-1-9223372036854775808");  // INT64_MIN's magnitude does not fit int64_t
  EXPECT_EQ(zvalue(1.005).printed() + zvalue(-0.0).printed(),
            "1.00-0.00");  // 1.005 is stored as 1.00499...
  std::mt19937_64 rng(99);
  char expected[400], buf[400];
  for (int i = 0; i < 300000; ++i) {
    const uint64_t bits = rng();
    double d = std::ldexp(static_cast<double>(bits >> 11), static_cast<int>(bits % 120) - 100);
    if (i % 3 == 0) std::memcpy(&d, &bits, sizeof d);  // NaN, infinities, subnormals, huge
    if (i % 3 == 1) d = static_cast<double>(static_cast<int64_t>(bits % 2000000)) / 8 - 125000;
    std::snprintf(expected, sizeof expected, "%.2lf", d);
    ASSERT_EQ(std::string(buf, zvalue(d).print(buf)), expected) << std::hexfloat << d;
    ASSERT_EQ(zvalue(d).printed_length(), std::strlen(expected)) << std::hexfloat << d;
  }
}

TEST(ZxmlNormalise, LineEndsSpacesAndEncoding) {
  const std::pair<std::string, std::string> cases[] = {
      {"line1\nline2\n", "line1\rline2\r"},  // LF becomes CR
      {"a\rb", "a\r"},                       // the byte after a lone CR is dropped...
      {"a\r\rbc", "a\rbc"},                  // ... even another CR
      {"a\r\nb\r\n", "a\rb\r"},              // CR LF is one line end; the walk moves on
      {"  word  ", "word"},
      {"   ", ""},
      {" ", " "},                // one byte is never trimmed
      {"\tword\t", "\tword\t"},  // only spaces are trimmed
      {"  \n  ", "\r"},          // trimming sees the CR, not the LF
      {"\xE9", "\xC3\xA9"},      // Latin-1 repaired to UTF-8
      {"\xA0", "\xC2\xA0"},
      {" \xA0 ", "\xC2\xA0"},                                    // trimming comes before the repair
      {"\xC3\xA9\xF0\x9F\x98\x80", "\xC3\xA9\xF0\x9F\x98\x80"},  // valid UTF-8 kept
      {"\xE2\x82", "\xC3\xA2\xC2\x82"},                          // cut short: every byte repaired
      {"\xC0\x80", "\xC0\x80"},                                  // overlong forms pass
  };
  for (const auto& c : cases) EXPECT_EQ(normalise_text(c.first), c.second) << c.first;
  EXPECT_EQ(zvalue(std::string(" a\nb ")).as_text() + zvalue(" \xE9 ").as_text(), "a\rb\xC3\xA9");
}

TEST(ZxmlTag, SetAttrChildKindAndDeepCopy) {
  ztag t("x");
  t.set_attr("a", zvalue(1));
  t.set_attr("b", zvalue(2), "units", "MB");
  t.set_attr("a", zvalue(3), "ignored", "too");  // keeps its place; the annotation is not added
  t.set_attr("b", zvalue(true));                 // keeps its annotation
  EXPECT_EQ(text_of(t), "*x=\na=3\nb=true\n~units=MB\n");
  ztag* c = t.child("c", zvalue(5));  // the first child turns a leaf into a parent
  EXPECT_EQ(t.child("c", zvalue("v")), c);
  t.child("d")->set_attr("e", zvalue(), "field-source", nullptr);
  t.add_meta(" k\n", " v\xE9");  // names and annotations are stored as given
  const std::string all =
      "+x=\n~ k\n= v\xE9\na=3\nb=true\n~units=MB\n*c=v\n*d=\ne=\n~field-source=\n-\n";
  EXPECT_EQ(text_of(t), all);
  // A deep copy has everything and shares nothing.
  std::unique_ptr<ztag> copy = t.deep_copy();
  t.find_child("d")->set_attr("e", zvalue(1))->add_meta("units", "s");
  EXPECT_EQ(text_of(*copy), all);
  zXML doc(true, "Snapshot");
  doc.root()->child("/Memory");  // a root stays a root
  EXPECT_EQ(text_of(*doc.root()), invtest::kStart + "*Snapshot=\n*/Memory=\n");
}

TEST(ZxmlTag, NextIndexFillsFirstGap) {
  ztag t("vms");
  EXPECT_EQ(t.next_index("vm:", true), 1);
  t.child("vm:1");
  t.child("vm:3");
  EXPECT_EQ(t.next_index("vm:", true), 2);
  t.child("vm:2");
  EXPECT_EQ(t.next_index("vm:", true), 4);
  // Attributes are counted separately, and names "%d" never prints are unused.
  for (const char* n : {"vm:01", "vm:1x", "vm:", "vm:0", "vm:99999999999999999", "vms:1"}) {
    t.set_attr(n, zvalue());
  }
  EXPECT_EQ(t.next_index("vm:", false), 1);
}

}  // namespace
