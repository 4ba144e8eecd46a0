// Mirrors: address book and names.
#include <algorithm>

#include "tests/library/library_test.h"

namespace {

using script::Read;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class MirrorsTest : public LibraryTest {};

// ---- The address book ----

struct PortCase {
  uint32_t port;
  const char *sent;
};

TEST_F(MirrorsTest, AddressIsSentWithFiveDigitsOfPort) {
  for (const auto &[mirror_port, sent] :
       {PortCase{443, "00443"}, PortCase{0, "00000"}, PortCase{65535, "65535"}, PortCase{99999, "99999"},
        PortCase{100000, "10000"}, PortCase{4294967295u, "42949"}}) {
    script::reset();
    connection().replies = framed("11290000");
    EXPECT_EQ(qSetMirrorAddress(&paths_, host_, port_, "M1", "mirror.example", mirror_port), 0);
    EXPECT_THAT(connection().writes, ElementsAre("00305"
                                                 "1129" +
                                                 padded("M1", 40) + padded("mirror.example", 256) + sent));
  }
}

TEST_F(MirrorsTest, AddressIsSentCutToItsFields) {
  connection().replies = framed("11290000");
  EXPECT_EQ(qSetMirrorAddress(&paths_, host_, port_, std::string(50, 'm').c_str(), std::string(300, 'h').c_str(), 1),
            0);
  EXPECT_THAT(connection().writes, ElementsAre("00305"
                                               "1129" +
                                               std::string(40, 'm') + std::string(256, 'h') + "00001"));
}

TEST_F(MirrorsTest, AddressOfNullPointersIsBlank) {
  connection().replies = framed("11290000");
  EXPECT_EQ(qSetMirrorAddress(&paths_, host_, port_, nullptr, nullptr, 1), 0);
  EXPECT_THAT(connection().writes, ElementsAre("00305"
                                               "1129" +
                                               blanks(296) + "00001"));
}

TEST_F(MirrorsTest, SettingAnAddressTracesTheHeaderAlone) {
  connection().replies = framed("11290000ignored");
  EXPECT_EQ(qSetMirrorAddress(&paths_, host_, port_, "M1", "mirror.example", 443), 0);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: SetMirrorAddress", "iBytesRead <15>", "iBytesRead <0>", "Tran Len <00015>",
                          "Tran Id <1129>", "Return Code <0000>"));
}

TEST_F(MirrorsTest, RemovingAnAddressTracesTheHeaderAlone) {
  connection().replies = framed("11310000" + padded("M1", 40));
  EXPECT_EQ(qRemoveMirrorAddress(&paths_, host_, port_, std::string(41, 'm').c_str()), 0);
  EXPECT_THAT(connection().writes, ElementsAre("00044"
                                               "1131" +
                                               std::string(40, 'm')));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: RemoveMirrorAddress", "iBytesRead <48>", "iBytesRead <0>", "Tran Len <00048>",
                          "Tran Id <1131>", "Return Code <0000>"));
}

class MirrorAddressTest : public LibraryTest {
 protected:
  MirrorAddressTest() { std::memset(out_, 'x', sizeof out_); }

  static std::string reply(const std::string &hostname, const std::string &port = "00443",
                           const char *return_code = "0000") {
    return framed("1127" + std::string(return_code) + padded("M1", 40) + padded(hostname, 256) + port);
  }
  int get(uint32_t length) { return qGetMirrorAddress(&paths_, host_, port_, "M1", out_, length, &mirror_port_); }
  std::string_view untouched_from(std::size_t at) const { return std::string_view(out_, sizeof out_).substr(at); }

  char out_[1000];
  uint32_t mirror_port_ = 4711;
};

TEST_F(MirrorAddressTest, ComesTrimmedWithItsPortAsANumber) {
  connection().replies = reply("mirror.example");
  EXPECT_EQ(get(256), 0);
  EXPECT_STREQ(out_, "mirror.example");
  EXPECT_EQ(mirror_port_, 443u);
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{309, 60}));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: GetMirrorAddress", "iBytesRead <309>", "iBytesRead <0>", "Tran Len <00309>",
                          "Tran Id <1127>", "Return Code <0000>", "Mirror Name <" + padded("M1", 40) + ">",
                          "Hostname <" + padded("mirror.example", 256) + ">", "Port <00443>"));
}

TEST_F(MirrorAddressTest, SendsANameCutTo40) {
  connection().replies = reply("h");
  EXPECT_EQ(qGetMirrorAddress(&paths_, host_, port_, std::string(99, 'm').c_str(), out_, 256, &mirror_port_), 0);
  EXPECT_THAT(connection().writes, ElementsAre("00044"
                                               "1127" +
                                               std::string(40, 'm')));
}

