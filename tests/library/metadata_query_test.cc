// The queries over the metadata of keys: file, list, criteria.
#include "tests/library/library_test.h"
#include "tests/library/temporary_file.h"

namespace {

using script::Read;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class QueryTest : public LibraryTest {
 protected:
  struct Term {
    const char *value;
    int op;
  };
  using Terms = std::array<Term, 16>;

  static Terms no_terms() {
    Terms terms;
    terms.fill({nullptr, 0});
    return terms;
  }
  int query_to_list(const Terms &t = no_terms(), std::size_t element_size = 496) {
    list_ = {element_size, {}};
    return qRetrieveMetadata_as_ll(&paths_, host_, port_, t[0].value, t[0].op, t[1].value, t[1].op, t[2].value, t[2].op,
                                   t[3].value, t[3].op, t[4].value, t[4].op, t[5].value, t[5].op, t[6].value, t[6].op,
                                   t[7].value, t[7].op, t[8].value, t[8].op, t[9].value, t[9].op, t[10].value, t[10].op,
                                   t[11].value, t[11].op, t[12].value, t[12].op, t[13].value, t[13].op, t[14].value,
                                   t[14].op, t[15].value, t[15].op, &list_);
  }
  int query_to_file(const char *path, const Terms &t = no_terms()) {
    return qRetrieveMetadata(&paths_, host_, port_, t[0].value, t[0].op, t[1].value, t[1].op, t[2].value, t[2].op,
                             t[3].value, t[3].op, t[4].value, t[4].op, t[5].value, t[5].op, t[6].value, t[6].op,
                             t[7].value, t[7].op, t[8].value, t[8].op, t[9].value, t[9].op, t[10].value, t[10].op,
                             t[11].value, t[11].op, t[12].value, t[12].op, t[13].value, t[13].op, t[14].value, t[14].op,
                             t[15].value, t[15].op, path);
  }

  // Field k of key N is "N-k".
  static std::string record(const std::string &name) {
    std::string text = padded(name, 40) + padded("I-" + name, 24) + "Y" + "0256" + "20260101" + "00000000" +
                       "20300101" + "N" + "0000" + "00000000" + "Y" + "00000000" + "N";
    for (int k = 1; k <= 16; ++k) text += metadata_label(k) + "'" + padded(name + "-" + std::to_string(k), 64) + "'";
    EXPECT_EQ(text.size(), 1236u);
    return text;
  }
  static std::string page(const std::string &records, char more, const char *return_code = "0000") {
    char size[16];
    std::snprintf(size, sizeof size, "%05zu", records.size() + 5);
    return framed("1053" + std::string(return_code) + more + size) + records;
  }
  static std::string line(const std::string &name) {
    std::string text = name;
    for (int k = 1; k <= 7; ++k) text += "," + name + "-" + std::to_string(k);
    return text + "\n";
  }
  std::vector<std::string> names() const { return list_.texts(); }

  LinkedList list_{496, {}};
  TemporaryFile file_;
};

TEST_F(QueryTest, WithoutCriteriaIsTheIdentifierAlone) {
  connection().replies = page("", 'N');
  EXPECT_EQ(query_to_list(), 0);
  EXPECT_THAT(connection().writes, ElementsAre("00004"
                                               "1053"));
  Terms terms;
  terms.fill({"value", 0});
  connection().replies = page("", 'N');
  EXPECT_EQ(query_to_list(terms), 0);
  EXPECT_EQ(connection().writes[1],
            "00004"
            "1053");
}

TEST_F(QueryTest, SendsABlankBetweenCriteriaAndNoneBefore) {
  Terms terms = no_terms();
  terms[1] = {"a", 1};
  terms[4] = {"b", 3};
  connection().replies = page("", 'N');
  EXPECT_EQ(query_to_list(terms), 0);
  EXPECT_THAT(connection().writes, ElementsAre("00153"
                                               "1053"
                                               "MD02 EQ '" +
                                               padded("a", 64) + "' MD05 CT '" + padded("b", 64) + "'"));
}

TEST_F(QueryTest, SendsAllSixteenCriteriaWithEveryOperator) {
  const char *const names[] = {"XX", "EQ", "NE", "CT", "GT", "LT", "GE", "LE"};
  Terms terms;
  std::string expected;
  for (int k = 1; k <= 16; ++k) {
    const int op = 1 + k % 7;
    terms[k - 1] = {"v", op};
    EXPECT_STREQ(opLut[op], names[op]);
    expected += (k == 1 ? "" : " ") + metadata_label(k) + " " + names[op] + " '" + padded("v", 64) + "'";
  }
  EXPECT_STREQ(opLut[0], "XX");
  connection().replies = page("", 'N');
  EXPECT_EQ(query_to_list(terms), 0);
  EXPECT_THAT(connection().writes, ElementsAre("01203"
                                               "1053" +
                                               expected));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("idx <15>"));
}

