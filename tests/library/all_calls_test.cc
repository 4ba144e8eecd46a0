// What holds for every public call: the frame around it and the exchange within.
#include <functional>
#include <utility>

#include "tests/library/calls.h"
#include "tests/library/library_test.h"

namespace {

using script::Read;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class AllCallsTest : public LibraryTest, public testing::WithParamInterface<CallCase> {
 protected:
  const CallCase &c() const { return GetParam(); }
  int call() { return c().call(paths_); }
  // What the call makes of the server's return code.
  int status_of(int return_code) const { return c().ignores_return_code ? 0 : return_code; }
  std::vector<std::string> writes() const {
    std::vector<std::string> expected = {c().request};
    if (c().payload != nullptr) expected.emplace_back(c().payload);
    return expected;
  }
  static std::string first_dump(const std::string &label) {
    for (const script::Dump &dump : connection().dumps) {
      if (dump.path == "orn/vesk/skeys" && dump.label == label) return dump.bytes;
    }
    return "no dump " + label;
  }
  std::string failed(int status) const {
    return std::string(c().function) + " Failed! ret = <" + std::to_string(status) + ">";
  }
  // Behind the header all blank: a page with the list count 0 that is the last one.
  std::string reply(const char *return_code, std::size_t length) const {
    return framed(padded(c().tran_id + return_code, length));
  }
  std::vector<Read> reads(int body) const {
    std::vector<Read> expected = {{5, c().reply_timeout}, {body, 60}};
    if (c().paged) expected.push_back({0, 60});
    return expected;
  }
};

TEST_P(AllCallsTest, SendsItsRequestOnceAndDumpsIt) {
  connection().replies = reply("0000", 8);
  const int status = call();
  EXPECT_THAT(status, testing::AnyOf(0, c().status_of_empty));
  EXPECT_EQ(connection().writes, writes());
  EXPECT_EQ(first_dump("caReqBuf"), c().request);
  EXPECT_EQ(connection().reads, reads(8));
}

TEST_P(AllCallsTest, TracesItsNameThenTheReply) {
  connection().replies = reply("0005", 8);
  EXPECT_EQ(call(), status_of(5));
  const auto traces = connection().traces_of("orn/vesk/skeys");
  ASSERT_FALSE(traces.empty());
  EXPECT_EQ(traces.front(), std::string("F: ") + c().function);
  EXPECT_THAT(traces, testing::IsSupersetOf({"iBytesRead <8>", "iBytesRead <0>", "Return Code <0005>"}));
  if (c().traces_header) {
    EXPECT_THAT(traces, testing::IsSupersetOf({std::string("Tran Len <00008>"), "Tran Id <" + c().tran_id + ">"}));
  }
  if (!c().ignores_return_code) {
    EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), Contains(failed(5)));
  }
  // The dump of the reply shows its length digits alone.
  EXPECT_EQ(first_dump("Response buffer"), "00008");
}

TEST_P(AllCallsTest, ReturnsTheServersReturnCode) {
  connection().replies = reply("0007", 400);
  EXPECT_EQ(call(), status_of(7));
}

TEST_P(AllCallsTest, ReadsAReturnCodeAsLeadingDigits) {
  connection().replies = reply("12x4", 400);
  EXPECT_EQ(call(), status_of(12));
}

TEST_P(AllCallsTest, DoesNotCompareTheIdentifier) {
  connection().replies = framed(
      "9999"
      "0008");
  EXPECT_EQ(call(), status_of(8));
}

TEST_P(AllCallsTest, ReturnsTheSetUpsCode) {
  connection().setup_status = 30006;
  EXPECT_EQ(call(), 30006);
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), Contains("SetupSession Failed! ret = <30006>"));
  EXPECT_THAT(connection().writes, IsEmpty());
}

TEST_P(AllCallsTest, ReturnsTheCodeOfAFailedWriteAndReadsNothing) {
  connection().failing_writes = {{static_cast<int>(writes().size()) - 1, 30061}};
  EXPECT_EQ(call(), 30061);
  EXPECT_THAT(connection().reads, IsEmpty());
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), Contains(failed(30061)));
}

TEST_P(AllCallsTest, ReturnsTheCodeOfAFailedLengthRead) {
  connection().failing_reads = {{0, 30062}};
  EXPECT_EQ(call(), 30062);
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, c().reply_timeout}));
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), Contains(failed(30062)));
}

TEST_P(AllCallsTest, ReturnsTheCodeOfAFailedBodyReadAndParsesNothing) {
  connection().replies = "00400";
  connection().failing_reads = {{1, 30062}};
  EXPECT_EQ(call(), 30062);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Not(Contains(testing::StartsWith("Return Code "))));
}

TEST_P(AllCallsTest, RefusesAReplyAbove16384Unread) {
  connection().replies = "16385";
  EXPECT_EQ(call(), c().oversize_status);
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, c().reply_timeout}));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              Contains(std::string(c().oversize_name) + " ERR <" + std::to_string(c().oversize_status) +
                       "> Transaction size <16385> exceeds maximum <16384>"));
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), Contains(failed(c().oversize_status)));
}

TEST_P(AllCallsTest, ReadsAReplyOf16384) {
  connection().replies = reply("0009", 16384);
  EXPECT_EQ(call(), status_of(9));
  EXPECT_EQ(connection().reads, reads(16384));
}

TEST_P(AllCallsTest, ReadsAReplyOfLengthZeroAsAnEmptyOne) {
  connection().replies = "00000";
  EXPECT_EQ(call(), c().status_of_empty);
  EXPECT_EQ(connection().reads, reads(0));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("Return Code <>"));
}

