// The paged lists of certificates and private keys: file, list, trimming.
#include "tests/library/library_test.h"
#include "tests/library/temporary_file.h"

namespace {

using script::Read;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

std::string page(const std::string &names, char more, const char *return_code = "0000") {
  char count[16];
  std::snprintf(count, sizeof count, "%05zu", names.size());
  return framed("1049" + std::string(return_code) + more + count) + names;
}

std::string entry(const std::string &name) {
  return padded(name, 64);
}

// The two lists, which have all but their names, requests and trimming in common.
struct ListCase {
  const char *function;
  const char *request;
  const char *oversize_name;
  int (*write)(const CertificatePaths *, const char *path);
  int (*append)(const CertificatePaths *, LinkedList *);
};

void PrintTo(const ListCase &list, std::ostream *out) {
  *out << list.function;
}

class CertificateListTest : public LibraryTest, public testing::WithParamInterface<ListCase> {
 protected:
  int write(const std::string &path) { return GetParam().write(&paths_, path.c_str()); }
  int list(std::size_t element_size = 65) {
    list_ = {element_size, {}};
    return GetParam().append(&paths_, &list_);
  }
  std::vector<std::string> traces() { return connection().traces_of("orn/vesk/skeys"); }

  LinkedList list_{65, {}};
  TemporaryFile file_;
};

TEST_P(CertificateListTest, AppendsTheNamesOfAllPages) {
  connection().replies = page(entry("A") + entry("B b"), 'Y') + page(entry(" C"), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.elements, ElementsAre("A" + zeros(64), "B b" + zeros(62), " C" + zeros(63)));
  EXPECT_THAT(connection().writes, ElementsAre(GetParam().request));
  EXPECT_THAT(connection().reads,
              ElementsAre(Read{5, 60}, Read{14, 60}, Read{128, 60}, Read{5, 60}, Read{14, 60}, Read{64, 60}));
  EXPECT_THAT(traces(), ElementsAre(std::string("F: ") + GetParam().function, "iBytesRead <14>", "iBytesRead <0>",
                                    "Tran Len <00014>", "Tran Id <1049>", "Return Code <0000>", "More Flag <Y>",
                                    "List Count <00128>", "iBytesRead <0>", "iBytesRead <14>", "iBytesRead <0>",
                                    "Tran Len <00014>", "Tran Id <1049>", "Return Code <0000>", "More Flag <N>",
                                    "List Count <00064>", "iBytesRead <0>", " C"));
  std::vector<std::string> labels;
  for (const script::Dump &dump : connection().dumps) labels.push_back(dump.label + " " + dump.bytes);
  const std::string page_dump = "Response buffer 00014";
  EXPECT_THAT(labels,
              ElementsAre(std::string("caReqBuf ") + GetParam().request, page_dump, page_dump, page_dump, page_dump));
}

TEST_P(CertificateListTest, WritesALineForEachName) {
  connection().replies = page(entry("A") + entry("B b"), 'Y') + page(entry(std::string(64, 'c')), 'N');
  file_.fill(std::string(1000, 'o'));
  EXPECT_EQ(write(file_.path()), 0);
  EXPECT_EQ(file_.contents(), "A\nB b\n" + std::string(64, 'c') + "\n");
}

TEST_P(CertificateListTest, KeepsFullNamesApart) {
  connection().replies = page(std::string(64, 'a') + std::string(64, 'b') + entry("c"), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.elements, ElementsAre(std::string(64, 'a') + '\0', std::string(64, 'b') + '\0', "c" + zeros(64)));
}

TEST_P(CertificateListTest, LeavesABlankNameAsItIs) {
  connection().replies = page(entry("A") + blanks(64) + entry("B"), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre("A", blanks(64), "B"));
}

TEST_P(CertificateListTest, TrimsTabsAndNewlines) {
  connection().replies = page(padded("A\t\n", 64) + "B\n" + std::string(62, '\t'), 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre("A", "B"));
}

TEST_P(CertificateListTest, WritesNoFileForAnEmptyPath) {
  connection().replies = page(entry("A"), 'N');
  EXPECT_EQ(write(""), 0);
  EXPECT_EQ(traces().back(), "A");
}

TEST_P(CertificateListTest, GoesOnBehindAPageWithoutNames) {
  connection().replies = page("", 'Y') + page(entry("A"), 'Y') + page("", 'N');
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre("A"));
  EXPECT_EQ(connection().reads[2], (Read{0, 60}));
  EXPECT_EQ(traces().back(), "A") << "the last name handled";
}

