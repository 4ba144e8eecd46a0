// The appliance's FIPS mode and version.
#include "tests/library/library_test.h"

namespace {

using script::Read;
using testing::ElementsAre;
using testing::IsEmpty;

class FipsModeTest : public LibraryTest {
 protected:
  FipsModeTest() { std::memset(version_, 'x', sizeof version_); }

  static std::string reply(char mode, const std::string &version, const char *return_code = "0000") {
    return framed("1047" + std::string(return_code) + mode + padded(version, 32));
  }
  int get() { return qReportFipsMode(&paths_, host_, port_, version_); }

  char version_[34];  // one more than the call may write
};

TEST_F(FipsModeTest, FIsTheOnlyOne) {
  for (const char mode : {'F', 'f', 'N', ' ', '\0'}) {
    script::reset();
    std::memset(version_, 'x', sizeof version_);
    connection().replies = reply(mode, "VERSION 1.2.3");
    EXPECT_EQ(get(), mode == 'F' ? 0 : -1) << mode;
    EXPECT_EQ(std::string_view(version_, 34), padded("VERSION 1.2.3", 32) + '\0' + 'x') << "the version comes anyway";
    EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), IsEmpty()) << "another mode is no failure of the call";
  }
}

TEST_F(FipsModeTest, TracesModeAndVersion) {
  connection().replies = reply('F', std::string(32, 'v'));
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(std::string(version_), std::string(32, 'v'));
  EXPECT_THAT(connection().writes, ElementsAre("000041047"));
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{41, 60}));
  EXPECT_THAT(
      connection().traces_of("orn/vesk/skeys"),
      ElementsAre("F: ReportFipsMode", "iBytesRead <41>", "iBytesRead <0>", "Tran Len <00041>", "Tran Id <1047>",
                  "Return Code <0000>", "FIPS Mode <F>", "Version <" + std::string(32, 'v') + ">"));
}

TEST_F(FipsModeTest, GivesAnEmptyVersionForAReplyCutShort) {
  connection().replies = framed("10470000F");
  EXPECT_EQ(get(), 0);
  EXPECT_STREQ(version_, "");
}

TEST_F(FipsModeTest, LeavesTheVersionUntouchedAfterEveryFailure) {
  const struct {
    const char *what;
    std::string replies;
    int setup, status;
  } cases[] = {{"no connection", "", 30006, 30006},
               {"the line is cut", reply('F', "v").substr(0, 45), 0, script::kClosed},
               {"too long", "16385", 0, 9999},
               {"the server refuses", reply('N', "v", "0031"), 0, 31}};
  for (const auto &c : cases) {
    script::reset();
    connection().setup_status = c.setup;
    connection().replies = c.replies;
    EXPECT_EQ(get(), c.status) << c.what;
    EXPECT_EQ(std::string_view(version_, 34), std::string(34, 'x')) << c.what;
  }
}

// A caller that gets -1 reads the version.
TEST_F(FipsModeTest, GivesTheVersionWithAReturnCodeThatReadsAsMinusOne) {
  connection().replies = reply('F', "VERSION", "-001");
  EXPECT_EQ(get(), -1);
  EXPECT_EQ(std::string(version_), padded("VERSION", 32));
}

TEST_F(FipsModeTest, TransactionFunctionRefusesANullResultAndSendsNothing) {
  const auto session = open_session();
  session->iStatus = 77;
  ReportFipsMode(session.get(), nullptr);
  EXPECT_EQ(session->iStatus, ERR_NULL_RESULT);
  EXPECT_THAT(connection().events, IsEmpty());
}

TEST_F(FipsModeTest, TransactionFunctionDeliversModeAndReturnCode) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1047");
  char result[7];
  std::memset(result, 'x', sizeof result);
  connection().replies = reply('N', "VERSION", "0031");
  ReportFipsMode(session.get(), result);
  EXPECT_EQ(session->iStatus, 31);
  EXPECT_EQ(std::string_view(result, 7), std::string_view("N0031\0x", 7));
  EXPECT_STREQ(session->request.caFipsMode, "N");
  EXPECT_EQ(std::string(session->request.caVersion), padded("VERSION", 32));
}

TEST_F(FipsModeTest, TransactionFunctionLeavesTheResultZeroWhenReadingFails) {
  const auto session = open_session();
  char result[7];
  std::memset(result, 'x', sizeof result);
  ReportFipsMode(session.get(), result);
  EXPECT_EQ(session->iStatus, script::kClosed);
  EXPECT_EQ(std::string_view(result, 7), zeros(6) + 'x');
}
}  // namespace