TEST_F(QueryTest, CutsAValueAbove64CharactersAndWithItTheClosingQuote) {
  const std::string v64(64, 'a'), v65(65, 'b'), v100(100, 'c');
  Terms terms = no_terms();
  terms[0] = {v64.c_str(), 1};
  terms[1] = {v65.c_str(), 1};
  terms[2] = {v100.c_str(), 1};
  connection().replies = page("", 'N');
  EXPECT_EQ(query_to_list(terms), 0);
  EXPECT_THAT(connection().writes, ElementsAre("00228"
                                               "1053"
                                               "MD01 EQ '" +
                                               v64 + "' MD02 EQ '" + v65 + " MD03 EQ '" + v100.substr(0, 65)));
}

TEST_F(QueryTest, RefusesAnOperatorOutsideTheTableBeforeAnythingElse) {
  for (const int op : {-1, 8, 1000, -2147483647 - 1}) {
    for (const int k : {1, 16}) {
      Terms terms = no_terms();
      terms[k - 1] = {"value", op};
      EXPECT_EQ(query_to_list(terms), ERR_METADATA_ARGUMENT);
      EXPECT_EQ(query_to_file(file_.path().c_str(), terms), ERR_METADATA_ARGUMENT);
      EXPECT_THAT(connection().events, IsEmpty());
    }
  }
  EXPECT_FALSE(file_.exists());
}

TEST_F(QueryTest, AppendsSummariesOfEveryPage) {
  connection().replies = page(record("A") + record("B"), 'Y') + page(record("C"), 'N');
  EXPECT_EQ(query_to_list(), 0);
  ASSERT_THAT(names(), ElementsAre("A", "B", "C"));
  KeyMetadataSummary summary;
  ASSERT_EQ(list_.elements[2].size(), sizeof summary);
  std::memcpy(&summary, list_.elements[2].data(), sizeof summary);
  for (int k = 1; k <= 7; ++k) EXPECT_EQ(summary.md[k - 1], "C-" + std::to_string(k));
  EXPECT_THAT(connection().reads,
              ElementsAre(Read{5, 300}, Read{14, 60}, Read{2472, 60}, Read{5, 300}, Read{14, 60}, Read{1236, 60}));
}

TEST_F(QueryTest, TracesARecordsFieldsUpToTheSeventh) {
  connection().replies = page(record("A"), 'N');
  EXPECT_EQ(query_to_list(), 0);
  std::vector<std::string> expected = {"F: RetrieveMetadata"};
  for (int i = 0; i < 16; ++i) expected.push_back("idx <" + std::to_string(i) + ">");
  for (const char *text : {"iBytesRead <14>", "iBytesRead <0>", "Tran Len <00014>", "Tran Id <1053>",
                           "Return Code <0000>", "More Flag <N>", "Data Size <01241>", "iNrRecords <1>"})
    expected.emplace_back(text);
  expected.push_back("Key Name <" + padded("A", 40) + ">");
  expected.push_back("Instance <" + padded("I-A", 24) + ">");
  for (const char *text :
       {"Current <Y>", "Key Size Bits <0256>", "Creation Date <20260101>", "Activation Date <00000000>",
        "Expiration Date <20300101>", "Rollover Code <N>", "Rollover Days <0000>", "Last Rollover Date <00000000>",
        "Deletable <Y>", "Revoked Date <00000000>", "Mirror Key <N>"})
    expected.emplace_back(text);
  for (int k = 1; k <= 7; ++k)
    expected.push_back(metadata_label(k) + " <" + padded("A-" + std::to_string(k), 64) + ">");
  EXPECT_EQ(connection().traces_of("orn/vesk/skeys"), expected);
}

