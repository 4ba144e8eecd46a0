// The tables and the codec that both ends share.
#include "orn/vesk/wire/codec.h"

#include <climits>
#include <fstream>
#include <iterator>
#include <set>

#include "orn/vesk/wire/connectivity.h"
#include "orn/vesk/wire/key_lifecycle.h"
#include "orn/vesk/wire/key_serving.h"
#include "orn/vesk/wire/key_templates.h"
#include "tests/library/library_test.h"

namespace {

using namespace vesk;

TEST(TransactionsTest, HaveIdentifiersOfTheirOwn) {
  std::set<std::string> identifiers, functions;
  for (const wire::Transaction &row : wire::kTransactions) {
    EXPECT_TRUE(identifiers.insert(row.tran_id).second) << row.tran_id;
    EXPECT_TRUE(functions.insert(row.function).second) << row.function;
    EXPECT_EQ(std::string_view(row.tran_id).size(), 4u);
    EXPECT_TRUE(row.length.empty() || row.length.size() == 5u);
  }
  EXPECT_EQ(identifiers.size(), 35u);
}

// Who fills a session has the identifier from there.
TEST(TransactionsTest, StandInTheHeaderWithTheirIdentifiers) {
  std::ifstream file(SKEYS_HEADER);
  const std::string header{std::istreambuf_iterator<char>(file), {}};
  for (const wire::Transaction &row : wire::kTransactions) {
    const std::size_t declaration = header.find(std::string("void ") + row.function + "(");
    ASSERT_NE(declaration, std::string::npos) << row.function;
    const std::size_t comment = header.rfind("/* ", declaration);
    EXPECT_EQ(header.substr(comment, 9), std::string("/* ") + row.tran_id + ": ") << row.function;
  }
}

TEST(RowsTest, BearTheNamesOfTheirFields) {
  EXPECT_EQ(wire::kRetrieveKeyReply.front().name, "caTranLen");
  EXPECT_EQ(wire::kRetrieveKeyReply.back().name, "caKeyValue");
  EXPECT_EQ(wire::kDeleteKeyReply.back().name, "caDeletedDate");
  EXPECT_EQ(wire::kDisplaySymKeyPolicyReply.at(19).name, "MD01");
  EXPECT_EQ(wire::kCreateDBRequest.back().name, "");
}

TEST(DigitsTest, ConvertAsAtoiDoesAndSaturate) {
  struct {
    const char *text;
    int value;
  } const cases[] = {{"00351", 351},
                     {"  12", 12},
                     {"\t\n7", 7},
                     {"-5", -5},
                     {"+5", 5},
                     {"", 0},
                     {"   ", 0},
                     {"abc", 0},
                     {"12abc", 12},
                     {"--5", 0},
                     {"+-5", 0},
                     {"- 5", 0},
                     {"0x10", 0},
                     {"2147483647", INT_MAX},
                     {"2147483648", INT_MAX},
                     {"-2147483648", INT_MIN},
                     {"-99999999999999999999", INT_MIN},
                     {"99999999999999999999999999", INT_MAX}};
  for (const auto &c : cases) EXPECT_EQ(wire::to_int(c.text), c.value) << c.text;
  static_assert(wire::to_int("00042") == 42);
}

TEST(PaddingTest, FillsCutsAndTerminates) {
  char field[6];
  wire::put_padded(field, "ab");
  EXPECT_STREQ(field, "ab   ");
  wire::put_padded(field, "abcdefgh");
  EXPECT_STREQ(field, "abcde");
  wire::put_padded(field, static_cast<const char *>(nullptr));
  EXPECT_STREQ(field, "     ");
}

TEST(AppenderTest, StopsAtANulAndAtItsRoom) {
  char room[5] = {};
  wire::Appender out(room);
  out.append(std::string_view("ab\0cd", 5));
  EXPECT_EQ(out.length(), 2u);
  out.append("cdefgh");
  EXPECT_EQ(out.length(), 5u);
  EXPECT_EQ(std::string_view(room, 5), "abcde");
  out.append("x");
  EXPECT_EQ(out.length(), 5u);
}

class StrictRequestTest : public testing::Test {
 protected:
  const std::string request_ =
      "00048"
      "1125"
      "Y" +
      padded("TEMPLATE0000001", 39) + "15" + "06";
};

TEST_F(StrictRequestTest, TakesWhatTheTableDescribes) {
  ASSERT_TRUE(wire::is_well_formed(wire::kRemoveTemplateRequest, request_));
  RequestFields fields{};
  wire::read_fields(wire::kRemoveTemplateRequest, request_, fields);
  EXPECT_STREQ(fields.caTranId, "1125");
  EXPECT_STREQ(fields.caConstant, padded("TEMPLATE0000001", 39).c_str());
  EXPECT_STREQ(fields.caConstantLen, "15");
  EXPECT_STREQ(fields.caIncrementLen, "06");
}

TEST_F(StrictRequestTest, RefusesEveryOtherLength) {
  EXPECT_FALSE(wire::is_well_formed(wire::kRemoveTemplateRequest, request_ + " "));
  for (std::size_t length = 0; length < request_.size(); ++length)
    EXPECT_FALSE(wire::is_well_formed(wire::kRemoveTemplateRequest, request_.substr(0, length))) << length;
}

TEST_F(StrictRequestTest, RefusesAChangedLiteralAndControlCharacters) {
  for (const std::size_t at : {0u, 4u, 9u}) {
    std::string changed = request_;
    changed[at] = 'X';
    EXPECT_FALSE(wire::is_well_formed(wire::kRemoveTemplateRequest, changed)) << at;
  }
  for (const char c : {'\0', '\n', '\x1f', '\x7f'}) {
    for (const std::size_t at : {5u, 10u, 48u, 52u}) {
      std::string changed = request_;
      changed[at] = c;
      EXPECT_FALSE(wire::is_well_formed(wire::kRemoveTemplateRequest, changed)) << at;
    }
  }
}

TEST(ReplyTest, IsWrittenInPlaceAndReadBack) {
  KeyRecord record{};
  std::strcpy(record.caTranId, "2001");
  std::strcpy(record.caReturnCode, "0000");
  std::strcpy(record.caKeyName, "K1");
  std::strcpy(record.caKeySizeBits, "0256");
  std::strcpy(record.caKeyFormat, "BIN");
  record.caKeyValue[0] = '\0';
  record.caKeyValue[255] = 'z';
  const std::string reply = wire::write_reply(wire::kRetrieveKeyReply, record);
  EXPECT_EQ(reply,
            "00351"
            "2001"
            "0000" +
                padded("K1", 40) + blanks(24) + blanks(16) +
                "0256"
                "BIN" +
                zeros(255) + "z");
  KeyRecord back{};
  wire::read_fields(wire::kRetrieveKeyReply, reply, back);
  EXPECT_STREQ(back.caKeyName, padded("K1", 40).c_str());
  EXPECT_EQ(back.caKeyValue[255], 'z');
}

TEST(ReplyTest, OfAPolicyCarriesTheLabelsOfItsSlots) {
  KeyRecord record{};
  std::strcpy(record.md[0], "one");
  std::strcpy(record.md[15], "sixteen");
  const std::string reply = wire::write_reply(wire::kDisplaySymKeyPolicyReply, record);
  ASSERT_EQ(reply.size(), 1263u);
  EXPECT_EQ(reply.substr(143, 70), "MD01'" + padded("one", 64) + "'");
  EXPECT_EQ(reply.substr(143 + 15 * 70), "MD16'" + padded("sixteen", 64) + "'");
}

}  // namespace