TEST_P(CertificateListTest, OfAnEmptyStoreIsEmpty) {
  connection().replies = page("", 'N');
  EXPECT_EQ(write(file_.path()), 0);
  EXPECT_TRUE(file_.exists());
  EXPECT_EQ(file_.contents(), "");
  EXPECT_EQ(traces().back(), "");
}

TEST_P(CertificateListTest, EndsOnAnyMoreFlagButY) {
  for (const char more : {'N', 'y', ' ', '\0'}) {
    script::reset();
    connection().replies = page(entry("A"), more);
    EXPECT_EQ(list(), 0);
    EXPECT_THAT(list_.texts(), ElementsAre("A"));
  }
}

TEST_P(CertificateListTest, DropsWhatIsLeftOfABlock) {
  for (const std::size_t left : {1u, 36u, 63u}) {
    script::reset();
    connection().replies = page(entry("A") + std::string(left, 'r'), 'Y') + page(std::string(left, 'r'), 'N');
    EXPECT_EQ(list(), 0);
    EXPECT_THAT(list_.texts(), ElementsAre("A")) << left;
  }
}

TEST_P(CertificateListTest, TakesANegativeCountForZero) {
  connection().replies = framed("10490000N-0064");
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{14, 60}, Read{0, 60}));
  EXPECT_THAT(list_.elements, IsEmpty());
}

TEST_P(CertificateListTest, TakesABlockOfAnySize) {
  // 16370 bytes are left of the buffer behind the page; a larger block arrives in pieces.
  for (const std::size_t length : {16320u, 16370u, 16371u, 16384u, 99999u}) {
    script::reset();
    std::string names;
    for (std::size_t i = 0; i < length / 64; ++i) names += entry("name " + std::to_string(i));
    names.resize(length, 'r');
    connection().replies = page(names, 'Y') + page(entry("last"), 'N');
    EXPECT_EQ(list(), 0) << length;
    ASSERT_EQ(list_.elements.size(), length / 64 + 1) << length;
    const std::vector<std::string> texts = list_.texts();
    for (std::size_t i = 0; i < length / 64; ++i) ASSERT_EQ(texts[i], "name " + std::to_string(i));
    EXPECT_EQ(texts.back(), "last");
  }
}

TEST_P(CertificateListTest, FillsElementsOfAnySize) {
  const std::string name = "a name, longer than ten characters";
  for (const std::size_t size : {0u, 1u, 10u, 64u, 65u, 200u}) {
    script::reset();
    connection().replies = page(entry(name), 'N');
    EXPECT_EQ(list(size), 0);
    std::string expected = name.substr(0, size == 0 ? 0 : size - 1);
    expected.resize(size, '\0');
    EXPECT_THAT(list_.elements, ElementsAre(expected)) << size;
  }
}

TEST_P(CertificateListTest, IgnoresTheReturnCodes) {
  connection().replies = page(entry("A"), 'Y', "0007") + page(entry("B"), 'N', "0008");
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre("A", "B"));
  EXPECT_THAT(traces(), Contains("Return Code <0008>"));
}

TEST_P(CertificateListTest, RefusesAFileThatCannotBeOpenedAfterTheRequest) {
  const std::string path = file_.folder() + "/missing/file";
  EXPECT_EQ(write(path), ERR_NAME_FILE_OPEN);
  EXPECT_EQ(connection().writes.size(), 1u);
  EXPECT_THAT(connection().reads, IsEmpty());
  EXPECT_EQ(traces().back(), "Failed to open file <" + path + ">");
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"),
              ElementsAre(std::string(GetParam().function) + " Failed! ret = <9001>"));
}

TEST_P(CertificateListTest, CutsAnOverlongPath) {
  EXPECT_EQ(write("/" + std::string(5000, 'p')), ERR_NAME_FILE_OPEN);
  EXPECT_EQ(traces().back(), "Failed to open file </" + std::string(2047, 'p') + ">");
}

TEST_P(CertificateListTest, OpensNoFileWhenTheRequestCannotBeSent) {
  connection().failing_writes = {{0, 30061}};
  EXPECT_EQ(write(file_.path()), 30061);
  EXPECT_FALSE(file_.exists());
}

TEST_P(CertificateListTest, TellsAFullDisk) {
  std::string names;
  for (int i = 0; i < 200; ++i) names += entry(std::string(60, 'n'));
  connection().replies = page(names, 'Y') + "not read";
  EXPECT_EQ(write("/dev/full"), ERR_NAME_FILE_WRITE);
  EXPECT_EQ(connection().replies, "not read");
  EXPECT_EQ(traces().back(), "Error writing to file");
  // A short list meets the full disk only when the file is closed.
  script::reset();
  connection().replies = page(entry("A"), 'N');
  EXPECT_EQ(write("/dev/full"), ERR_NAME_FILE_WRITE);
  EXPECT_EQ(traces().back(), "Error writing to file");
}