TEST_F(MirrorAddressTest, FillsWhatTheCallerHasButNeverMoreThan256Bytes) {
  struct {
    uint32_t length;
    std::size_t characters;
  } const cases[] = {{1, 0}, {2, 1}, {16, 15}, {255, 254}, {256, 255}, {257, 255}, {1000, 255}, {4294967295u, 255}};
  for (const auto &c : cases) {
    script::reset();
    std::memset(out_, 'x', sizeof out_);
    connection().replies = reply(std::string(256, 'h'));
    EXPECT_EQ(get(c.length), 0);
    EXPECT_EQ(std::string_view(out_), std::string(c.characters, 'h')) << c.length;
    EXPECT_EQ(untouched_from(c.characters + 1), std::string(sizeof out_ - c.characters - 1, 'x')) << c.length;
  }
}

TEST_F(MirrorAddressTest, EndsAShortNameAndTheBufferWithANul) {
  connection().replies = reply("abc");
  EXPECT_EQ(get(16), 0);
  EXPECT_EQ(std::string_view(out_, 17), std::string("abc\0", 4) + std::string(11, 'x') + '\0' + 'x');
}

TEST_F(MirrorAddressTest, WritesNoNameForALengthOfZero) {
  connection().replies = reply("abc");
  EXPECT_EQ(get(0), 0);
  EXPECT_EQ(untouched_from(0), std::string(sizeof out_, 'x'));
  EXPECT_EQ(mirror_port_, 443u);
  connection().replies = reply("abc");
  EXPECT_EQ(qGetMirrorAddress(&paths_, host_, port_, "M1", nullptr, 0, &mirror_port_), 0);
}

TEST_F(MirrorAddressTest, OfBlanksIsLeftAsItIs) {
  connection().replies = reply("");
  EXPECT_EQ(get(1000), 0);
  EXPECT_STREQ(out_, blanks(255).c_str());
}

TEST_F(MirrorAddressTest, ReadsAPortAsLeadingDigits) {
  struct {
    const char *digits;
    uint32_t port;
  } const cases[] = {{"00443", 443}, {"  443", 443}, {"443  ", 443}, {"99999", 99999}, {"     ", 0}, {"http ", 0}};
  for (const auto &c : cases) {
    script::reset();
    connection().replies = reply("h", c.digits);
    EXPECT_EQ(get(256), 0);
    EXPECT_EQ(mirror_port_, c.port) << c.digits;
  }
}

TEST_F(MirrorAddressTest, IsEmptyWhereTheReplyIsCutShort) {
  connection().replies = framed("11270000" + padded("M1", 40) + "mirror.exa");
  EXPECT_EQ(get(256), 0);
  EXPECT_STREQ(out_, "mirror.exa");
  EXPECT_EQ(mirror_port_, 0u);
}

TEST_F(MirrorAddressTest, LeavesTheOutputsUntouchedAfterEveryFailure) {
  const struct {
    const char *what;
    std::string replies;
    int setup, status;
  } cases[] = {{"no connection", "", 30006, 30006},
               {"the line is cut", reply("h").substr(0, 300), 0, script::kClosed},
               {"too long", "16385", 0, 9999},
               {"the server refuses", reply("h", "00443", "0031"), 0, 31}};
  for (const auto &c : cases) {
    script::reset();
    connection().setup_status = c.setup;
    connection().replies = c.replies;
    EXPECT_EQ(get(256), c.status) << c.what;
    EXPECT_EQ(untouched_from(0), std::string(sizeof out_, 'x')) << c.what;
    EXPECT_EQ(mirror_port_, 4711u) << c.what;
  }
}

TEST_F(MirrorAddressTest, TransactionFunctionFillsTheFirstThreeFieldsOfTheRecord) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1127");
  for (const bool full : {false, true}) {
    MirrorRecord record{};
    connection().replies = full ? framed("11270009" + std::string(40, 'm') + std::string(256, 'h') + "65535")
                                : framed("11270009" + padded("M 1", 40) + padded("a b\t\n", 256) + " 1   ");
    GetMirrorAddress(session.get(), &record);
    EXPECT_EQ(session->iStatus, 9);
    EXPECT_EQ(std::string(record.caMirrorName), full ? std::string(40, 'm') : "M 1");
    EXPECT_EQ(std::string(record.caHostname), full ? std::string(256, 'h') : "a b");
    EXPECT_STREQ(record.caPort, full ? "65535" : " 1   ");
    EXPECT_STREQ(record.caFaultCount, "");
    EXPECT_STREQ(record.caQueueSize, "");
  }
}

