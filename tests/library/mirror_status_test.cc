// Mirrors: health, replication queue, synchronisation.
#include "tests/library/library_test.h"

namespace {

using script::Read;
using testing::ElementsAre;

class MirrorStatusTest : public LibraryTest {
 protected:
  // The character behind the status is nobody's; the detail begins with the data hash status.
  static std::string reply(const std::string &faults, char status, const std::string &detail,
                           const char *return_code = "0000") {
    return framed("1135" + std::string(return_code) + padded("M1", 40) + faults + status + '?' + padded(detail, 44));
  }
  int get(int flag = 1) { return qGetMirrorStatus(&paths_, host_, port_, "M1", flag, &faults_, &status_, &data_hash_); }
  void expect_untouched(const char *what) const {
    EXPECT_EQ(faults_, 4711) << what;
    EXPECT_EQ(status_, '#') << what;
    EXPECT_EQ(data_hash_, '#') << what;
  }
  int32_t faults_ = 4711;
  char status_ = '#', data_hash_ = '#';
};

TEST_F(MirrorStatusTest, TakesTheDataHashStatusFromTheDetail) {
  connection().replies = reply("0000000012", 'A', "Hash is known");
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(faults_, 12);
  EXPECT_EQ(status_, 'A');
  EXPECT_EQ(data_hash_, 'H');
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{104, 60}));
  EXPECT_THAT(
      connection().traces_of("orn/vesk/skeys"),
      ElementsAre("F: GetMirrorStatus", "iBytesRead <104>", "iBytesRead <0>", "Tran Len <00104>", "Tran Id <1135>",
                  "Return Code <0000>", "Mirror Name <" + padded("M1", 40) + ">", "Fault Count <0000000012>",
                  "Status <A>", "Data Hash Status <H>", "Fault Count <" + padded("Hash is known", 44) + ">"));
}

TEST_F(MirrorStatusTest, SendsItsFlagAsYOrN) {
  for (const int flag : {5, 1, -1, 0}) {
    script::reset();
    connection().replies = reply(blanks(10), 'A', "B");
    EXPECT_EQ(get(flag), 0);
    EXPECT_THAT(connection().writes, ElementsAre("00045"
                                                 "1135" +
                                                 padded("M1", 40) + (flag != 0 ? "Y" : "N")));
  }
}

TEST_F(MirrorStatusTest, SendsANameCutTo40) {
  connection().replies = reply(blanks(10), 'A', "B");
  EXPECT_EQ(qGetMirrorStatus(&paths_, host_, port_, std::string(41, 'm').c_str(), 0, &faults_, &status_, &data_hash_),
            0);
  EXPECT_THAT(connection().writes, ElementsAre("00045"
                                               "1135" +
                                               std::string(40, 'm') + "N"));
}

struct CountCase {
  const char *digits;
  int32_t count;
};
constexpr CountCase kCounts[] = {{"          ", 0},          {"0000000012", 12},         {"        12", 12},
                                 {"12        ", 12},         {"2147483647", 2147483647}, {"2147483648", 2147483647},
                                 {"9999999999", 2147483647}, {"-000000005", -5},         {"none      ", 0}};

TEST_F(MirrorStatusTest, ReadsAFaultCountAsLeadingDigitsAndSaturates) {
  for (const CountCase &c : kCounts) {
    script::reset();
    connection().replies = reply(c.digits, 'A', "B");
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(faults_, c.count) << c.digits;
  }
}

TEST_F(MirrorStatusTest, DeliversAStatusOfNul) {
  connection().replies = reply("0000000001", '\0', std::string(1, '\0'));
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(faults_, 1);
  EXPECT_EQ(status_, '\0');
  EXPECT_EQ(data_hash_, '\0');
  EXPECT_EQ(connection().traces_of("orn/vesk/skeys").back(), "Fault Count <>");
}

TEST_F(MirrorStatusTest, IsNulWhereTheReplyIsCutShort) {
  connection().replies = framed("11350000" + padded("M1", 40) + "0000000007");
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(faults_, 7);
  EXPECT_EQ(status_, '\0');
  EXPECT_EQ(data_hash_, '\0');
  connection().replies = framed("11350000" + padded("M1", 40) + "0000000007" + "A" + "?");
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(status_, 'A');
  EXPECT_EQ(data_hash_, '\0') << "the character before the detail is not it";
}

TEST_F(MirrorStatusTest, LeavesTheOutputsUntouchedAfterEveryFailure) {
  const struct {
    const char *what;
    std::string replies;
    int setup, status;
  } cases[] = {{"no connection", "", 30006, 30006},
               {"the line is cut", reply("0000000001", 'A', "B").substr(0, 108), 0, script::kClosed},
               {"too long", "16385", 0, 9999},
               {"the server refuses", reply("0000000001", 'A', "B", "0031"), 0, 31}};
  for (const auto &c : cases) {
    script::reset();
    connection().setup_status = c.setup;
    connection().replies = c.replies;
    EXPECT_EQ(get(), c.status) << c.what;
    expect_untouched(c.what);
  }
}

