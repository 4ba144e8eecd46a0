// The paged list of key names: file, list, filter, highest sequence.
#include <fcntl.h>

#include "tests/library/library_test.h"
#include "tests/library/temporary_file.h"

namespace {

using script::Read;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

std::string page(const std::string &names, char more, const char *return_code = "0000") {
  char count[16];
  std::snprintf(count, sizeof count, "%05zu", names.size());
  return framed("1037" + std::string(return_code) + more + count) + names;
}

// A name whose characters 16 to 21 are the sequence.
std::string name(const std::string &sequence, const std::string &prefix = "TEMPLATE0000001") {
  return padded(padded(prefix, 15) + sequence, 40);
}

class KeyNamesTest : public LibraryTest {
 protected:
  int list(const char *filter = "", std::size_t element_size = 41) {
    list_ = {element_size, {}};
    return qRetrieveKeyNameListFiltered_as_ll(&paths_, host_, port_, &list_, filter, &highest_);
  }
  int write(const char *path, const char *filter = "") {
    return qRetrieveKeyNameListFiltered(&paths_, host_, port_, path, filter, &highest_);
  }
  LinkedList list_{41, {}};
  uint32_t highest_ = 4711;
  TemporaryFile file_;
};

TEST_F(KeyNamesTest, AppendsNamesWithTheirBlanks) {
  connection().replies = page(name("000001") + name("00000A"), 'Y') + page(name("000003"), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.elements, ElementsAre(name("000001") + '\0', name("00000A") + '\0', name("000003") + '\0'));
  EXPECT_EQ(highest_, 10u);
  EXPECT_THAT(connection().reads,
              ElementsAre(Read{5, 300}, Read{14, 60}, Read{80, 60}, Read{5, 300}, Read{14, 60}, Read{40, 60}));
  EXPECT_THAT(
      connection().traces_of("orn/vesk/skeys"),
      ElementsAre("F: DisplayKeyNameList", "iBytesRead <14>", "iBytesRead <0>", "Tran Len <00014>", "Tran Id <1037>",
                  "Return Code <0000>", "More Flag <Y>", "List Count <00080>", name("000001") + "\n",
                  "Set highest sequence to <1>", name("00000A") + "\n", "Set highest sequence to <10>",
                  "iBytesRead <14>", "iBytesRead <0>", "Tran Len <00014>", "Tran Id <1037>", "Return Code <0000>",
                  "More Flag <N>", "List Count <00040>", name("000003") + "\n", name("000003")));
}

TEST_F(KeyNamesTest, WritesALineOf40CharactersForEachName) {
  connection().replies = page(name("000001") + name("000002"), 'N');
  EXPECT_EQ(write(file_.path().c_str()), 0);
  EXPECT_EQ(file_.contents(), name("000001") + "\n" + name("000002") + "\n");
  EXPECT_EQ(highest_, 2u);
}

TEST_F(KeyNamesTest, UnfilteredCallsDiscardTheSequence) {
  connection().replies = page(name("000001"), 'N');
  EXPECT_EQ(qRetrieveKeyNameList(&paths_, host_, port_, file_.path().c_str()), 0);
  EXPECT_EQ(file_.contents(), name("000001") + "\n");
  connection().replies = page(name("000002"), 'N');
  EXPECT_EQ(qRetrieveKeyNameList_as_ll(&paths_, host_, port_, &list_), 0);
  EXPECT_THAT(list_.elements, ElementsAre(name("000002") + '\0'));
}

TEST_F(KeyNamesTest, WriteNoFileForAnEmptyOrNullPath) {
  for (const char *path : {"", static_cast<const char *>(nullptr)}) {
    script::reset();
    connection().replies = page(name("000001"), 'N');
    EXPECT_EQ(write(path), 0);
    EXPECT_EQ(highest_, 1u);
  }
}

TEST_F(KeyNamesTest, OfAServerWithoutKeysAreNone) {
  connection().replies = page("", 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.elements, IsEmpty());
  EXPECT_EQ(highest_, 16777215u);
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 300}, Read{14, 60}));
  EXPECT_EQ(connection().traces_of("orn/vesk/skeys").back(), "") << "there is no last name";
}