// ---- The names ----

std::string page(const std::string &names, char more, const char *return_code = "0000") {
  char count[16];
  std::snprintf(count, sizeof count, "%05zu", names.size());
  return framed("1133" + std::string(return_code) + more + count) + names;
}

// A list element: the text ends where its padding began; behind the width it is zero.
std::string trimmed(const std::string &name, std::size_t width, std::size_t size) {
  std::string element = padded(name, width);
  if (name.size() < width) element[name.size()] = '\0';
  element.resize(size, '\0');
  return element;
}

class MirrorNamesTest : public LibraryTest {
 protected:
  int names(std::size_t element_size = 41) {
    list_ = {element_size, {}};
    return qListMirrorNames(&paths_, host_, port_, &list_);
  }
  LinkedList list_{41, {}};
};

TEST_F(MirrorNamesTest, AreAppendedTrimmedPageByPage) {
  connection().replies = page(padded("M1", 40) + padded("M 2", 40), 'Y') + page(padded("M3", 40), 'N');
  EXPECT_EQ(names(), 0);
  EXPECT_THAT(list_.elements, ElementsAre(trimmed("M1", 40, 41), trimmed("M 2", 40, 41), trimmed("M3", 40, 41)));
  EXPECT_THAT(connection().writes, ElementsAre("000041133"));
  EXPECT_THAT(connection().reads,
              ElementsAre(Read{5, 300}, Read{14, 60}, Read{80, 60}, Read{5, 300}, Read{14, 60}, Read{40, 60}));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: ListMirrorNames", "iBytesRead <14>", "iBytesRead <0>", "Tran Len <00014>",
                          "Tran Id <1133>", "Return Code <0000>", "More Flag <Y>", "List Count <00080>",
                          "List Count <80>", "List Number <2>", "mirror: <M1>", "mirror: <M 2>", "iBytesRead <14>",
                          "iBytesRead <0>", "Tran Len <00014>", "Tran Id <1133>", "Return Code <0000>", "More Flag <N>",
                          "List Count <00040>", "List Count <40>", "List Number <1>", "mirror: <M3>"));
}

TEST_F(MirrorNamesTest, MakeNoReadForACountOfZeroOrLess) {
  struct {
    const char *count, *traced_count, *traced_number;
  } const cases[] = {{"00000", "List Count <0>", "List Number <0>"},
                     {"-0040", "List Count <-40>", "List Number <-1>"},
                     {"     ", "List Count <0>", "List Number <0>"}};
  for (const auto &c : cases) {
    script::reset();
    connection().replies = framed("11330000N" + std::string(c.count));
    EXPECT_EQ(names(), 0);
    EXPECT_THAT(list_.elements, IsEmpty());
    EXPECT_THAT(connection().reads, ElementsAre(Read{5, 300}, Read{14, 60}));
    EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), testing::IsSupersetOf({c.traced_count, c.traced_number}));
  }
}

TEST_F(MirrorNamesTest, GoOnAfterAPageWithoutNames) {
  connection().replies = page("", 'Y') + page(padded("M1", 40), 'N');
  EXPECT_EQ(names(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre("M1"));
}

TEST_F(MirrorNamesTest, EndOnAnyMoreFlagButY) {
  for (const char more : {'N', 'y', ' ', '\0'}) {
    script::reset();
    connection().replies = page(padded("M1", 40), more);
    EXPECT_EQ(names(), 0);
    EXPECT_EQ(list_.elements.size(), 1u);
  }
}

TEST_F(MirrorNamesTest, DropWhatIsLeftOfABlock) {
  for (const std::size_t left : {1u, 20u, 39u}) {
    script::reset();
    connection().replies = page(padded("M1", 40) + std::string(left, 'r'), 'Y') + page(padded("M2", 40), 'N');
    EXPECT_EQ(names(), 0);
    EXPECT_THAT(list_.texts(), ElementsAre("M1", "M2"));
  }
  connection().replies = page(std::string(39, 'r'), 'N');
  EXPECT_EQ(names(), 0);
  EXPECT_THAT(list_.elements, IsEmpty());
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("List Number <0>"));
}

