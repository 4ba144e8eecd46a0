// The smallest transaction, step by step.
#include "tests/library/library_test.h"

namespace {

using testing::ElementsAre;

class ConnectivityTest : public LibraryTest {};

TEST_F(ConnectivityTest, ExchangesInOrder) {
  connection().replies =
      "00008"
      "1043"
      "0000";
  EXPECT_EQ(qAdminNoop(&paths_, host_, port_), 0);
  EXPECT_THAT(connection().events,
              ElementsAre("setup", "trace F: AdminNoop", "dump caReqBuf", "write", "read", "trace iBytesRead <8>",
                          "read", "trace iBytesRead <0>", "dump Response buffer", "trace Tran Len <00008>",
                          "trace Tran Id <1043>", "trace Return Code <0000>", "teardown"));
}

TEST_F(ConnectivityTest, AcceptsAnotherIdentifier) {
  connection().replies =
      "00008"
      "7777"
      "0000";
  EXPECT_EQ(qAdminNoop(&paths_, host_, port_), 0);
}

TEST_F(ConnectivityTest, ReadsAndIgnoresABody) {
  connection().replies =
      "00012"
      "1043"
      "0000"
      "more";
  EXPECT_EQ(qAdminNoop(&paths_, host_, port_), 0);
}

TEST_F(ConnectivityTest, TracesAFailureUnderTheFramesPath) {
  connection().replies =
      "00008"
      "1043"
      "0003";
  EXPECT_EQ(qAdminNoop(&paths_, host_, port_), 3);
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), ElementsAre("AdminNoop Failed! ret = <3>"));
}

TEST_F(ConnectivityTest, TransactionFunctionRefusesANullResultAndSendsNothing) {
  Session session{};
  session.iStatus = 77;
  AdminNoop(&session, nullptr);
  EXPECT_EQ(session.iStatus, ERR_NULL_RESULT);
  EXPECT_THAT(connection().events, testing::IsEmpty());
}

TEST_F(ConnectivityTest, TransactionFunctionDeliversTheReturnCodeAsText) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1043");
  connection().replies =
      "00008"
      "1043"
      "0012";
  char result[5] = {'x', 'x', 'x', 'x', 'x'};
  AdminNoop(session.get(), result);
  EXPECT_STREQ(result, "0012");
  EXPECT_EQ(session->iStatus, 12);
  EXPECT_STREQ(session->caTranLen, "00008");
  EXPECT_EQ(session->iBytesRead, 0);
}

TEST_F(ConnectivityTest, TransactionFunctionLeavesTheResultZeroWhenReadingFails) {
  const auto session = open_session();
  char result[5] = {'x', 'x', 'x', 'x', 'x'};
  AdminNoop(session.get(), result);
  EXPECT_EQ(session->iStatus, script::kClosed);
  EXPECT_EQ(std::string_view(result, 5), zeros(5));
}

}  // namespace
