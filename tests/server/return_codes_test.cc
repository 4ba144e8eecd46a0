#include "veskd/return_codes.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "orn/status.h"

namespace veskd::test {
namespace {

TEST(ReturnCodes, HaveFourDigitsAndNoTwoAreAlike) {
  std::set<int> values;
  for (const ReturnCodeText &code : kReturnCodes) {
    EXPECT_GE(code.value, 0) << code.name;
    EXPECT_LE(code.value, 9999) << code.name;
    EXPECT_TRUE(values.insert(code.value).second) << code.name;
  }
}

TEST(ReturnCodes, AreNoStatusesOfTheLibrary) {
#define EXPECT_NO_RETURN_CODE(name, value, sentence) EXPECT_EQ(find_return_code(value), nullptr) << #name;
  ORN_LIBRARY_STATUSES(EXPECT_NO_RETURN_CODE)
  ORN_CONNECTION_STATUSES(EXPECT_NO_RETURN_CODE)
#undef EXPECT_NO_RETURN_CODE
}

TEST(ReturnCodes, AreFoundByValue) {
  EXPECT_STREQ(find_return_code(204)->name, "RC_KEY_UNKNOWN");
  EXPECT_EQ(find_return_code(9998), nullptr);
}

// The document's rows that name return codes are the table, in its order.
TEST(ReturnCodes, StandInTheDocumentAsTheyAre) {
  std::ifstream document(VESKD_DOCUMENT);
  ASSERT_TRUE(document);
  std::vector<std::string> documented;
  for (std::string line; std::getline(document, line);) {
    if (line.find(" | `RC_") == std::string_view("| 0000").size()) documented.push_back(line);
  }
  std::vector<std::string> expected;
  for (const ReturnCodeText &code : kReturnCodes)
    expected.push_back(fmt::format("| {:04} | `{}` | {} |", code.value, code.name, code.sentence));
  EXPECT_EQ(documented, expected);
}

}  // namespace
}  // namespace veskd::test
