// Retrieving a key, drawing the next key of a template, reading a key's policy.
#include <numeric>

#include "tests/library/library_test.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// Binary, with a NUL in front and every byte there is.
std::string binary(std::size_t length) {
  std::string value(length, '\0');
  std::iota(value.begin(), value.end(), '\0');
  return value;
}

class RetrieveKeyTest : public LibraryTest {
 protected:
  RetrieveKeyTest() { std::memset(&record_, 'x', sizeof record_); }
  int retrieve(const char *name, const char *instance = "I1") {
    return qRetrieveKey(&paths_, host_, port_, name, instance, &record_);
  }
  static std::string reply(const std::string &name, const char *return_code = "0000") {
    return framed("2001" + std::string(return_code) + padded(name, 40) + padded("I1", 24) + "20260102" + "20300405" +
                  "0256" + "BIN" + binary(256));
  }
  bool record_is_zero() const {
    return std::string_view(reinterpret_cast<const char *>(&record_), sizeof record_) == zeros(sizeof record_);
  }
  KeyRecord record_;
};

TEST_F(RetrieveKeyTest, FillsTheRecord) {
  connection().replies = reply("K1");
  ASSERT_EQ(retrieve("K1"), 0);
  EXPECT_STREQ(record_.caTranLen, "00351");
  EXPECT_STREQ(record_.caTranId, "2001");
  EXPECT_STREQ(record_.caReturnCode, "0000");
  EXPECT_STREQ(record_.caKeyName, "K1");
  EXPECT_STREQ(record_.caInstance, padded("I1", 24).c_str());
  EXPECT_STREQ(record_.caLastRolledDate, "20260102");
  EXPECT_STREQ(record_.caExpirationDate, "20300405");
  EXPECT_STREQ(record_.caKeySizeBits, "0256");
  EXPECT_STREQ(record_.caKeyFormat, "BIN");
  EXPECT_EQ(std::string_view(record_.caKeyValue, sizeof record_.caKeyValue), binary(256) + zeros(140));
  EXPECT_STREQ(record_.caKeyCreationDate, "");
  EXPECT_STREQ(record_.md[15], "");
}

TEST_F(RetrieveKeyTest, TracesTheReplyInOrder) {
  connection().replies = reply("K1");
  ASSERT_EQ(retrieve("K1"), 0);
  EXPECT_THAT(connection().events,
              ElementsAre("setup", "trace F: RetrieveKey", "dump caReqBuf", "write", "read", "trace iBytesRead <351>",
                          "read", "trace iBytesRead <0>", "dump Response buffer", "trace Tran Len <00351>",
                          "trace Tran Id <2001>", "trace Return Code <0000>",
                          "trace Key Name <" + padded("K1", 40) + ">", "trace Instance <" + padded("I1", 24) + ">",
                          "trace Last Rolled Date <20260102>", "trace Expiration Date <20300405>",
                          "trace Key size bits <0256>", "trace Key format <BIN>", "dump Key Value",
                          "trace Return from RetrieveKey <0>", "trace Return from RetrieveKey <0000>", "teardown"));
  EXPECT_EQ(connection().dumps.back().bytes, binary(256));
}

TEST_F(RetrieveKeyTest, RefusesANullRecordBeforeAnythingElse) {
  EXPECT_EQ(qRetrieveKey(&paths_, host_, port_, "K1", "", nullptr), ERR_NULL_ARGUMENT);
  EXPECT_THAT(connection().events, IsEmpty());
}

TEST_F(RetrieveKeyTest, TransactionFunctionRefusesANullRecord) {
  Session session{};
  RetrieveKey(&session, nullptr);
  EXPECT_EQ(session.iStatus, ERR_NULL_RESULT);
  EXPECT_THAT(connection().events, IsEmpty());
}

TEST_F(RetrieveKeyTest, TransactionFunctionLeavesTheRecordZeroWhenNoReplyArrives) {
  const auto session = open_session();
  session->iStatus = 77;
  RetrieveKey(session.get(), &record_);
  EXPECT_EQ(session->iStatus, script::kClosed);
  EXPECT_TRUE(record_is_zero());
}

TEST_F(RetrieveKeyTest, CutsNameAndInstanceToTheirWidths) {
  const std::string name(41, 'n'), instance(25, 'i');
  connection().replies = reply(name);
  EXPECT_EQ(retrieve(name.c_str(), instance.c_str()), ERR_KEY_NAME_MISMATCH);
  EXPECT_EQ(connection().writes[0],
            "00071"
            "2001" +
                std::string(40, 'n') + std::string(24, 'i') + "BIN");
}

