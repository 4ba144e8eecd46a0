// Key templates: depth, list, removal, next increment.
#include "tests/library/library_test.h"

namespace {

using script::Read;
using testing::ElementsAre;
using testing::IsEmpty;

class TemplateDepthTest : public LibraryTest {
 protected:
  int depth() { return qGetTemplateDepth(&paths_, host_, port_, "TEMPLATE0000001", &size_, &sequence_); }
  static std::string reply(const char *next, const char *last, const char *full, const char *return_code = "0000") {
    return framed("1121" + std::string(return_code) + "06" + padded(next, 40) + padded(last, 40) + "Y" + full + "H");
  }
  uint32_t size_ = 4711, sequence_ = 4712;
};

TEST_F(TemplateDepthTest, DeliversLastAndNextIncrement) {
  connection().replies = reply("00000B", "0000FF", "N");
  EXPECT_EQ(depth(), 0);
  EXPECT_EQ(size_, 255u);
  EXPECT_EQ(sequence_, 11u);
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), ElementsAre("Template Size <255>", "Sequence Out <11>"));
  EXPECT_THAT(
      connection().traces_of("orn/vesk/skeys"),
      ElementsAre("F: GetTemplateDepth", "iBytesRead <93>", "iBytesRead <0>", "Tran Len <00093>", "Tran Id <1121>",
                  "Return Code <0000>", "Increment Length <06>", "Next Increment <" + padded("00000B", 40) + ">",
                  "Last Increment <" + padded("0000FF", 40) + ">", "Key Served <Y>", "Template Full <N>",
                  "Increment Code <H>"));
}

TEST_F(TemplateDepthTest, OfAFullTemplateIsOneMoreAfterTheTrace) {
  connection().replies = reply("0000FF", "0000FF", "Y");
  EXPECT_EQ(depth(), 0);
  EXPECT_EQ(sequence_, 256u);
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), testing::Contains("Sequence Out <255>"));
}

TEST_F(TemplateDepthTest, ReadsBlankAndForeignIncrementsAsZero) {
  connection().replies = reply("", "xyz", "N");
  EXPECT_EQ(depth(), 0);
  EXPECT_EQ(size_, 0u);
  EXPECT_EQ(sequence_, 0u);
}

TEST_F(TemplateDepthTest, LeavesItsOutputsUntouchedOnFailure) {
  connection().replies = reply("00000B", "0000FF", "N", "0201");
  EXPECT_EQ(depth(), 201);
  EXPECT_EQ(size_, 4711u);
  EXPECT_EQ(sequence_, 4712u);
}

TEST_F(TemplateDepthTest, TransactionFunctionFillsTheWholeRecordOrNone) {
  const auto session = open_session();
  connection().replies = reply("00000B", "0000FF", "N") + reply("00000B", "0000FF", "N");
  TemplateDepth depth;
  std::memset(&depth, 'x', sizeof depth);
  GetTemplateDepth(session.get(), &depth);
  EXPECT_STREQ(depth.caTranId, "1121");
  EXPECT_STREQ(depth.caTranLen, "00093");
  EXPECT_STREQ(depth.caReturnCode, "0000");
  EXPECT_STREQ(depth.caIncrementLen, "06");
  EXPECT_STREQ(depth.caIncrementCode, "H");
  EXPECT_STREQ(depth.caNextIncrement, padded("00000B", 40).c_str());
  EXPECT_STREQ(depth.caLastIncrement, padded("0000FF", 40).c_str());
  EXPECT_STREQ(depth.caKeyServed, "Y");
  EXPECT_STREQ(depth.caTemplateFull, "N");
  EXPECT_EQ(std::string_view(depth.caConstant, sizeof depth.caConstant), zeros(40));
  EXPECT_EQ(std::string_view(depth.caConstantLen, sizeof depth.caConstantLen), zeros(3));
  EXPECT_EQ(std::string_view(depth.caKeyFormat, sizeof depth.caKeyFormat), zeros(4));
  GetTemplateDepth(session.get(), nullptr);
  EXPECT_EQ(session->iStatus, 0);
}

TEST_F(TemplateDepthTest, TransactionFunctionDeliversTheRecordOfARefusalToo) {
  const auto session = open_session();
  connection().replies = framed("11210304");
  TemplateDepth depth;
  std::memset(&depth, 'x', sizeof depth);
  GetTemplateDepth(session.get(), &depth);
  EXPECT_EQ(session->iStatus, 304);
  EXPECT_STREQ(depth.caReturnCode, "0304");
  EXPECT_EQ(std::string_view(depth.caNextIncrement, sizeof depth.caNextIncrement), zeros(41));
}