TEST_F(MirrorStatusTest, TransactionFunctionFillsTheRecordWhateverTheReturnCode) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1135");
  MirrorRecord record{};
  connection().replies = reply("0000000012", 'A', std::string(44, 'd'), "0031");
  GetMirrorStatus(session.get(), &record);
  EXPECT_EQ(session->iStatus, 31);
  EXPECT_EQ(std::string(record.caMirrorName), padded("M1", 40));
  EXPECT_STREQ(record.caFaultCount, "0000000012");
  EXPECT_EQ(record.cStatus, 'A');
  EXPECT_EQ(record.cDataHashStatus, 'd');
  EXPECT_EQ(std::string(record.caMirrorDetail), std::string(44, 'd'));
  EXPECT_STREQ(record.caHostname, "");
  EXPECT_STREQ(record.caQueueSize, "");
  EXPECT_EQ(session->hTls, script::kTls);
}

class QueueSizeTest : public LibraryTest {
 protected:
  int get() { return qGetQueueSize(&paths_, host_, port_, "M1", &size_); }
  int32_t size_ = 4711;
};

TEST_F(QueueSizeTest, IsReadAsLeadingDigitsAndSaturates) {
  for (const CountCase &c : kCounts) {
    script::reset();
    connection().replies = framed("11470000" + std::string(c.digits));
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(size_, c.count) << c.digits;
  }
}

TEST_F(QueueSizeTest, IsTraced) {
  connection().replies = framed(
      "11470000"
      "0000000012");
  EXPECT_EQ(get(), 0);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: GetQueueSize", "iBytesRead <18>", "iBytesRead <0>", "Tran Len <00018>", "Tran Id <1147>",
                          "Return Code <0000>", "Mirror Queue Size <0000000012>"));
}

TEST_F(QueueSizeTest, SendsANameCutTo40) {
  connection().replies = framed("11470000");
  EXPECT_EQ(qGetQueueSize(&paths_, host_, port_, std::string(41, 'm').c_str(), &size_), 0);
  EXPECT_EQ(size_, 0) << "what did not arrive counts as nothing";
  EXPECT_THAT(connection().writes, ElementsAre("00044"
                                               "1147" +
                                               std::string(40, 'm')));
}

TEST_F(QueueSizeTest, LeavesTheOutputUntouchedAfterEveryFailure) {
  const struct {
    const char *what;
    std::string replies;
    int setup, status;
  } cases[] = {{"no connection", "", 30006, 30006},
               {"the line is cut", framed("114700000000000012").substr(0, 22), 0, script::kClosed},
               {"too long", "16385", 0, 9999},
               {"the server refuses", framed("114700310000000012"), 0, 31}};
  for (const auto &c : cases) {
    script::reset();
    connection().setup_status = c.setup;
    connection().replies = c.replies;
    EXPECT_EQ(get(), c.status) << c.what;
    EXPECT_EQ(size_, 4711) << c.what;
  }
}

TEST_F(QueueSizeTest, TransactionFunctionFillsNothingElse) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1147");
  MirrorRecord record{};
  connection().replies = framed("114700310000000012");
  GetQueueSize(session.get(), &record);
  EXPECT_EQ(session->iStatus, 31);
  EXPECT_STREQ(record.caQueueSize, "0000000012");
  EXPECT_STREQ(record.caMirrorName, "");
  EXPECT_STREQ(record.caFaultCount, "");
}

class ForceKeySyncTest : public LibraryTest {
 protected:
  // What is sent behind the mirror's name.
  std::string sent(const char *key_name) {
    script::reset();
    connection().replies = framed("11510000");
    EXPECT_EQ(qForceKeySync(&paths_, host_, port_, "M1", key_name), 0);
    EXPECT_EQ(connection().writes.at(0).substr(0, 49),
              "00085"
              "1151" +
                  padded("M1", 40));
    return connection().writes.at(0).substr(49);
  }
};

TEST_F(ForceKeySyncTest, NamesOneKeyOrNone) {
  EXPECT_EQ(sent("K1"), "NK1" + blanks(38));
  EXPECT_EQ(sent(nullptr), "Y" + blanks(40));
  EXPECT_EQ(sent(""), "N" + blanks(40)) << "an empty name is not all keys";
  EXPECT_EQ(sent(std::string(60, 'k').c_str()), "N" + std::string(40, 'k'));
}

TEST_F(ForceKeySyncTest, TracesTheHeaderAlone) {
  connection().replies = framed("11510000");
  EXPECT_EQ(qForceKeySync(&paths_, host_, port_, std::string(41, 'm').c_str(), nullptr), 0);
  EXPECT_EQ(connection().writes.at(0),
            "00085"
            "1151" +
                std::string(40, 'm') + "Y" + blanks(40));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: ForceKeySync", "iBytesRead <8>", "iBytesRead <0>", "Tran Len <00008>", "Tran Id <1151>",
                          "Return Code <0000>"));
}

}  // namespace
