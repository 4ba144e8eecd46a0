// Text from strangers, character by character.
#include "orn/support/utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace orn {
namespace {

constexpr std::size_t kEnough = 1000;

std::string escaped(std::string_view text) {
  return escaped_utf8(text, kEnough);
}

TEST(Utf8, OfEveryLengthStays) {
  for (const char *text :
       {"", "plain ~", "\u00a0\u00fc", "\u0800\u20ac\xed\x9f\xbf\xee\x80\x80\uffff", "\U00010000\U0010ffff"})
    EXPECT_EQ(escaped(text), text);
}

TEST(Utf8, ControlsAreShownAsBytes) {
  EXPECT_EQ(escaped(std::string_view("a\0b", 3)), "a\\00b");
  EXPECT_EQ(escaped("\x1f\x7f"), "\\1F\\7F");
  EXPECT_EQ(escaped("\u0080\u009f"), "\\C2\\80\\C2\\9F");
}

TEST(Utf8, WhatReordersOrBreaksLinesIsShownAsBytes) {
  EXPECT_EQ(escaped("\u061c"), "\\D8\\9C");
  EXPECT_EQ(escaped("\u200e\u200f"), "\\E2\\80\\8E\\E2\\80\\8F");
  EXPECT_EQ(escaped("\u202a\u202e"), "\\E2\\80\\AA\\E2\\80\\AE");
  EXPECT_EQ(escaped("\u2066\u2069"), "\\E2\\81\\A6\\E2\\81\\A9");
  EXPECT_EQ(escaped("\u2028\u2029"), "\\E2\\80\\A8\\E2\\80\\A9");
  // Their neighbours do neither.
  for (const char *text : {"\u061b\u061d", "\u200d\u2010", "\u2027", "\u202f", "\u2065", "\u206a"})
    EXPECT_EQ(escaped(text), text);
}

TEST(Utf8, WhatIsNoneIsShownAsBytes) {
  EXPECT_EQ(escaped("\x80"), "\\80");                          // begins nothing
  EXPECT_EQ(escaped("\xf8\xff"), "\\F8\\FF");                  // begin nothing either
  EXPECT_EQ(escaped("\xc3"), "\\C3");                          // broken off
  EXPECT_EQ(escaped("\xe2\x82"), "\\E2\\82");                  // likewise
  EXPECT_EQ(escaped("\xc3z"), "\\C3z");                        // goes on with what does not
  EXPECT_EQ(escaped("\xf0\x9f\xffz"), "\\F0\\9F\\FFz");        // likewise
  EXPECT_EQ(escaped("\xc0\xaf"), "\\C0\\AF");                  // overlong
  EXPECT_EQ(escaped("\xe0\x9f\xbf"), "\\E0\\9F\\BF");          // likewise
  EXPECT_EQ(escaped("\xf0\x8f\xbf\xbf"), "\\F0\\8F\\BF\\BF");  // likewise
  EXPECT_EQ(escaped("\xed\xa0\x80"), "\\ED\\A0\\80");          // a surrogate
  EXPECT_EQ(escaped("\xed\xbf\xbf"), "\\ED\\BF\\BF");          // the last of them
  EXPECT_EQ(escaped("\xf4\x90\x80\x80"), "\\F4\\90\\80\\80");  // above U+10FFFF
}

TEST(Utf8, IsCutBetweenCharacters) {
  EXPECT_EQ(escaped_utf8("a\u20acb", 3), "a");
  EXPECT_EQ(escaped_utf8("a\u20acb", 4), "a\u20ac");
  EXPECT_EQ(escaped_utf8("a\x01", 3), "a");
  EXPECT_EQ(escaped_utf8("a\x01", 4), "a\\01");
}

}  // namespace
}  // namespace orn
