// Key metadata: the sixteen fields and the queries over them.
#include <sys/mman.h>

#include "tests/library/library_test.h"
#include "tests/library/temporary_file.h"

namespace {

using script::Read;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

std::string label(int k) {
  return std::string("MD") + (k < 10 ? "0" : "") + std::to_string(k);
}

using Fields = std::array<const char *, 16>;

class SetMetadataTest : public LibraryTest {
 protected:
  int set(const Fields &f) {
    return qSetMetadata(&paths_, host_, port_, "K1", "", f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9],
                        f[10], f[11], f[12], f[13], f[14], f[15]);
  }
  static Fields fields() {
    Fields f;
    f.fill("text");
    return f;
  }
  static std::string sent(int k) { return connection().writes.at(0).substr(78 + 70 * (k - 1), 64); }
};

TEST_F(SetMetadataTest, SendsEveryFieldAt64Characters) {
  Fields f = fields();
  const std::string v63(63, 'c'), v64(64, 'd'), v65 = std::string(64, 'e') + "X";
  f[0] = "";
  f[1] = "abc";
  f[13] = v63.c_str();
  f[14] = v64.c_str();
  f[15] = v65.c_str();
  connection().replies = framed("10390000" + padded("K1", 40) + padded("I1", 24));
  EXPECT_EQ(set(f), 0);
  ASSERT_EQ(connection().writes[0].size(), 1193u);
  EXPECT_EQ(connection().writes[0].substr(0, 78), "011881039" + padded("K1", 40) + blanks(24) + "MD01'");
  EXPECT_EQ(sent(1), blanks(64));
  EXPECT_EQ(sent(2), padded("abc", 64));
  EXPECT_EQ(sent(14), v63 + " ");
  EXPECT_EQ(sent(15), v64);
  EXPECT_EQ(sent(16), std::string(64, 'e'));
  EXPECT_EQ(connection().writes[0].substr(1122, 6), "'MD16'");
  EXPECT_EQ(connection().writes[0].back(), '\'');
}

TEST_F(SetMetadataTest, TracesTheFieldsAndTheReply) {
  connection().replies = framed("10390000" + padded("K1", 40) + padded("I1", 24));
  EXPECT_EQ(set(fields()), 0);
  std::string expected = "Metadata:\n";
  for (int k = 1; k <= 16; ++k) expected += "[" + padded("text", 64) + "]\n";
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), ElementsAre(expected));
  EXPECT_THAT(
      connection().traces_of("orn/vesk/skeys"),
      ElementsAre("F: SetMetadata", "iBytesRead <72>", "iBytesRead <0>", "Tran Len <00072>", "Tran Id <1039>",
                  "Return Code <0000>", "Key Name <" + padded("K1", 40) + ">", "Instance <" + padded("I1", 24) + ">"));
}

TEST_F(SetMetadataTest, RefusesANullFieldButTheThirdBeforeAnythingElse) {
  for (int k = 1; k <= 16; ++k) {
    script::reset();
    Fields f = fields();
    f[k - 1] = nullptr;
    connection().replies = framed("10390000");
    EXPECT_EQ(set(f), k == 3 ? 0 : ERR_METADATA_ARGUMENT) << k;
    if (k == 3) {
      EXPECT_EQ(sent(3), blanks(64));
    } else {
      EXPECT_THAT(connection().events, IsEmpty()) << k;
    }
    connection().replies.clear();
  }
}