TEST_F(KeyNamesTest, MakeNoReadForANegativeCount) {
  connection().replies = framed("10370000N-0040");
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 300}, Read{14, 60}));
}

TEST_F(KeyNamesTest, AreFilteredByPrefix) {
  connection().replies =
      page(name("000001", "AB") + name("000009", "AC") + name("000002", "ABC") + name("000008", " AB"), 'N');
  EXPECT_EQ(list("AB"), 0);
  EXPECT_THAT(list_.elements, ElementsAre(name("000001", "AB") + '\0', name("000002", "ABC") + '\0'));
  EXPECT_EQ(highest_, 2u);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Not(Contains(name("000009", "AC") + "\n")));
}

TEST_F(KeyNamesTest, CompareAtMost40CharactersOfAFilter) {
  const std::string whole = name("000001");
  for (const std::string &filter : {whole, whole + "X", whole + std::string(100, 'X')}) {
    script::reset();
    connection().replies = page(whole + name("000002"), 'N');
    EXPECT_EQ(list(filter.c_str()), 0);
    EXPECT_THAT(list_.elements, ElementsAre(whole + '\0'));
  }
  connection().replies = page(whole, 'N');
  EXPECT_EQ(list((whole.substr(0, 39) + "X").c_str()), 0);
  EXPECT_THAT(list_.elements, IsEmpty());
}

TEST_F(KeyNamesTest, TraceTheLastNameHandledFilteredOrNot) {
  connection().replies = page(name("000001", "AB") + name("000009", "AC"), 'N');
  EXPECT_EQ(list("AB"), 0);
  EXPECT_EQ(connection().traces_of("orn/vesk/skeys").back(), name("000009", "AC"));
}

struct SequenceCase {
  const char *rule;
  std::vector<std::string> sequences;
  uint32_t highest;
};

TEST_F(KeyNamesTest, CarryTheHighestSequence) {
  const SequenceCase cases[] = {
      {"the highest wins", {"000001", "0000FF", "000002"}, 255},
      {"zeros start anew", {"00001A", "000000", "000005"}, 5},
      {"zeros at the end leave zero", {"00001A", "000000"}, 0},
      {"what is no number counts as zero while nothing was seen", {"ZZZZZZ"}, 0},
      {"and is passed over later", {"000005", "ZZZZZZ"}, 5},
      {"blanks are no number", {"      "}, 0},
      {"lower-case digits count", {"00000a"}, 10},
      {"conversion stops at the first other character", {"1AZ000"}, 26},
      {"the highest number stands for nothing seen", {"FFFFFF"}, 16777215},
      {"so that the next one replaces it", {"FFFFFF", "000003"}, 3},
      {"zero written otherwise does not start anew", {"000007", "0     "}, 7},
      {"blanks before digits do not count", {"  00FF"}, 255},
      {"nor does what stands before hexadecimal digits", {"0x00FF", "000003"}, 255},
      {"a number below zero is the highest there is, of which six digits are told", {"-00001", "000005"}, 16777215},
  };
  for (const SequenceCase &c : cases) {
    script::reset();
    std::string names;
    for (const std::string &sequence : c.sequences) names += name(sequence);
    connection().replies = page(names, 'N');
    EXPECT_EQ(list(), 0) << c.rule;
    EXPECT_EQ(highest_, c.highest) << c.rule;
  }
}

TEST_F(KeyNamesTest, TraceASequenceThatStartsAnew) {
  connection().replies = page(name("000000"), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("Set highest sequence to zero"));
}

TEST_F(KeyNamesTest, EndOnAnyMoreFlagButY) {
  for (const char more : {'N', 'y', ' ', '\0'}) {
    script::reset();
    connection().replies = page(name("000001"), more);
    EXPECT_EQ(list(), 0);
    EXPECT_EQ(list_.elements.size(), 1u);
  }
}

