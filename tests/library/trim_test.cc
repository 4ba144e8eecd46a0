// Trimming of blank-padded fields.
#include "tests/library/library_test.h"

namespace {

struct TrimCase {
  const char *rule, *source, *expected;
};

void PrintTo(const TrimCase &trim, std::ostream *out) {
  *out << trim.rule;
}

class TrimTest : public testing::TestWithParam<TrimCase> {};

TEST_P(TrimTest, Rule) {
  char destination[64];
  std::memset(destination, 'x', sizeof destination);
  EXPECT_EQ(strip(GetParam().source, destination), destination);
  EXPECT_STREQ(destination, GetParam().expected) << GetParam().rule;
  // The source may be the destination.
  char both[64] = {};
  std::strcpy(both, GetParam().source);
  EXPECT_STREQ(strip(both, both), GetParam().expected) << GetParam().rule;
}

INSTANTIATE_TEST_SUITE_P(Texts, TrimTest,
                         testing::Values(TrimCase{"trailing blanks, tab and newline go", "ab  \t\n", "ab"},
                                         TrimCase{"leading blanks stay", "  ab", "  ab"},
                                         TrimCase{"inner blanks stay", "a b ", "a b"},
                                         TrimCase{"a field of blanks is left as it is", "   ", "   "},
                                         TrimCase{"an empty text stays empty", "", ""},
                                         TrimCase{"a carriage return is not trimmed", "ab\r ", "ab\r"}));

TEST(TrimTest, ReadsAndWritesOneByteMoreThanItsLength) {
  char source[] = {'a', ' ', ' ', 'b', 'c'};
  char destination[6];
  std::memset(destination, 'x', sizeof destination);
  strip_with_length(source, destination, 3);
  EXPECT_EQ(std::string_view(destination, 6), std::string_view("a\0 bxx", 6));
}

TEST(TrimTest, LeavesABlankFieldUnterminatedWhenTheByteBehindItIsNone) {
  char destination[5] = {'x', 'x', 'x', 'x', 'x'};
  strip_with_length("  cd", destination, 2);
  EXPECT_EQ(std::string_view(destination, 5), "  cxx");
}

TEST(TrimTest, OfLengthZeroCopiesOneByte) {
  char destination[2] = {'x', 'x'};
  strip_with_length("a", destination, 0);
  EXPECT_EQ(std::string_view(destination, 2), "ax");
}

}  // namespace
