// The shared text cuts, one table per function, each quirk a row.
#include "host/text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using text::LastLine;
using text::NoMarker;
using text::Overflow;
using Lines = std::vector<std::string>;

TEST(Text, ReadDecimalWrapsOrSaturates) {
  struct Row {
    const char* text;
    size_t pos;
    Overflow overflow;
    int64_t want;
  } rows[] = {
      {"", 0, Overflow::kWrap32, 0},
      {" \t\n-42x", 0, Overflow::kWrap32, -42},
      {"+7", 0, Overflow::kWrap32, 7},
      {"x12", 1, Overflow::kWrap32, 12},
      {"12", 5, Overflow::kWrap32, 0},                  // past the end
      {"4294967297", 0, Overflow::kWrap32, 1},          // 2^32 + 1 keeps the low bits
      {"2147483648", 0, Overflow::kWrap32, INT32_MIN},  // read as signed
      {"99999999999999999999", 0, Overflow::kSaturate64, INT64_MAX},
      {"-99999999999999999999", 0, Overflow::kSaturate64, INT64_MIN},
      {"  1200", 0, Overflow::kSaturate64, 1200},
      {"abc", 0, Overflow::kSaturate64, 0},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(text::read_decimal(r.text, r.pos, r.overflow), r.want) << r.text;
  }
}

TEST(Text, LinesAfterTheHeader) {
  struct Row {
    const char* text;
    const char* marker;
    NoMarker no_marker;
    LastLine last;
    Lines want;
  } rows[] = {
      {"", text::kTwoDashes, NoMarker::kNoLines, LastLine::kIgnored, {}},
      {"H\n--\na\nb\nc", text::kTwoDashes, NoMarker::kNoLines, LastLine::kIgnored, {"a", "b"}},
      {"H\n--\na\nb\nc", text::kTwoDashes, NoMarker::kNoLines, LastLine::kCounted, {"a", "b", "c"}},
      {"H\n-- --\n\na\n", text::kTwoDashes, NoMarker::kNoLines, LastLine::kIgnored, {"", "a"}},
      // "--" is not "---": the three-dash reader finds no header.
      {"H\n-- --\na\n", text::kThreeDashes, NoMarker::kNoLines, LastLine::kIgnored, {}},
      {"H\na\n", text::kTwoDashes, NoMarker::kFromTop, LastLine::kIgnored, {"H", "a"}},
      {"H --", text::kTwoDashes, NoMarker::kFromTop, LastLine::kIgnored, {}},
      {"H\na\nb\n", "", NoMarker::kNoLines, LastLine::kIgnored, {"a", "b"}},  // header skipped
  };
  for (const Row& r : rows) {
    EXPECT_EQ(text::lines_after(r.text, r.marker, r.no_marker, r.last), r.want) << r.text;
  }
}

TEST(Text, CompleteLinesFieldsAndCase) {
  Lines lines;
  text::for_each_complete_line("a\n\nb\nhalf", [&](const std::string& l) { lines.push_back(l); });
  EXPECT_EQ(lines, (Lines{"a", "", "b"}));
  EXPECT_EQ(text::split_fields("  a  b c ", ' '), (Lines{"a", "b", "c"}));
  EXPECT_EQ(text::split_fields("", ' '), Lines{});
  EXPECT_EQ(text::upper_ascii("ab-z\xe9\xff"), "AB-Z\xe9\xff");
  EXPECT_EQ(text::lower_ascii("AZ\xc9"), "az\xc9");
  EXPECT_TRUE(text::contains("VMware, Inc.", "ware"));
  EXPECT_FALSE(text::contains("VMware", "vmware"));
}

}  // namespace