TEST_F(RetrieveKeyTest, TakesNullTextsForEmptyOnes) {
  connection().replies = reply("");
  EXPECT_EQ(retrieve(nullptr, nullptr), 0);
  EXPECT_EQ(connection().writes[0],
            "00071"
            "2001" +
                blanks(64) + "BIN");
}

TEST_F(RetrieveKeyTest, ComparesANameOf40CharactersWhole) {
  const std::string name(40, 'n');
  connection().replies = reply(name);
  EXPECT_EQ(retrieve(name.c_str()), 0);
  EXPECT_EQ(record_.caKeyName, name);
  connection().replies = reply(name.substr(1) + "m");
  EXPECT_EQ(retrieve(name.c_str()), ERR_KEY_NAME_MISMATCH);
}

TEST_F(RetrieveKeyTest, NeverMatchesANameWithTrailingBlanks) {
  connection().replies = reply("K1 ");
  EXPECT_EQ(retrieve("K1 "), ERR_KEY_NAME_MISMATCH);
  EXPECT_STREQ(record_.caKeyName, "K1");
}

TEST_F(RetrieveKeyTest, ComparesNamesByCaseAndKeepsTheRecord) {
  connection().replies = reply("k1");
  EXPECT_EQ(retrieve("K1"), ERR_KEY_NAME_MISMATCH);
  EXPECT_STREQ(record_.caKeyName, "k1");
  EXPECT_EQ(std::string_view(record_.caKeyValue, 256), binary(256));
}

TEST_F(RetrieveKeyTest, KeepsLeadingBlanksAndTabsOfAName) {
  connection().replies = reply(" K1\t");
  EXPECT_EQ(retrieve(" K1\t"), 0);
}

TEST_F(RetrieveKeyTest, LeavesTheParsedReplyUntrimmedOnAReturnCode) {
  connection().replies = reply("K1", "0102");
  EXPECT_EQ(retrieve("K1"), 102);
  EXPECT_STREQ(record_.caReturnCode, "0102");
  EXPECT_EQ(record_.caKeyName, padded("K1", 40));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("Return from RetrieveKey <0102>"));
}

TEST_F(RetrieveKeyTest, LeavesZerosOnEveryOtherFailure) {
  connection().setup_status = 30006;
  EXPECT_EQ(retrieve("K1"), 30006);
  EXPECT_TRUE(record_is_zero());

  script::reset();
  std::memset(&record_, 'x', sizeof record_);
  connection().failing_writes = {{0, 30061}};
  EXPECT_EQ(retrieve("K1"), 30061);
  EXPECT_TRUE(record_is_zero());

  script::reset();
  std::memset(&record_, 'x', sizeof record_);
  connection().replies = reply("K1").substr(0, 200);
  EXPECT_EQ(retrieve("K1"), script::kClosed);
  EXPECT_TRUE(record_is_zero());

  script::reset();
  std::memset(&record_, 'x', sizeof record_);
  connection().replies = "16385";
  EXPECT_EQ(retrieve("K1"), ERR_TRANSACTION_SIZE);
  EXPECT_TRUE(record_is_zero());
}

TEST_F(RetrieveKeyTest, LeavesTheFieldsThatAShortReplyLacksEmpty) {
  const std::string body = reply("K1").substr(5);
  for (std::size_t length = 8; length <= body.size(); ++length) {
    script::reset();
    std::memset(&record_, 'x', sizeof record_);
    connection().replies = framed(body.substr(0, length));
    const int status = retrieve("K1");
    EXPECT_EQ(status, length >= 10 ? 0 : ERR_KEY_NAME_MISMATCH) << length;
    const std::size_t value_length = length > 95 ? length - 95 : 0;
    EXPECT_EQ(std::string_view(record_.caKeyValue, sizeof record_.caKeyValue),
              binary(value_length) + zeros(sizeof record_.caKeyValue - value_length))
        << length;
  }
}

class NextKeyTest : public LibraryTest {
 protected:
  int draw(const char *constant = "TEMPLATE0000001") {
    return qGetNextKey(&paths_, host_, port_, constant, key_name_, key_value_, &last_increment_);
  }
  static std::string reply(const std::string &last_increment, const char *return_code = "0000",
                           const std::string &name = "TEMPLATE000000100002A") {
    return framed("2003" + std::string(return_code) + padded(name, 40) + padded("I1", 24) + "20260102" + "20300405" +
                  "0256" + "BIN" + binary(128) + padded(last_increment, 40));
  }
  bool outputs_are_untouched() const {
    return std::string_view(key_name_, sizeof key_name_) == std::string(sizeof key_name_, 'x') &&
           std::string_view(reinterpret_cast<const char *>(key_value_), sizeof key_value_) == std::string(32, 'x') &&
           last_increment_ == 4711;
  }
  NextKeyTest() {
    std::memset(key_name_, 'x', sizeof key_name_);
    std::memset(key_value_, 'x', sizeof key_value_);
  }
  char key_name_[41];
  unsigned char key_value_[32];
  uint32_t last_increment_ = 4711;
};