TEST_F(QueryTest, WritesALineForEachRecord) {
  connection().replies = page(record("A") + record("B"), 'Y') + page(record("C"), 'N');
  EXPECT_EQ(query_to_file(file_.path().c_str()), 0);
  EXPECT_EQ(file_.contents(), line("A") + line("B") + line("C"));
}

TEST_F(QueryTest, ShowsNothingOfTheRecordBeforeInAShorterOne) {
  std::string shorter = record("S");
  shorter.replace(0, 40, "S" + zeros(39));
  shorter.replace(121, 64, zeros(64));
  connection().replies = page(record("LONGNAME") + shorter, 'N');
  EXPECT_EQ(query_to_list(), 0);
  EXPECT_THAT(names(), ElementsAre("LONGNAME", "S"));
  EXPECT_EQ(list_.elements[1].substr(0, 41 + 65), "S" + zeros(40 + 65));
}

TEST_F(QueryTest, LeavesAFieldOfBlanksAsItIs) {
  std::string blank = record("A");
  blank.replace(121, 64, blanks(64));
  connection().replies = page(blank, 'N');
  EXPECT_EQ(query_to_list(), 0);
  EXPECT_EQ(list_.elements[0].substr(41, 65), blanks(64) + '\0');
}

TEST_F(QueryTest, TrimsTheEndsOfFieldsAndKeepsFullOnesWhole) {
  const std::string name(40, 'n'), full(64, 'f');
  std::string text = record(name);
  text.replace(121, 64, full);                        // MD01
  text.replace(191, 64, padded("  a\tb \t\n ", 64));  // MD02
  text.replace(541, 64, full);                        // MD07
  connection().replies = page(text, 'N') + page(text, 'N');
  EXPECT_EQ(query_to_list(), 0);
  const std::string &element = list_.elements.at(0);
  EXPECT_EQ(element.substr(0, 41), name + '\0');
  EXPECT_EQ(element.substr(41, 65), full + '\0');
  EXPECT_STREQ(element.c_str() + 106, "  a\tb");
  EXPECT_EQ(element.substr(431), full + '\0');
  EXPECT_EQ(query_to_file(file_.path().c_str()), 0);
  EXPECT_THAT(file_.contents(), testing::StartsWith(name + "," + full + ",  a\tb," + name + "-3,"));
  EXPECT_THAT(file_.contents(), testing::EndsWith("," + full + "\n"));
}

TEST_F(QueryTest, EndsOnlyOnAnN) {
  for (const char more : {'Y', 'y', ' ', '\0'}) {
    script::reset();
    connection().replies = page(record("A"), more) + page(record("B"), 'N');
    EXPECT_EQ(query_to_list(), 0);
    EXPECT_THAT(names(), ElementsAre("A", "B")) << more;
  }
}

TEST_F(QueryTest, EndsOnAPageWithoutRecordsWhateverItsMoreFlag) {
  for (const char *size : {"00005", "00004", "00000", "-0001", "     "}) {
    script::reset();
    connection().replies = framed(std::string("10530000Y") + size);
    EXPECT_EQ(query_to_list(), 0);
    EXPECT_THAT(connection().reads, ElementsAre(Read{5, 300}, Read{14, 60})) << size;
  }
}

TEST_F(QueryTest, DropsWhatIsLeftOfABlock) {
  connection().replies = page(record("A") + std::string(1235, 'r'), 'Y') + page(std::string(7, 'r'), 'N');
  EXPECT_EQ(query_to_list(), 0);
  EXPECT_THAT(names(), ElementsAre("A"));
}

TEST_F(QueryTest, EndsOnAReturnCodeAndKeepsWhatCameBefore) {
  for (const char *more_and_size : {"N00005", "Y01241"}) {  // a block that is declared is not read
    script::reset();
    connection().replies = page(record("A"), 'Y') + framed(std::string("10530106") + more_and_size);
    EXPECT_EQ(query_to_list(), 106);
    EXPECT_THAT(names(), ElementsAre("A"));
    EXPECT_EQ(connection().reads.size(), 5u);
  }
}