TEST_P(CertificateListTest, KeepsWhatWasDeliveredBeforeAFailure) {
  const std::string whole = page(entry("A"), 'Y') + page(entry("B"), 'N');
  for (std::size_t length = 0; length < whole.size(); ++length) {
    script::reset();
    connection().replies = whole.substr(0, length);
    EXPECT_EQ(write(file_.path()), script::kClosed) << length;
    EXPECT_EQ(file_.contents(), length < 83 ? "" : "A\n") << length;
  }
}

TEST_P(CertificateListTest, RefusesALaterPageAbove16384) {
  connection().replies = page(entry("A"), 'Y') + "16385";
  EXPECT_EQ(list(), ERR_LIST_SIZE);
  EXPECT_THAT(list_.texts(), ElementsAre("A"));
  EXPECT_EQ(traces().back(),
            std::string(GetParam().oversize_name) + " ERR <9261> Transaction size <16385> exceeds maximum <16384>");
}

TEST_P(CertificateListTest, ShowsNothingOfThePageBeforeWhenOneIsCutShort) {
  connection().replies = page(entry("A"), 'Y') + framed(
                                                     "1049"
                                                     "0000");
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(list_.texts(), ElementsAre("A"));
}

const ListCase kLists[] = {
    {"GetCertificateList", "000051049C", "GetCertificateList",
     [](const CertificatePaths *p, const char *path) { return qGetCertificateList(p, "kms.example", 5696, 'C', path); },
     [](const CertificatePaths *p, LinkedList *list) {
       return qGetCertificateList_as_ll(p, "kms.example", 5696, 'C', list);
     }},
    {"GetPrivateKeyList", "000041119", "GetP:rivateKeyList",
     [](const CertificatePaths *p, const char *path) { return qGetPrivateKeyList(p, "kms.example", 5696, path); },
     [](const CertificatePaths *p, LinkedList *list) {
       return qGetPrivateKeyList_as_ll(p, "kms.example", 5696, list);
     }},
};

INSTANTIATE_TEST_SUITE_P(Lists, CertificateListTest, testing::ValuesIn(kLists),
                         [](const auto &info) { return std::string(info.param.function); });

using ListTransactionTest = LibraryTest;

TEST_F(ListTransactionTest, FillsFileAndListAndTakesANullListForNone) {
  TemporaryFile file;
  LinkedList list{10, {}};
  const auto session = open_session();
  std::strcpy(session->request.caCertType, "X");
  std::strcpy(session->caFilePath, file.path().c_str());
  const std::string name = "longer than an element";
  connection().replies =
      page(entry(name), 'N') + page(entry(name), 'N') + page(entry("B"), 'N') + page(entry("C"), 'N');
  GetCertificateList(session.get(), &list);
  EXPECT_EQ(session->iStatus, 0);
  EXPECT_EQ(file.contents(), name + "\n") << "only the list's elements are cut";
  EXPECT_THAT(list.texts(), ElementsAre(name.substr(0, 9)));
  EXPECT_STREQ(session->caMoreFlag, "N");
  EXPECT_STREQ(session->caListCount, "00064");
  GetPrivateKeyList(session.get(), &list);
  EXPECT_EQ(list.elements.size(), 2u);
  GetCertificateList(session.get(), nullptr);
  EXPECT_EQ(file.contents(), "B\n");
  GetPrivateKeyList(session.get(), nullptr);
  EXPECT_EQ(file.contents(), "C\n");
  EXPECT_THAT(connection().writes, ElementsAre("000051049X", "000041119", "000051049X", "000041119"));
}

TEST_F(ListTransactionTest, TrimsACertificatesNameWhereItEndsAndAPrivateKeysAtItsFullWidth) {
  TemporaryFile file;
  const std::string name = "A  " + zeros(1) + "x" + blanks(59);
  connection().replies = page(name, 'N') + page(name, 'N');
  EXPECT_EQ(qGetCertificateList(&paths_, host_, port_, 'C', file.path().c_str()), 0);
  EXPECT_EQ(file.contents(), "A\n");
  EXPECT_EQ(qGetPrivateKeyList(&paths_, host_, port_, file.path().c_str()), 0);
  EXPECT_EQ(file.contents(), "A  \n");
}

}  // namespace