TEST_F(NextKeyTest, DeliversNameValueAndIncrement) {
  connection().replies = reply("00002A");
  ASSERT_EQ(draw(), 0);
  EXPECT_STREQ(key_name_, "TEMPLATE000000100002A");
  EXPECT_EQ(std::string_view(reinterpret_cast<const char *>(key_value_), 32), binary(32));
  EXPECT_EQ(last_increment_, 42u);
}

TEST_F(NextKeyTest, TracesRequestAndReplyInOrder) {
  connection().replies = reply("00002A");
  ASSERT_EQ(draw(), 0);
  EXPECT_THAT(
      connection().events,
      ElementsAre("setup", "trace F: GetNextKey", "trace GetNextKey request",
                  "trace caConstant <" + padded("TEMPLATE0000001", 39) + ">", "trace caIncrementLen <06>",
                  "trace caIncrementCode <H>", "trace caConstantLen <15>", "trace caKeyFormat <BIN>", "dump caReqBuf",
                  "write", "trace F: GetNextKeyRsp", "read", "trace iBytesRead <263>", "read", "trace iBytesRead <0>",
                  "dump Response buffer", "trace Tran Len <00263>", "trace Tran Id <2003>", "trace Return Code <0000>",
                  "trace Key Name <" + padded("TEMPLATE000000100002A", 40) + ">",
                  "trace Instance <" + padded("I1", 24) + ">", "trace Last rollover date <20260102>",
                  "trace Expiration date <20300405>", "trace Key size bits <0256>", "trace Key format <BIN>",
                  "dump KeyValue", "trace Last increment <" + padded("00002A", 40) + ">", "teardown"));
  EXPECT_EQ(connection().dumps.back().bytes, binary(128) + zeros(128));
}

TEST_F(NextKeyTest, CutsAConstantAt39Characters) {
  connection().replies = reply("000001");
  EXPECT_EQ(draw(std::string(40, 'c').c_str()), 0);
  EXPECT_EQ(connection().writes[0],
            "00051"
            "2003" +
                std::string(39, 'c') + "06H15BIN");
}

TEST_F(NextKeyTest, SendsAsManyBytesAsTheRequestsTextHas) {
  const auto session = open_session();
  std::strcpy(session->request.caConstant, "SHORT");
  std::strcpy(session->request.caKeyFormat, "BIN");
  connection().replies = reply("000001");
  NextKeyBlock block;
  GetNextKey(session.get(), &block);
  EXPECT_EQ(session->iStatus, 0);
  EXPECT_EQ(connection().writes[0],
            "00051"
            "2003"
            "SHORT"
            "BIN");
}

TEST_F(NextKeyTest, TransactionFunctionRepeatsTheRequestInTheBlock) {
  const auto session = open_session();
  std::strcpy(session->request.caConstant, "C");
  std::strcpy(session->request.caIncrementLen, "06");
  std::strcpy(session->request.caIncrementCode, "H");
  std::strcpy(session->request.caConstantLen, "15");
  std::strcpy(session->request.caKeyFormat, "XXX");
  connection().replies = reply("00002A", "0009");
  NextKeyBlock block;
  std::memset(&block, 'x', sizeof block);
  GetNextKey(session.get(), &block);
  EXPECT_EQ(session->iStatus, 9);
  EXPECT_STREQ(block.caTranId, "2003");
  EXPECT_STREQ(block.caConstant, "C");
  EXPECT_STREQ(block.caIncrementLen, "06");
  EXPECT_STREQ(block.caIncrementCode, "H");
  EXPECT_STREQ(block.caConstantLen, "15");
  EXPECT_STREQ(block.caKeyFormat, "BIN");
  EXPECT_STREQ(block.caLastIncrement, padded("00002A", 40).c_str());
  EXPECT_STREQ(block.caReturnCode, "0009");
  EXPECT_STREQ(block.caKeyName, padded("TEMPLATE000000100002A", 40).c_str());
  EXPECT_STREQ(block.caInstance, padded("I1", 24).c_str());
  EXPECT_STREQ(block.caLastRolloverDate, "20260102");
  EXPECT_STREQ(block.caExpirationDate, "20300405");
  EXPECT_STREQ(block.caKeySizeBits, "0256");
  EXPECT_EQ(std::string_view(block.caKeyValue, sizeof block.caKeyValue), binary(128) + zeros(129));
}