TEST_P(AllCallsTest, TakesANegativeLengthForZero) {
  connection().replies = "-0001";
  EXPECT_EQ(call(), c().status_of_empty);
  EXPECT_EQ(connection().reads, reads(0));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("iBytesRead <-1>"));
}

TEST_P(AllCallsTest, TakesALengthWithoutDigitsForZero) {
  for (const char *digits : {"     ", "abcde", "+    ", "-----"}) {
    script::reset();
    connection().replies = digits;
    EXPECT_EQ(call(), c().status_of_empty) << digits;
    EXPECT_EQ(connection().reads, reads(0)) << digits;
  }
}

TEST_P(AllCallsTest, ReadsTheDigitsOfALengthUpToTheFirstOtherCharacter) {
  connection().replies = " 8x999" + std::string(c().tran_id).substr(1) + "0006";
  EXPECT_EQ(call(), status_of(6));
}

TEST_P(AllCallsTest, SurvivesALineCutAtEveryByte) {
  const std::string whole = reply("0004", 400);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    script::reset();
    connection().replies = whole.substr(0, length);
    EXPECT_EQ(call(), script::kClosed) << length;
    EXPECT_EQ(connection().teardowns, 1) << length;
  }
}

TEST_P(AllCallsTest, SurvivesAReplyOfEveryLength) {
  const std::string body = padded(c().tran_id + "0004", 1300);
  for (std::size_t length = 8; length <= body.size(); ++length) {
    script::reset();
    connection().replies = framed(body.substr(0, length));
    EXPECT_EQ(call(), status_of(4)) << length;
    EXPECT_EQ(connection().replies, "") << length;
  }
}

TEST_P(AllCallsTest, SurvivesNulsAndControlCharactersInEveryField) {
  for (const char filler : {'\0', '\x01', '\n', '\x7f', '\xff', '%'}) {
    script::reset();
    connection().replies = framed(c().tran_id + "0004" + std::string(1300, filler));
    EXPECT_EQ(call(), status_of(4)) << static_cast<int>(filler);
  }
}

class NullTextTest : public LibraryTest {
 protected:
  // What a call returns and sends when it gets this for each of its texts.
  using Outcome = std::pair<int, std::vector<std::string>>;
  template <typename Call>
  Outcome outcome(Call call, const char *text) {
    script::reset();
    connection().replies = framed(std::string("00000000") + "N00000");
    const int status = call(text);
    connection().replies.clear();
    return {status, connection().writes};
  }
  template <typename Call, typename... Arguments>
  int make(Call call, Arguments... arguments) {
    return call(&paths_, host_, port_, arguments...);
  }
};

TEST_F(NullTextTest, CountsAsAnEmptyOne) {
  KeyRecord record;
  KeyMetadataValues values;
  char name[257], one, other;
  unsigned char value[256] = {};
  uint32_t number, second;
  int32_t count;
  const std::function<int(const char *)> calls[] = {
      [&](const char *t) { return make(qGetNextKey, t, name, value, &number); },
      [&](const char *t) { return make(qRetrieveKey, t, t, &record); },
      [&](const char *t) { return make(qRetrieveKeyMetadata, t, &values); },
      [&](const char *t) { return make(qCreateSymKey, t, 'N'); },
      [&](const char *t) { return make(qAutoGenKeys, t, 'i', 1u); },
      [&](const char *t) { return make(qDeleteKey, t); },
      [&](const char *t) { return make(qChangeDeletable, t, 'Y'); },
      [&](const char *t) { return make(qGetTemplateDepth, t, &number, &second); },
      [&](const char *t) { return make(qRemoveTemplate, t); },
      [&](const char *t) { return make(qSetNextIncrement, t, 1u); },
      [&](const char *t) {
        return make(qSetMetadata, t, t, "a", "a", t, "a", "a", "a", "a", "a", "a", "a", "a", "a", "a", "a", "a", "a");
      },
      [&](const char *t) { return make(qRetrieveKeyNameList, t); },
      [&](const char *t) { return make(qRetrieveKeyNameListFiltered, t, t, &number); },
      [&](const char *t) { return make(qImportSymKey, t, t, nullptr, value); },
      [&](const char *t) { return make(qExportSymKey, t, t, t, t, value); },
      [&](const char *t) { return make(qImportCertificate, t, t, 1); },
      [&](const char *t) { return make(qImportPrivateKey, t, t); },
      [&](const char *t) { return make(qExportCertificate, t, 'C', t); },
      [&](const char *t) { return make(qDeleteCertificate, t, 'C'); },
      [&](const char *t) { return make(qDeletePrivateKey, t); },
      [&](const char *t) { return make(qGetCertificateList, 'C', t); },
      [&](const char *t) { return make(qGetPrivateKeyList, t); },
      [&](const char *t) { return make(qSetMirrorAddress, t, t, 1u); },
      [&](const char *t) { return make(qGetMirrorAddress, t, name, 257u, &number); },
      [&](const char *t) { return make(qRemoveMirrorAddress, t); },
      [&](const char *t) { return make(qGetMirrorStatus, t, 1, &count, &one, &other); },
      [&](const char *t) { return make(qGetQueueSize, t, &count); },
      [&](const char *t) { return make(qForceKeySync, t, "K1"); },
  };
  for (const auto &call : calls) {
    const Outcome of_null = outcome(call, nullptr), of_empty = outcome(call, "");
    EXPECT_EQ(of_null, of_empty) << &call - calls;
  }
}

INSTANTIATE_TEST_SUITE_P(Calls, AllCallsTest, testing::ValuesIn(all_calls()),
                         [](const auto &info) { return std::string(info.param.function); });

}  // namespace