TEST_F(QueryTest, HandlesTheRecordsOfAFailedReadAsEmptyOnesAndReturnsItsStatus) {
  connection().replies = page(record("A"), 'Y') + framed("10530000Y02477") + record("B").substr(0, 600);
  EXPECT_EQ(query_to_file(file_.path().c_str()), script::kClosed);
  EXPECT_EQ(file_.contents(), line("A") + "B,B-1,B-2,B-3,B-4,B-5,B-6,B-7\n" + ",,,,,,,\n");
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("iNrRecords <2>"));
}

// Neither the page's header nor the piece before it is taken for a record, and nothing is read behind the failure.
TEST_F(QueryTest, ShowsNothingStaleForAPieceThatCouldNotBeRead) {
  std::string records;
  for (int i = 0; i < 14; ++i) records += record("K" + std::to_string(i));
  for (const int failing : {2, 3}) {
    script::reset();
    connection().replies = page(records, 'Y') + page(record("LAST"), 'N');
    connection().failing_reads = {{failing, 30062}};
    EXPECT_EQ(query_to_list(), 30062);
    std::vector<std::string> expected(14);
    for (int i = 0; failing == 3 && i < 13; ++i) expected[i] = "K" + std::to_string(i);
    EXPECT_EQ(names(), expected);
    EXPECT_EQ(connection().reads.size(), failing + 1u);
    connection().replies.clear();
  }
}

TEST_F(QueryTest, ReadsABlockOfAnySizeInPiecesOfWholeRecords) {
  std::string records;
  for (int i = 0; i < 80; ++i) records += record("K" + std::to_string(i));
  records += std::string(99994 - records.size(), 'r');
  connection().replies = page(records, 'Y') + page(record("LAST"), 'N');
  EXPECT_EQ(query_to_list(), 0);
  ASSERT_EQ(list_.elements.size(), 81u);
  for (int i = 0; i < 80; ++i) EXPECT_EQ(names()[i], "K" + std::to_string(i));
  EXPECT_EQ(names()[80], "LAST");
  std::vector<Read> reads = {{5, 300}, {14, 60}};
  reads.insert(reads.end(), 6, {13 * 1236, 60});
  for (const Read &read : {Read{99994 - 78 * 1236, 60}, {5, 300}, {14, 60}, {1236, 60}}) reads.push_back(read);
  EXPECT_EQ(connection().reads, reads);
}

TEST_F(QueryTest, ReadsABlockThatFillsTheBufferAtOnce) {
  for (const int bytes : {16389, 16390}) {
    script::reset();
    std::string records;
    for (int i = 0; i < 13; ++i) records += record("K" + std::to_string(i));
    connection().replies = page(records + std::string(bytes - records.size(), 'r'), 'N');
    EXPECT_EQ(query_to_list(), 0);
    EXPECT_EQ(list_.elements.size(), 13u);
    EXPECT_EQ(connection().reads.at(2), (Read{bytes == 16389 ? 16389 : 13 * 1236, 60}));
    EXPECT_EQ(connection().reads.size(), bytes == 16389 ? 3u : 4u);
  }
}

TEST_F(QueryTest, FillsElementsOfAnySize) {
  for (const std::size_t size : {0u, 3u, 41u, 496u, 2000u}) {
    script::reset();
    connection().replies = page(record("ABC"), 'N');
    EXPECT_EQ(query_to_list(no_terms(), size), 0);
    ASSERT_EQ(list_.elements.size(), 1u);
    EXPECT_EQ(list_.elements[0].size(), size);
    EXPECT_EQ(list_.elements[0].substr(0, 3), std::string("ABC").substr(0, size));
  }
}

TEST_F(QueryTest, SucceedsWithoutReadingWhenTheFileCannotBeOpened) {
  EXPECT_EQ(query_to_file((file_.folder() + "/missing/file").c_str()), 0);
  EXPECT_EQ(connection().writes.size(), 1u);
  EXPECT_THAT(connection().reads, IsEmpty());
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("Unable to open output file"));
}