TEST_F(TemplateDepthTest, SettingTheNextIncrementPadsItTo40Characters) {
  struct {
    uint32_t increment;
    const char *digits;
  } const cases[] = {
      {0, "000000"}, {255, "0000FF"}, {0xFFFFFF, "FFFFFF"}, {0x1000000, "1000000"}, {0xFFFFFFFF, "FFFFFFFF"}};
  for (const auto &c : cases) {
    script::reset();
    connection().replies = framed("11590000");
    EXPECT_EQ(qSetNextIncrement(&paths_, host_, port_, "T", c.increment), 0);
    EXPECT_THAT(connection().writes, ElementsAre("00087"
                                                 "1159" +
                                                 padded("T", 39) + "0615" + padded(c.digits, 40)));
  }
}

class TemplateListTest : public LibraryTest {
 protected:
  int list(std::size_t element_size = 40) {
    list_ = {element_size, {}};
    return qGetTemplateList(&paths_, host_, port_, &list_);
  }
  static std::string entry(const std::string &constant) { return padded(constant, 39) + "#####"; }
  static std::string page(const std::string &entries, char more, const char *return_code = "0000") {
    char count[16];
    std::snprintf(count, sizeof count, "%05zu", entries.size());
    return framed("1123" + std::string(return_code) + more + count) + entries;
  }
  LinkedList list_{40, {}};
};

TEST_F(TemplateListTest, AppendsTheTrimmedConstantsOfEveryPage) {
  connection().replies = page(entry("FIRST") + entry("SECOND"), 'Y') + page(entry("THIRD"), 'N');
  ASSERT_EQ(list(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre("FIRST", "SECOND", "THIRD"));
  EXPECT_THAT(connection().writes, ElementsAre("000041123"));
  EXPECT_THAT(connection().reads,
              ElementsAre(Read{5, 60}, Read{14, 60}, Read{88, 60}, Read{5, 60}, Read{14, 60}, Read{44, 60}));
  EXPECT_THAT(
      connection().traces_of("orn/vesk/skeys"),
      ElementsAre("F: GetTemplateList", "iBytesRead <14>", "iBytesRead <0>", "Tran Len <00014>", "Tran Id <1123>",
                  "Return Code <0000>", "More Flag <Y>", "List Count <00088>", "template: <FIRST>",
                  "template: <SECOND>", "iBytesRead <14>", "iBytesRead <0>", "Tran Len <00014>", "Tran Id <1123>",
                  "Return Code <0000>", "More Flag <N>", "List Count <00044>", "template: <THIRD>"));
}

TEST_F(TemplateListTest, MakesTheReadOfAnEmptyBlock) {
  connection().replies = page("", 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.elements, IsEmpty());
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{14, 60}, Read{0, 60}));
}

TEST_F(TemplateListTest, TakesANegativeCountForZero) {
  connection().replies = framed("11230000N-0044");
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{14, 60}, Read{0, 60}));
}

TEST_F(TemplateListTest, EndsOnAnyMoreFlagButY) {
  for (const char more : {'N', 'y', ' ', '\0'}) {
    script::reset();
    connection().replies = page(entry("A"), more);
    EXPECT_EQ(list(), 0) << more;
    EXPECT_THAT(list_.texts(), ElementsAre("A"));
  }
}

TEST_F(TemplateListTest, TakesTheReturnCodeOfTheLastPage) {
  connection().replies = page(entry("A"), 'Y', "0005") + page(entry("B"), 'N', "0006");
  EXPECT_EQ(list(), 6);
  EXPECT_THAT(list_.texts(), ElementsAre("A", "B"));
  script::reset();
  connection().replies = page(entry("A"), 'Y', "0005") + page(entry("B"), 'N');
  EXPECT_EQ(list(), 0);
}

TEST_F(TemplateListTest, DropsWhatIsLeftOfABlock) {
  connection().replies = page(entry("A") + std::string(43, 'r'), 'Y') + page(std::string(43, 'r'), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre("A"));
}

struct ElementCase {
  std::size_t size;
  std::string expected;
};