struct NameCase {
  std::string received, delivered;
};

TEST_F(NextKeyTest, TrimsTheBlanksBehindTheName) {
  const std::string forty(40, 'n');
  for (const NameCase &c : {NameCase{forty, forty}, NameCase{" A B", " A B"}, NameCase{"A\t", "A\t"}, NameCase{"", ""},
                            NameCase{"A  " + std::string(3, '\0'), "A"}}) {
    script::reset();
    connection().replies = reply("000001", "0000", c.received);
    EXPECT_EQ(draw(), 0) << c.delivered;
    EXPECT_EQ(key_name_, c.delivered);
  }
}

struct IncrementCase {
  const char *text;
  uint32_t value;
};

TEST_F(NextKeyTest, ReadsTheIncrementAsHexadecimalDigits) {
  for (const IncrementCase &c : {IncrementCase{"00002A", 42}, IncrementCase{"  2a", 42}, IncrementCase{"", 0},
                                 IncrementCase{"G1", 0}, IncrementCase{"1G", 1}, IncrementCase{"FFFFFF", 16777215}}) {
    script::reset();
    connection().replies = reply(c.text);
    EXPECT_EQ(draw(), 0) << c.text;
    EXPECT_EQ(last_increment_, c.value) << c.text;
  }
}

TEST_F(NextKeyTest, RefusesANullNameBeforeAnythingElse) {
  EXPECT_EQ(qGetNextKey(&paths_, host_, port_, "T", nullptr, key_value_, &last_increment_), ERR_NULL_ARGUMENT);
  EXPECT_THAT(connection().events, IsEmpty());
}

TEST_F(NextKeyTest, LeavesItsOutputsUntouchedOnEveryFailure) {
  connection().replies = reply("00002A", "0201");
  EXPECT_EQ(draw(), 201);
  EXPECT_TRUE(outputs_are_untouched());
  script::reset();
  connection().setup_status = 30006;
  EXPECT_EQ(draw(), 30006);
  EXPECT_TRUE(outputs_are_untouched());
  script::reset();
  connection().failing_writes = {{0, 30061}};
  EXPECT_EQ(draw(), 30061);
  EXPECT_TRUE(outputs_are_untouched());
  script::reset();
  connection().replies = reply("00002A").substr(0, 180);
  EXPECT_EQ(draw(), script::kClosed);
  EXPECT_TRUE(outputs_are_untouched());
  script::reset();
  connection().replies = "16385";
  EXPECT_EQ(draw(), ERR_NEXT_KEY_SIZE);
  EXPECT_TRUE(outputs_are_untouched());
}

class KeyPolicyTest : public LibraryTest {
 protected:
  KeyPolicyTest() { std::memset(&values_, 'x', sizeof values_); }
  int read() { return qRetrieveKeyMetadata(&paths_, host_, port_, "K1", &values_); }
  // Field k holds its number and, in the odd fields, all 64 characters.
  static std::string value(int k) {
    return k % 2 == 1 ? std::string(64, static_cast<char>('a' + k)) : padded("value " + std::to_string(k), 64);
  }
  static std::string reply(const char *return_code = "0000") {
    std::string body = "1003" + std::string(return_code) + padded("K1", 40) + padded("I1", 24) + "Y" + "0256" +
                       "20260101" + "20260202" + "20300303" + "N" + "0042" + "20260404" + "Y" + "20270505" + "N" +
                       padded("EXTRA", 14);
    for (int k = 1; k <= 16; ++k) body += "?????" + value(k) + "!";
    return framed(body);
  }
  bool values_are_zero() const {
    return std::string_view(reinterpret_cast<const char *>(&values_), sizeof values_) == zeros(sizeof values_);
  }
  KeyMetadataValues values_;
};

TEST_F(KeyPolicyTest, DeliversTheSixteenFieldsUntrimmed) {
  connection().replies = reply();
  ASSERT_EQ(read(), 0);
  for (int k = 1; k <= 16; ++k) EXPECT_EQ(values_.md[k - 1], value(k)) << k;
}