TEST_F(QueryTest, MakesNoFileWhenTheRequestCannotBeSent) {
  connection().failing_writes = {{0, 30061}};
  EXPECT_EQ(query_to_file(file_.path().c_str()), 30061);
  EXPECT_FALSE(file_.exists());
}

TEST_F(QueryTest, WritesNoFileForAnEmptyPath) {
  connection().replies = page(record("A"), 'N');
  EXPECT_EQ(query_to_file(""), 0);
}

TEST_F(QueryTest, OnlyTracesAFullDisk) {
  connection().replies = page(record("A"), 'N');
  EXPECT_EQ(query_to_file("/dev/full"), 0);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              Contains(testing::StartsWith("Failed to write to the file.  Bytes written: <")));

  script::reset();
  std::string records;
  for (int i = 0; i < 80; ++i) records += record(std::string(40, 'n'));
  connection().replies = page(records, 'Y') + page(records, 'Y') + page(records, 'N');
  EXPECT_EQ(query_to_file("/dev/full"), 0);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              Contains(testing::StartsWith("Failed to write to the file.  Bytes written: <")));
  EXPECT_FALSE(connection().replies.empty()) << "the query went on after a line that could not be written";
  connection().replies.clear();
}

TEST_F(QueryTest, RefusesALaterPageAbove16384) {
  connection().replies = page(record("A"), 'Y') + "16385";
  EXPECT_EQ(query_to_list(), ERR_METADATA_TRANSACTION_SIZE);
  EXPECT_THAT(names(), ElementsAre("A"));
}

TEST_F(QueryTest, TransactionFunctionStopsAtTheFirstNullCriterion) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1053");
  session->pcaFilter[0] = "MD01 EQ 'x'";
  connection().replies = page("", 'N');
  RetrieveMetadata(session.get(), nullptr);
  EXPECT_EQ(session->iStatus, 0);
  EXPECT_THAT(connection().writes, ElementsAre("00015"
                                               "1053"
                                               "MD01 EQ 'x'"));
}

TEST_F(QueryTest, TransactionFunctionPutsNameAndInstanceBeforeTheCriteria) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1053");
  std::strcpy(session->request.caKeyName, "K1");
  std::strcpy(session->request.caInstance, "I1");
  std::strcpy(session->request.caDataFile, file_.path().c_str());
  session->pcaFilter[0] = "";
  session->pcaFilter[1] = "MD02 EQ 'x'";
  connection().replies = page(record("A"), 'N');
  list_ = {496, {}};
  RetrieveMetadata(session.get(), &list_);
  EXPECT_EQ(session->iStatus, 0);
  EXPECT_THAT(connection().writes, ElementsAre("00019"
                                               "1053"
                                               "K1I1"
                                               "MD02 EQ 'x'"));
  // A file and a list at a time.
  EXPECT_EQ(file_.contents(), line("A"));
  EXPECT_THAT(names(), ElementsAre("A"));
}

TEST_F(QueryTest, TransactionFunctionTakesNoMoreThanTheWidthsOfFieldsWithoutTerminator) {
  const auto session = open_session();
  RequestFields &request = session->request;
  std::memset(request.caTranId, '1', sizeof request.caTranId);
  std::memset(request.caKeyName, 'k', sizeof request.caKeyName);
  std::memset(request.caInstance, 'i', sizeof request.caInstance);
  connection().replies = page("", 'N');
  RetrieveMetadata(session.get(), nullptr);
  EXPECT_THAT(connection().writes, ElementsAre("000681111" + std::string(40, 'k') + std::string(24, 'i')));
}

TEST_F(QueryTest, TransactionFunctionCutsLongCriteriaAndTheRequestAtItsRoom) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1053");
  const std::string criterion = std::string(75, 'c') + std::string(75, 'X');
  for (const char *&filter : session->pcaFilter) filter = criterion.c_str();
  connection().replies = page("", 'N');
  RetrieveMetadata(session.get(), nullptr);
  ASSERT_EQ(connection().writes.size(), 1u);
  std::string expected = "012091053" + std::string(75, 'c');
  while (expected.size() < 1214) expected += " " + std::string(75, 'c');
  EXPECT_EQ(connection().writes[0], expected.substr(0, 1214));
}

}  // namespace