TEST_F(MirrorNamesTest, AreCutToElementsOfAnySize) {
  const std::string name = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMN";
  struct {
    std::size_t size, kept;
  } const cases[] = {{0, 0}, {1, 0}, {10, 9}, {20, 19}, {39, 38}, {40, 40}, {41, 40}, {64, 40}, {200, 40}};
  for (const auto &c : cases) {
    script::reset();
    connection().replies = page(name + padded("M2", 40), 'N');
    EXPECT_EQ(names(c.size), 0);
    EXPECT_THAT(list_.elements, ElementsAre(trimmed(name, c.kept, c.size), trimmed("M2", c.kept, c.size))) << c.size;
    EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("mirror: <" + name.substr(0, c.kept) + ">"));
  }
}

TEST_F(MirrorNamesTest, OfBlanksAreTerminatedInElementsOfAnySize) {
  for (const std::size_t size : {10u, 20u, 41u, 64u}) {
    script::reset();
    connection().replies = page(blanks(40) + std::string(40, 'n'), 'N');
    EXPECT_EQ(names(size), 0);
    std::string first = blanks(std::min<std::size_t>(size - 1, 40)), second(first.size(), 'n');
    first.resize(size, '\0');
    second.resize(size, '\0');
    EXPECT_THAT(list_.elements, ElementsAre(first, second)) << size;
  }
}

TEST_F(MirrorNamesTest, AreReadInPiecesFromABlockOfAnySize) {
  std::string block;
  for (int i = 0; i < 2499; ++i) block += padded("mirror-" + std::to_string(i), 40);
  block += std::string(39, 'r');
  connection().replies = page(block, 'Y') + page(padded("last", 40), 'N');
  EXPECT_EQ(names(), 0);
  ASSERT_EQ(list_.elements.size(), 2500u);
  const std::vector<std::string> texts = list_.texts();
  for (int i = 0; i < 2499; ++i) ASSERT_EQ(texts[static_cast<std::size_t>(i)], "mirror-" + std::to_string(i));
  EXPECT_EQ(texts[2499], "last");
  const auto traces = connection().traces_of("orn/vesk/skeys");
  EXPECT_EQ(std::ranges::count(traces, "List Count <99999>"), 2) << "the field, then the number";
  EXPECT_EQ(std::ranges::count(traces, "List Number <2499>"), 1);
}

TEST_F(MirrorNamesTest, StayInTheListWhenTheLineIsCut) {
  const std::string whole = page(padded("M1", 40), 'Y') + page(padded("M2", 40), 'N');
  for (std::size_t length = 0; length < whole.size(); ++length) {
    script::reset();
    connection().replies = whole.substr(0, length);
    EXPECT_EQ(names(), script::kClosed) << length;
    EXPECT_EQ(list_.elements.size(), length < 59 ? 0u : 1u) << length;
  }
}

TEST_F(MirrorNamesTest, AreNotCountedWhenTheirReadFails) {
  connection().replies = framed("11330000N00040");
  connection().failing_reads = {{2, 30061}};
  EXPECT_EQ(names(), 30061);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Not(Contains(testing::StartsWith("List Number"))));
}

TEST_F(MirrorNamesTest, AreDeliveredBeforeTheReturnCodeOfTheLastPageCounts) {
  connection().replies = page(padded("M1", 40), 'Y', "0009") + page(padded("M2", 40), 'N', "0008");
  EXPECT_EQ(names(), 8);
  EXPECT_THAT(list_.texts(), ElementsAre("M1", "M2"));
  connection().replies = page(padded("M1", 40), 'Y', "0009") + page("", 'N');
  EXPECT_EQ(names(), 0);
}

TEST_F(MirrorNamesTest, RefuseALaterPageAbove16384) {
  connection().replies = page(padded("M1", 40), 'Y') + "16385";
  EXPECT_EQ(names(), 9999);
  EXPECT_THAT(list_.texts(), ElementsAre("M1"));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              Contains("ListMirrorNames ERR <9999> Transaction size <16385> exceeds maximum <16384>"));
}

TEST_F(MirrorNamesTest, ShowNothingOfThePageBeforeWhenOneIsCutShort) {
  connection().replies = page(padded("M1", 40), 'Y') + framed("11330000");
  EXPECT_EQ(names(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre("M1"));
}

TEST_F(MirrorNamesTest, TransactionFunctionTakesANullListForNoneAndKeepsThePage) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1133");
  connection().replies = page(padded("M1", 40), 'N');
  ListMirrorNames(session.get(), nullptr);
  EXPECT_EQ(session->iStatus, 0);
  EXPECT_STREQ(session->caMoreFlag, "N");
  EXPECT_STREQ(session->caListCount, "00040");
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("mirror: <M1>"));
}
}  // namespace
