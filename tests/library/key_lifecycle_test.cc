// Creating keys, singly and in batches, creating the key database, deleting keys and making them deletable.
#include "tests/library/library_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class KeyLifecycleTest : public LibraryTest {};

TEST_F(KeyLifecycleTest, CreatingTracesTheNameAsGivenAndAsSent) {
  connection().replies = framed("10010000" + padded("K1", 40) + padded("20261121", 24));
  EXPECT_EQ(qCreateSymKey(&paths_, host_, port_, "K1", 'N'), 0);
  const std::string name = padded("K1", 40);
  EXPECT_THAT(connection().events,
              ElementsAre("setup", "trace Create Key Name: <" + name + ">", "trace Create Key Name: <" + name + ">",
                          "trace F: CreateSymKey", "dump caReqBuf", "write", "read", "trace iBytesRead <72>", "read",
                          "trace iBytesRead <0>", "dump Response buffer", "trace Tran Len <00072>",
                          "trace Tran Id <1001>", "trace Return Code <0000>", "trace Key Name <" + name + ">",
                          "trace Instance <" + padded("20261121", 24) + ">", "teardown"));
}

TEST_F(KeyLifecycleTest, CreatingTakesOnlyAnUpperCaseYForAMirrorKey) {
  for (const char flag : {'Y', 'y', 'N', '\0', '1'}) {
    script::reset();
    connection().replies = framed("10010000");
    EXPECT_EQ(qCreateSymKey(&paths_, host_, port_, "K1", flag), 0);
    ASSERT_EQ(connection().writes[0].size(), 589u);
    EXPECT_EQ(connection().writes[0][75], flag == 'Y' ? 'Y' : 'N') << flag;
  }
}

TEST_F(KeyLifecycleTest, CreatingTracesALongNameWholeAndSendsItCut) {
  const std::string name(45, 'n');
  connection().replies = framed("10010000");
  EXPECT_EQ(qCreateSymKey(&paths_, host_, port_, name.c_str(), 'Y'), 0);
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"),
              ElementsAre("Create Key Name: <" + name + ">", "Create Key Name: <" + name.substr(0, 40) + ">"));
  EXPECT_EQ(connection().writes[0].substr(9, 44), std::string(40, 'n') + "0256");
}

TEST_F(KeyLifecycleTest, AFieldThatWasLeftShortShiftsTheOthersAndZerosMakeUpForIt) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1001");
  std::strcpy(session->request.caKeyName, "SHORT");
  std::strcpy(session->request.caKeySizeBits, "0256");
  connection().replies = framed("10010000");
  CreateSymKey(session.get());
  EXPECT_EQ(session->iStatus, 0);
  EXPECT_THAT(connection().writes, ElementsAre("00584"
                                               "1001"
                                               "SHORT"
                                               "0256" +
                                               zeros(571)));
}

TEST_F(KeyLifecycleTest, GeneratingKeepsTheFirstFiveDigitsOfTheCount) {
  struct {
    uint32_t count;
    const char *sent;
  } const cases[] = {{0, "00000"}, {1, "00001"}, {99999, "99999"}, {100000, "10000"}, {16777215, "16777"}};
  for (const auto &c : cases) {
    script::reset();
    connection().replies = framed("11170000");
    EXPECT_EQ(qAutoGenKeys(&paths_, host_, port_, "T", 'I', c.count), 0);
    ASSERT_EQ(connection().writes[0].size(), 599u);
    EXPECT_EQ(connection().writes[0].substr(53, 5), c.sent);
  }
}

TEST_F(KeyLifecycleTest, GeneratingRefusesMoreThanSixHexadecimalDigitsCount) {
  EXPECT_EQ(qAutoGenKeys(&paths_, host_, port_, "T", 'I', 16777216), -3);
  EXPECT_EQ(qAutoGenKeys(&paths_, host_, port_, "T", 'I', 4294967295u), -3);
  EXPECT_THAT(connection().events, IsEmpty());
}

TEST_F(KeyLifecycleTest, GeneratingTakesOnlyALowerCaseAForAdding) {
  for (const char mode : {'a', 'A', 'i', 'I', '\0'}) {
    script::reset();
    connection().replies = framed("11170000");
    EXPECT_EQ(qAutoGenKeys(&paths_, host_, port_, "T", mode, 1), 0);
    EXPECT_EQ(connection().writes[0][58], mode == 'a' ? 'A' : 'I') << mode;
  }
}