TEST_F(SetMetadataTest, RefusesAddressesThatShareNoBit) {
  // Two pages at addresses without a common bit, the offset into each being 0.
  const auto page_at = [](std::uintptr_t address) {
    return mmap(reinterpret_cast<void *>(address), 4096, PROT_READ | PROT_WRITE,
                MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  };
  void *const low = page_at(0x10000000), *const high = page_at(0x20000000);
  ASSERT_EQ(low, reinterpret_cast<void *>(0x10000000));
  ASSERT_EQ(high, reinterpret_cast<void *>(0x20000000));
  Fields f;
  f.fill(static_cast<const char *>(low));
  f[7] = static_cast<const char *>(high);
  EXPECT_EQ(set(f), ERR_METADATA_ARGUMENT);
  EXPECT_THAT(connection().events, IsEmpty());

  // The third is not among them; all the others at one address share its bit.
  f.fill(static_cast<const char *>(low));
  f[2] = static_cast<const char *>(high);
  connection().replies = framed("10390000");
  EXPECT_EQ(set(f), 0);
  munmap(low, 4096);
  munmap(high, 4096);
}

TEST_F(SetMetadataTest, TransactionFunctionRefusesAFieldOfAnotherLength) {
  for (int k = 1; k <= 16; ++k) {
    for (const std::size_t length : {0u, 10u, 63u}) {
      script::reset();
      const auto session = open_session();
      for (auto &field : session->request.caMetadata) std::strcpy(field, padded("text", 64).c_str());
      std::strcpy(session->request.caMetadata[k - 1], std::string(length, 'x').c_str());
      if (k < 16) session->request.caMetadata[15][0] = '\0';  // the first failure counts
      testing::internal::CaptureStdout();
      SetMetadata(session.get());
      const std::string printed = testing::internal::GetCapturedStdout();
      const std::string message = "SetMetadata ERR <" + std::to_string(10000 - k) + "> " + label(k) + " size <" +
                                  std::to_string(length) + "> should be <64>";
      EXPECT_EQ(session->iStatus, 10000 - k);
      EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), ElementsAre("F: SetMetadata", message));
      EXPECT_THAT(connection().writes, IsEmpty());
      EXPECT_EQ(printed, k == 1 ? message + "\n" : "");
    }
  }
}

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
    for (int k = 1; k <= 16; ++k) text += label(k) + "'" + padded(name + "-" + std::to_string(k), 64) + "'";
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
    expected += (k == 1 ? "" : " ") + label(k) + " " + names[op] + " '" + padded("v", 64) + "'";
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
  for (int k = 1; k <= 7; ++k) expected.push_back(label(k) + " <" + padded("A-" + std::to_string(k), 64) + ">");
  EXPECT_EQ(connection().traces_of("orn/vesk/skeys"), expected);
}

TEST_F(QueryTest, WritesALineForEachRecord) {
  connection().replies = page(record("A") + record("B"), 'Y') + page(record("C"), 'N');
  EXPECT_EQ(query_to_file(file_.path().c_str()), 0);
  EXPECT_EQ(file_.contents(), line("A") + line("B") + line("C"));
}

TEST_F(QueryTest, ShowsNothingOfTheRecordBeforeInAShorterOne) {
  connection().replies = page(record("LONGNAME") + record("S"), 'N');
  EXPECT_EQ(query_to_list(), 0);
  EXPECT_THAT(names(), ElementsAre("LONGNAME", "S"));
  EXPECT_EQ(list_.elements[1].find("ONGNAME"), std::string::npos);
}

TEST_F(QueryTest, LeavesAFieldOfBlanksAsItIs) {
  std::string blank = record("A");
  blank.replace(121, 64, blanks(64));
  connection().replies = page(blank, 'N');
  EXPECT_EQ(query_to_list(), 0);
  EXPECT_EQ(list_.elements[0].substr(41, 65), blanks(64) + '\0');
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
  connection().replies = page(record("A"), 'Y') + framed("10530106N00005");
  EXPECT_EQ(query_to_list(), 106);
  EXPECT_THAT(names(), ElementsAre("A"));
}

TEST_F(QueryTest, HandlesTheRecordsOfAFailedReadAsEmptyOnesAndReturnsItsStatus) {
  connection().replies = page(record("A"), 'Y') + framed("10530000Y02477") + record("B").substr(0, 600);
  EXPECT_EQ(query_to_file(file_.path().c_str()), script::kClosed);
  EXPECT_EQ(file_.contents(), line("A") + "B,B-1,B-2,B-3,B-4,B-5,B-6,B-7\n" + ",,,,,,,\n");
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("iNrRecords <2>"));
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

}  // namespace