TEST_F(KeyNamesTest, DropWhatIsLeftOfABlock) {
  connection().replies = page(name("000001") + std::string(39, 'r'), 'Y') + page(name("000002"), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.elements, ElementsAre(name("000001") + '\0', name("000002") + '\0'));
}

TEST_F(KeyNamesTest, AreDeliveredBeforeTheReturnCodeIsLookedAt) {
  connection().replies = page(name("000001"), 'Y', "0009") + page(name("000002"), 'N', "0008");
  EXPECT_EQ(list(), 8);
  EXPECT_EQ(list_.elements.size(), 2u);
  EXPECT_EQ(highest_, 4711u) << "written on success only";
  script::reset();
  connection().replies = page(name("000001"), 'Y', "0009") + page(name("000002"), 'N');
  EXPECT_EQ(list(), 0);
}

TEST_F(KeyNamesTest, FillElementsOfAnySize) {
  for (const std::size_t size : {0u, 1u, 10u, 40u, 41u, 200u}) {
    script::reset();
    connection().replies = page(name("000001"), 'N');
    EXPECT_EQ(list("", size), 0);
    std::string expected = name("000001");
    expected.resize(size, '\0');
    EXPECT_THAT(list_.elements, ElementsAre(expected)) << size;
  }
}

TEST_F(KeyNamesTest, AreReadInPiecesFromABlockOfAnySize) {
  std::string names;
  for (int i = 0; i < 2499; ++i) {
    char sequence[16];
    std::snprintf(sequence, sizeof sequence, "%06X", static_cast<unsigned>(i + 1));
    names += name(sequence);
  }
  names += std::string(39, 'r');
  ASSERT_EQ(names.size(), 99999u);
  connection().replies = page(names, 'Y') + page(name("FFFFF0"), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(list_.elements.size(), 2500u);
  EXPECT_EQ(list_.elements[2498].substr(15, 6), "0009C3");
  EXPECT_EQ(highest_, 0xFFFFF0u);
  std::vector<Read> reads = {{5, 300}, {14, 60}};
  reads.insert(reads.end(), 6, {409 * 40, 60});
  for (const Read &read : {Read{99999 - 2454 * 40, 60}, {5, 300}, {14, 60}, {40, 60}}) reads.push_back(read);
  EXPECT_EQ(connection().reads, reads);
}

// Its room is what the page has left of the buffer.
TEST_F(KeyNamesTest, AreReadAtOnceFromABlockThatHasRoomBehindItsPage) {
  std::string names;
  for (int i = 0; i < 409; ++i) names += name("000001");
  connection().replies = page(names + std::string(10, 'r'), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(list_.elements.size(), 409u);
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 300}, Read{14, 60}, Read{16370, 60}));

  script::reset();
  connection().replies = page(names + std::string(11, 'r'), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(list_.elements.size(), 409u);
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 300}, Read{14, 60}, Read{16360, 60}, Read{11, 60}));

  script::reset();
  connection().replies = framed(padded("10370000N00040", 16384)) + name("00000B");  // a page that leaves none
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.elements, ElementsAre(name("00000B") + '\0'));
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 300}, Read{16384, 60}, Read{40, 60}));
}

TEST_F(KeyNamesTest, GoOnForManyPagesInTheSameMemory) {
  const std::string names = name("000001") + name("000002");
  for (int i = 0; i < 1000; ++i) connection().replies += page(names, i == 999 ? 'N' : 'Y');
  EXPECT_EQ(write(file_.path().c_str()), 0);
  EXPECT_EQ(file_.contents().size(), 2000u * 41u);
}

TEST_F(KeyNamesTest, ReturnTheStatusOfAFileThatCannotBeOpenedAfterTheRequest) {
  const std::string path = file_.folder() + "/missing/file";
  EXPECT_EQ(write(path.c_str()), ERR_LIST_FILE);
  EXPECT_EQ(connection().writes.size(), 1u);
  EXPECT_THAT(connection().reads, IsEmpty());
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: DisplayKeyNameList", "Failed to open data file <" + path + ">"));
  EXPECT_EQ(highest_, 4711u);
}