TEST_F(KeyPolicyTest, TracesEveryLabelledFieldInOrder) {
  connection().replies = reply();
  ASSERT_EQ(read(), 0);
  std::vector<std::string> expected = {"F: DisplaySymKeyPolicy",
                                       "iBytesRead <1258>",
                                       "iBytesRead <0>",
                                       "Tran Len <01258>",
                                       "Tran Id <1003>",
                                       "Return Code <0000>",
                                       "Key Name <" + padded("K1", 40) + ">",
                                       "Instance <" + padded("I1", 24) + ">",
                                       "Current <Y>",
                                       "Key size in bits <0256>",
                                       "Key creation date <20260101>",
                                       "Activation date <20260202>",
                                       "Expiration date <20300303>",
                                       "Rollover code <N>",
                                       "Rollover days <0042>",
                                       "Last rollover date <20260404>",
                                       "Deletable <Y>",
                                       "Revoked date <20270505>",
                                       "Mirror key <N>"};
  for (int k = 1; k <= 16; ++k) {
    char label[16];
    std::snprintf(label, sizeof label, "MD%02d", k);
    expected.push_back(std::string(label) + " <" + value(k) + ">");
  }
  EXPECT_EQ(connection().traces_of("orn/vesk/skeys"), expected);
}

TEST_F(KeyPolicyTest, TransactionFunctionLeavesTheRecordInTheSession) {
  const auto session = open_session();
  connection().replies = reply("0006");
  DisplaySymKeyPolicy(session.get());
  EXPECT_EQ(session->iStatus, 6);
  EXPECT_STREQ(session->policy.caTranLen, "01258");
  EXPECT_STREQ(session->policy.caTranId, "1003");
  EXPECT_STREQ(session->policy.caReturnCode, "0006");
  EXPECT_STREQ(session->policy.caKeyName, padded("K1", 40).c_str());
  EXPECT_STREQ(session->policy.caInstance, padded("I1", 24).c_str());
  EXPECT_STREQ(session->policy.caCurrent, "Y");
  EXPECT_STREQ(session->policy.caKeySizeBits, "0256");
  EXPECT_STREQ(session->policy.caKeyCreationDate, "20260101");
  EXPECT_STREQ(session->policy.caActivationDate, "20260202");
  EXPECT_STREQ(session->policy.caExpirationDate, "20300303");
  EXPECT_STREQ(session->policy.caRolloverCode, "N");
  EXPECT_STREQ(session->policy.caRolloverDays, "0042");
  EXPECT_STREQ(session->policy.caLastRolledDate, "20260404");
  EXPECT_STREQ(session->policy.caDeletable, "Y");
  EXPECT_STREQ(session->policy.caMirrorKey, "N");
  EXPECT_STREQ(session->policy.caPolicyExtra, padded("EXTRA", 14).c_str());
  EXPECT_STREQ(session->policy.caRevokedDate, "20270505");
  EXPECT_EQ(session->policy.md[15], value(16));
  EXPECT_EQ(session->hTls, script::kTls);
}

TEST_F(KeyPolicyTest, CutsTheNameAt40CharactersAndAlwaysSendsABlankInstance) {
  connection().replies = reply();
  ASSERT_EQ(qRetrieveKeyMetadata(&paths_, host_, port_, std::string(41, 'n').c_str(), &values_), 0);
  EXPECT_EQ(connection().writes[0].substr(9), std::string(40, 'n') + blanks(24));
}

TEST_F(KeyPolicyTest, RefusesNullValuesBeforeAnythingElse) {
  EXPECT_EQ(qRetrieveKeyMetadata(&paths_, host_, port_, "K1", nullptr), ERR_NULL_ARGUMENT);
  EXPECT_THAT(connection().events, IsEmpty());
}

TEST_F(KeyPolicyTest, LeavesZerosOnEveryFailure) {
  connection().replies = reply("0102");
  EXPECT_EQ(read(), 102);
  EXPECT_TRUE(values_are_zero());
  script::reset();
  std::memset(&values_, 'x', sizeof values_);
  connection().setup_status = 30006;
  EXPECT_EQ(read(), 30006);
  EXPECT_TRUE(values_are_zero());
  script::reset();
  std::memset(&values_, 'x', sizeof values_);
  connection().failing_writes = {{0, 30061}};
  EXPECT_EQ(read(), 30061);
  EXPECT_TRUE(values_are_zero());
  script::reset();
  std::memset(&values_, 'x', sizeof values_);
  connection().replies = reply().substr(0, 1000);
  EXPECT_EQ(read(), script::kClosed);
  EXPECT_TRUE(values_are_zero());
  script::reset();
  std::memset(&values_, 'x', sizeof values_);
  connection().replies = "16385";
  EXPECT_EQ(read(), ERR_TRANSACTION_SIZE);
  EXPECT_TRUE(values_are_zero());
}

}  // namespace