TEST_F(TemplateListTest, CutsConstantsToShortElements) {
  const std::string constant = "123456789012345678901234567890123456789";
  for (const ElementCase &c :
       {ElementCase{10, "123456789"}, ElementCase{1, ""}, ElementCase{2, "1"}, ElementCase{38, constant.substr(0, 37)},
        ElementCase{39, constant}, ElementCase{40, constant}, ElementCase{41, constant}, ElementCase{500, constant}}) {
    script::reset();
    connection().replies = page(entry(constant), 'N');
    EXPECT_EQ(list(c.size), 0) << c.size;
    ASSERT_EQ(list_.elements.size(), 1u);
    EXPECT_EQ(list_.elements[0], c.expected + zeros(c.size - c.expected.size())) << c.size;
  }
}

TEST_F(TemplateListTest, SurvivesElementsWithoutRoom) {
  connection().replies = page(entry("A"), 'N');
  EXPECT_EQ(list(0), 0);
  EXPECT_THAT(list_.elements, ElementsAre(""));
}

TEST_F(TemplateListTest, KeepsAFullConstantFromRunningIntoTheNext) {
  connection().replies = page(std::string(44, 'a') + std::string(44, 'b'), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre(std::string(39, 'a'), std::string(39, 'b')));
}

TEST_F(TemplateListTest, KeepsAConstantOfBlanksAsItIs) {
  connection().replies = page(entry(""), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre(blanks(39)));
}

TEST_F(TemplateListTest, TransactionFunctionTakesANullListForNone) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1123");
  connection().replies = page(entry("A"), 'N');
  GetTemplateList(session.get(), nullptr);
  EXPECT_EQ(session->iStatus, 0);
  EXPECT_STREQ(session->caMoreFlag, "N");
  EXPECT_STREQ(session->caListCount, "00044");
}

TEST_F(TemplateListTest, ReadsABlockThatFitsInOnePiece) {
  std::string entries;
  for (int i = 0; i < 372; ++i) entries += entry("T" + std::to_string(i));
  ASSERT_LE(entries.size(), 16389u - 19u);
  connection().replies = page(entries, 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(list_.elements.size(), 372u);
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{14, 60}, Read{372 * 44, 60}));
}

TEST_F(TemplateListTest, ReadsABlockOfAnySizeInPiecesOfWholeEntriesAndStaysInStep) {
  std::string entries;
  for (int i = 0; i < 2272; ++i) entries += entry("T" + std::to_string(i));
  entries += std::string(31, 'r');
  ASSERT_EQ(entries.size(), 99999u);
  connection().replies = page(entries, 'Y') + page(entry("LAST"), 'N');
  EXPECT_EQ(list(), 0);
  ASSERT_EQ(list_.elements.size(), 2273u);
  for (int i = 0; i < 2272; ++i) ASSERT_STREQ(list_.elements[i].c_str(), ("T" + std::to_string(i)).c_str());
  EXPECT_STREQ(list_.elements.back().c_str(), "LAST");
  const auto &reads = connection().reads;
  for (std::size_t i = 2; i + 5 < reads.size(); ++i) EXPECT_EQ(reads[i].count % 44, 0) << i;
}

TEST_F(TemplateListTest, ReadsABlockBehindAPageThatFillsTheBuffer) {
  const std::string header = "11230000N00088";
  connection().replies = framed(padded(header, 16384)) + entry("A") + entry("B");
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre("A", "B"));
}

TEST_F(TemplateListTest, ShowsNothingOfThePageBeforeWhenOneIsCutShort) {
  connection().replies = page(entry("A"), 'Y') +
                         "00008"
                         "1123"
                         "0000";
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre("A"));
}

TEST_F(TemplateListTest, KeepsWhatWasAppendedBeforeAFailure) {
  const std::string whole = page(entry("A"), 'Y') + page(entry("B") + entry("C"), 'N');
  for (std::size_t length = 0; length < whole.size(); ++length) {
    script::reset();
    connection().replies = whole.substr(0, length);
    EXPECT_EQ(list(), script::kClosed) << length;
    EXPECT_EQ(list_.elements.size(), length < 63 ? 0u : 1u) << length;
  }
}

TEST_F(TemplateListTest, RefusesALaterPageAbove16384) {
  connection().replies = page(entry("A"), 'Y') + "99999";
  EXPECT_EQ(list(), ERR_LIST_SIZE);
  EXPECT_THAT(list_.texts(), ElementsAre("A"));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              testing::Contains("GetTemplateList ERR <9261> Transaction size <99999> exceeds maximum <16384>"));
}

}  // namespace