TEST_F(KeyNamesTest, MakeNoFileWhenTheRequestCannotBeSent) {
  connection().failing_writes = {{0, 30061}};
  EXPECT_EQ(write(file_.path().c_str()), 30061);
  EXPECT_FALSE(file_.exists());
  EXPECT_EQ(highest_, 4711u);
}

TEST_F(KeyNamesTest, LeaveTheSequenceAloneWhenThereIsNoConnection) {
  connection().setup_status = 30006;
  EXPECT_EQ(list(), 30006);
  EXPECT_EQ(write(file_.path().c_str()), 30006);
  EXPECT_EQ(highest_, 4711u);
  EXPECT_FALSE(file_.exists());
}

TEST_F(KeyNamesTest, CutAnOverlongPath) {
  EXPECT_EQ(write(("/" + std::string(5000, 'p')).c_str()), ERR_LIST_FILE);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              Contains("Failed to open data file </" + std::string(2047, 'p') + ">"));
}

TEST_F(KeyNamesTest, EndWithStatusZeroOnAFullDisk) {
  std::string names;
  for (int i = 0; i < 400; ++i) names += name("000001");
  connection().replies = page(names, 'Y') + page(names, 'N');
  EXPECT_EQ(write("/dev/full"), 0);
  EXPECT_EQ(highest_, 0u);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              Contains(testing::StartsWith("Failed to write to the file.  Bytes written: <")));
  connection().replies.clear();

  // A short list meets the full disk only when the file is closed.
  script::reset();
  connection().replies = page(name("000001"), 'N');
  EXPECT_EQ(write("/dev/full"), 0);
  EXPECT_EQ(highest_, 0u);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("Failed to write to the file.  Bytes written: <0>"));
}

TEST_F(KeyNamesTest, KeepWhatWasDeliveredBeforeAFailureAndCloseTheFile) {
  const std::string whole = page(name("000001"), 'Y') + page(name("000002"), 'N');
  const int before = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(before);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    script::reset();
    connection().replies = whole.substr(0, length);
    EXPECT_EQ(write(file_.path().c_str()), script::kClosed) << length;
    EXPECT_EQ(file_.contents(), length < 59 ? "" : name("000001") + "\n") << length;
    EXPECT_EQ(highest_, 4711u);
  }
  const int after = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(after);
  EXPECT_EQ(before, after) << "a descriptor was left open";
}

TEST_F(KeyNamesTest, RefuseALaterPageAbove16384) {
  connection().replies = page(name("000001"), 'Y') + "16385";
  EXPECT_EQ(list(), ERR_TRANSACTION_SIZE);
  EXPECT_EQ(list_.elements.size(), 1u);
}

TEST_F(KeyNamesTest, ShowNothingOfThePageBeforeWhenOneIsCutShort) {
  connection().replies = page(name("000001"), 'Y') +
                         "00008"
                         "1037"
                         "0000";
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(list_.elements.size(), 1u);
}

TEST_F(KeyNamesTest, TransactionFunctionFillsAFileAndAListAtATime) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1037");
  std::strcpy(session->request.caDataFile, file_.path().c_str());
  std::strcpy(session->request.caKeyFilter, "AB");
  connection().replies = page(name("000001", "AB") + name("000002", "AC"), 'N');
  DisplayKeyNameList(session.get(), &list_);
  EXPECT_EQ(session->iStatus, 0);
  EXPECT_EQ(file_.contents(), name("000001", "AB") + "\n");
  EXPECT_THAT(list_.elements, ElementsAre(name("000001", "AB") + '\0'));
}

TEST_F(KeyNamesTest, TransactionFunctionTakesANullListForNone) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1037");
  connection().replies = page(name("00002A"), 'N');
  DisplayKeyNameList(session.get(), nullptr);
  EXPECT_EQ(session->iStatus, 0);
  EXPECT_STREQ(session->request.caHighestSequence, "00002A");
  EXPECT_STREQ(session->caMoreFlag, "N");
  EXPECT_STREQ(session->caListCount, "00040");
}

}  // namespace