TEST_F(KeyLifecycleTest, GeneratingSendsAConstantOfAnyLengthAs39Characters) {
  for (const std::size_t length : {0u, 1u, 15u, 39u, 40u, 100u}) {
    script::reset();
    connection().replies = framed("11170000");
    const std::string constant(length, 'c');
    EXPECT_EQ(qAutoGenKeys(&paths_, host_, port_, constant.c_str(), 'I', 1), 0);
    EXPECT_EQ(connection().writes[0].substr(9, 44), padded(constant, 39) + "06H15");
  }
}

TEST_F(KeyLifecycleTest, GeneratingTracesItsStatusOnTheWay) {
  connection().replies = framed("11170000");
  EXPECT_EQ(qAutoGenKeys(&paths_, host_, port_, "T", 'I', 1), 0);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: AutoGenKeys", "iBytesRead <8>", "iBytesRead <0>", "Tran Len <00008>", "Tran Id <1117>",
                          "Return Code <0000>", "i Return Code <0>"));
  script::reset();
  connection().replies = framed("11170301");
  EXPECT_EQ(qAutoGenKeys(&paths_, host_, port_, "T", 'I', 1), 301);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: AutoGenKeys", "iBytesRead <8>", "iBytesRead <0>", "Tran Len <00008>", "Tran Id <1117>",
                          "Return Code <0301>", "i Return Code <0>", "Override return code <301>"));
}

TEST_F(KeyLifecycleTest, CreatingTheDatabaseNamesTheOperationTwice) {
  connection().replies = framed("11070000");
  EXPECT_EQ(qCreateDatabase(&paths_, host_, port_), 0);
  EXPECT_THAT(connection().writes, ElementsAre("00012"
                                               "1107"
                                               "CreateDB"));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: CreateDB", "iBytesRead <8>", "iBytesRead <0>", "Tran Len <00008>", "Tran Id <1107>",
                          "Return Code <0000>"));
}

TEST_F(KeyLifecycleTest, DeletingTracesNameAndDate) {
  connection().replies = framed("10150000" + padded("K1", 40) + "20261121");
  EXPECT_EQ(qDeleteKey(&paths_, host_, port_, "K1"), 0);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: DeleteKey", "iBytesRead <56>", "iBytesRead <0>", "Tran Len <00056>", "Tran Id <1015>",
                          "Return Code <0000>", "Key Name <" + padded("K1", 40) + ">", "Deleted Date <20261121>"));
}

TEST_F(KeyLifecycleTest, DeletingSendsANameOf40CharactersWholeAndCutsALongerOne) {
  for (const std::size_t length : {40u, 41u, 60u}) {
    script::reset();
    connection().replies = framed("10150000");
    EXPECT_EQ(qDeleteKey(&paths_, host_, port_, std::string(length, 'n').c_str()), 0);
    EXPECT_THAT(connection().writes, ElementsAre("00044"
                                                 "1015" +
                                                 std::string(40, 'n')));
  }
}

TEST_F(KeyLifecycleTest, MakingDeletableSendsYWhateverIsAsked) {
  for (const char flag : {'Y', 'N', '\0'}) {
    script::reset();
    connection().replies = framed("10050000");
    EXPECT_EQ(qChangeDeletable(&paths_, host_, port_, "K1", flag), 0);
    EXPECT_THAT(connection().writes, ElementsAre("00069"
                                                 "1005" +
                                                 padded("K1", 40) + blanks(24) + "Y"));
  }
}

TEST_F(KeyLifecycleTest, MakingDeletableTracesTheNameWholeBeforeItConnects) {
  const std::string name(45, 'n');
  connection().setup_status = 30006;
  EXPECT_EQ(qChangeDeletable(&paths_, host_, port_, name.c_str(), 'Y'), 30006);
  EXPECT_THAT(connection().events, ElementsAre("trace Change Deletable Key Name: <" + name + ">", "setup",
                                               "trace SetupSession Failed! ret = <30006>", "teardown"));
}

TEST_F(KeyLifecycleTest, MakingDeletableTracesInTheWordsOfCreation) {
  connection().replies = framed("10050102");
  EXPECT_EQ(qChangeDeletable(&paths_, host_, port_, "K1", 'Y'), 102);
  const std::string name = padded("K1", 40);
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"),
              ElementsAre("Change Deletable Key Name: <" + name + ">", "Create Key Name: <" + name + ">",
                          "ChangeDeletable Failed! ret = <102>"));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: ChangeDeletable", "iBytesRead <8>", "iBytesRead <0>", "Tran Len <00008>",
                          "Tran Id <1005>", "Return Code <0102>", "i Return Code <0>", "Override return code <102>"));
}

}  // namespace
