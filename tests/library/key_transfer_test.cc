// Key transfer: import from a file or from memory, export to a file, to memory or both.
#include <dlfcn.h>

#include <cerrno>
#include <cstdio>
#include <optional>

#include "tests/library/library_test.h"
#include "tests/library/temporary_file.h"

namespace {

// The next file that is closed fails with that error, or with none when it is 0.
std::optional<int> failure_of_close;

}  // namespace

// The system's, but for the closing that a test makes fail: the file is closed and gone all the same.
extern "C" int fclose(std::FILE *file) {
  static const auto system_fclose = reinterpret_cast<int (*)(std::FILE *)>(dlsym(RTLD_NEXT, "fclose"));
  const int result = system_fclose(file);
  if (!failure_of_close) return result;
  if (*failure_of_close != 0) errno = *failure_of_close;
  failure_of_close.reset();
  return EOF;
}

namespace {

using script::Read;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// A value of length bytes, all of them different in turn, NULs and line ends among them.
std::string value_of(std::size_t length) {
  std::string value;
  for (std::size_t i = 0; i < length; ++i) value += static_cast<char>(i);
  return value;
}

const script::Dump *dump_of(const std::string &label) {
  for (const script::Dump &dump : connection().dumps) {
    if (dump.label == label) return &dump;
  }
  return nullptr;
}

// What was done between two events, both left out.
std::vector<std::string> events_between(const std::string &first, const std::string &last) {
  const auto &events = connection().events;
  const auto begin = std::ranges::find(events, first);
  const auto end = std::find(begin, events.end(), last);
  return begin == end ? std::vector<std::string>() : std::vector(begin + 1, end);
}

std::string import_request(const std::string &key_name, const std::string &certificate, const std::string &value) {
  return "00908"
         "1023" +
         padded(key_name, 40) + "0256" + "00000000" + "00000000" + "N" + "0000" + "Y" + "N" + "1" + blanks(512) +
         "RSA" + padded(certificate, 64) + "2" + value + zeros(256 - value.size());
}

class KeyImportTest : public LibraryTest {
 protected:
  KeyImportTest() { connection().replies = kReply; }

  int import(const char *path, const void *data = nullptr) {
    return qImportSymKey(&paths_, host_, port_, "K1", "Cert1", path, data);
  }
  int import_file(const std::string &bytes) { return import(file_.fill(bytes).c_str()); }

  // What every refusal before the request has in common.
  void expect_nothing_sent() {
    EXPECT_THAT(connection().writes, IsEmpty());
    EXPECT_THAT(connection().reads, IsEmpty());
    connection().replies.clear();
  }

  const std::string kReply = framed(
      "1023"
      "0000" +
      padded("K1", 40) + padded("I7", 24));
  TemporaryFile file_;
};

TEST_F(KeyImportTest, SendsTheValueInTheCallersMemory) {
  EXPECT_EQ(import(nullptr, value_of(256).data()), 0);
  EXPECT_THAT(connection().writes, ElementsAre(import_request("K1", "Cert1", value_of(256))));
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{72, 60}));
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), ElementsAre("Certificate Name <Cert1>"));
  EXPECT_EQ(connection().events.front(), "trace Certificate Name <Cert1>");
  EXPECT_THAT(events_between("trace Using data from buffer", "read"),
              ElementsAre("dump caKeyValue", "dump caReqBuf", "write"));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: ImportSymKey", "No Import File Specified, using data buffer", "iFormat <4>",
                          "iKeySizeBits <256>", "RSA encrypted value", "Using data from buffer", "iBytesRead <72>",
                          "iBytesRead <0>", "Tran Len <00072>", "Tran Id <1023>", "Return Code <0000>",
                          "Key Name <" + padded("K1", 40) + ">", "Instance <" + padded("I7", 24) + ">"));
  ASSERT_NE(dump_of("caKeyValue"), nullptr);
  EXPECT_EQ(dump_of("caKeyValue")->bytes, "") << "of the caller's value nothing is dumped";
}

TEST_F(KeyImportTest, SendsTheValueInAFile) {
  EXPECT_EQ(import_file(value_of(256)), 0);
  EXPECT_THAT(connection().writes, ElementsAre(import_request("K1", "Cert1", value_of(256))));
  EXPECT_THAT(
      events_between("trace F: ImportSymKey", "read"),
      ElementsAre("trace Import File Name <" + file_.path() + ">", "trace iFormat <4>", "trace iKeySizeBits <256>",
                  "trace RSA encrypted value", "dump caKeyValue", "dump caReqBuf", "write"));
  ASSERT_NE(dump_of("caKeyValue"), nullptr);
  EXPECT_EQ(dump_of("caKeyValue")->bytes, value_of(256));
  EXPECT_EQ(file_.contents(), value_of(256));
}

TEST_F(KeyImportTest, TakesTheFileWhenBothAreGiven) {
  EXPECT_EQ(import(file_.fill(value_of(256)).c_str(), std::string(256, 'v').data()), 0);
  EXPECT_THAT(connection().writes, ElementsAre(import_request("K1", "Cert1", value_of(256))));
}

TEST_F(KeyImportTest, ReadsNoMoreOfAFileThanTheValue) {
  EXPECT_EQ(import_file(value_of(256) + "x"), 0);
  EXPECT_THAT(connection().writes, ElementsAre(import_request("K1", "Cert1", value_of(256))));
}

TEST_F(KeyImportTest, RefusesAFileThatIsTooShort) {
  for (const std::size_t length : {0, 1, 255}) {
    script::reset();
    EXPECT_EQ(import_file(value_of(length)), ERR_IMPORT_FILE_READ);
    EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
                ElementsAre("F: ImportSymKey", "Import File Name <" + file_.path() + ">", "iFormat <4>",
                            "iKeySizeBits <256>", "RSA encrypted value",
                            "ImportSymKey ERR <3209> fread returned <" + std::to_string(length) + "> items",
                            " instead of <256>", " ferror returned <0>", " feof returned <1>"));
    expect_nothing_sent();
  }
}

TEST_F(KeyImportTest, RefusesAFileThatCannotBeRead) {
  EXPECT_EQ(import(file_.folder().c_str()), ERR_IMPORT_FILE_READ);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              testing::IsSupersetOf({"ImportSymKey ERR <3209> fread returned <0> items", " instead of <256>",
                                     " ferror returned <1>", " feof returned <0>"}));
  expect_nothing_sent();
}

TEST_F(KeyImportTest, RefusesAFileThatCannotBeOpened) {
  EXPECT_EQ(import(file_.path().c_str()), ERR_IMPORT_FILE_OPEN);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: ImportSymKey", "Import File Name <" + file_.path() + ">",
                          "ImportSymKey ERR <4010> Error opening import file <" + file_.path() + ">",
                          "<No such file or directory>"));
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), Contains("ImportSymKey Failed! ret = <4010>"));
  expect_nothing_sent();
}

// The reason is that of the closing: an older one is cleared before it.
TEST_F(KeyImportTest, RefusesAFileThatCannotBeClosed) {
  for (const auto &[error, reason] : {std::pair(EIO, "<Input/output error>"), {0, "<Success>"}}) {
    script::reset();
    file_.fill(value_of(256));
    failure_of_close = error;
    errno = ENOENT;
    EXPECT_EQ(import(file_.path().c_str()), ERR_IMPORT_FILE_CLOSE);
    EXPECT_FALSE(failure_of_close);
    EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
                ElementsAre("F: ImportSymKey", "Import File Name <" + file_.path() + ">", "iFormat <4>",
                            "iKeySizeBits <256>", "RSA encrypted value",
                            "ImportSymKey ERR <3057> fclose failed for file <" + file_.path() + ">", reason));
    expect_nothing_sent();
  }
}

TEST_F(KeyImportTest, SendsZeroBytesForAnEmptyPath) {
  EXPECT_EQ(import("", value_of(256).data()), 0);
  EXPECT_THAT(connection().writes, ElementsAre(import_request("K1", "Cert1", "")));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("No Import File Specified, using data buffer"));
}

TEST_F(KeyImportTest, RefusesToSendWhatItWasNotGiven) {
  EXPECT_EQ(import(nullptr, nullptr), ERR_NULL_ARGUMENT);
  EXPECT_THAT(connection().setups, IsEmpty());
  EXPECT_THAT(connection().events, IsEmpty());
  expect_nothing_sent();
}

TEST_F(KeyImportTest, TakesAPathOfAnyLengthForAFile) {
  for (const std::size_t length : {2048u, 2049u, 9999u, 10000u, 100000u}) {
    script::reset();
    EXPECT_EQ(import(("/" + std::string(length - 1, 'p')).c_str()), ERR_IMPORT_FILE_OPEN) << length;
    EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
                Contains("Import File Name </" + std::string(2047, 'p') + ">"));
    EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Contains("<File name too long>"));
  }
  expect_nothing_sent();
}

TEST_F(KeyImportTest, CutsOverlongNames) {
  EXPECT_EQ(qImportSymKey(&paths_, host_, port_, std::string(41, 'k').c_str(), std::string(65, 'c').c_str(), nullptr,
                          value_of(256).data()),
            0);
  EXPECT_THAT(connection().writes,
              ElementsAre(import_request(std::string(40, 'k'), std::string(64, 'c'), value_of(256))));
}

TEST_F(KeyImportTest, ReturnsAFailedWrite) {
  connection().failing_writes = {{0, 30061}};
  EXPECT_EQ(import(nullptr, value_of(256).data()), 30061);
  connection().replies.clear();
}

struct FormatCase {
  const char *format, *bits;
  int number;
  const char *description;
  std::size_t length;
};

const FormatCase kFormatCases[] = {
    {"BIN", "0128", 1, "Binary value", 16},         {"BIN", "0192", 1, "Binary value", 24},
    {"BIN", "0256", 1, "Binary value", 32},         {"BIN", "0512", 1, "Binary value", 0},
    {"B16", "0128", 2, "Base16 value", 32},         {"B16", "0192", 2, "Base16 value", 48},
    {"B16", "0256", 2, "Base16 value", 64},         {"B16", "0000", 2, "Base16 value", 0},
    {"B64", "0128", 3, "Base64 value", 24},         {"B64", "0192", 3, "Base64 value", 32},
    {"B64", "0256", 3, "Base64 value", 44},         {"B64", "xxxx", 3, "Base64 value", 0},
    {"RSA", "0128", 4, "RSA encrypted value", 256}, {"RSA", "0192", 4, "RSA encrypted value", 256},
    {"RSA", "0256", 4, "RSA encrypted value", 256}, {"RSA", "0001", 4, "RSA encrypted value", 256},
};

std::unique_ptr<Session> import_session(const char *format, const char *bits) {
  auto session = open_session();
  RequestFields &request = session->request;
  std::strcpy(request.caTranId, "1023");
  std::strcpy(request.caKeyName, padded("K1", 40).c_str());
  std::strcpy(request.caKeySizeBits, bits);
  std::strcpy(request.caActivationDate, "20260101");
  std::strcpy(request.caExpirationDate, "20270101");
  std::strcpy(request.caRolloverCode, "D");
  std::strcpy(request.caRolloverDays, "0030");
  std::strcpy(request.caDeletable, "N");
  std::strcpy(request.caMirrorKey, "Y");
  std::strcpy(request.caUserGroupFlag, "9");
  std::strcpy(request.caUser, "a user");
  std::strcpy(request.caGroup, "a group");
  std::strcpy(request.caKeyFormat, format);
  std::strcpy(request.caCertificateName, padded("Cert1", 64).c_str());
  std::strcpy(request.caRSAPaddingMode, "1");
  return session;
}

std::string session_request(const FormatCase &c, const std::string &value) {
  return "00908"
         "1023" +
         padded("K1", 40) + c.bits + "20260101" + "20270101" + "D" + "0030" + "N" + "Y" + "1" + blanks(512) + c.format +
         padded("Cert1", 64) + "1" + value + zeros(256 - value.size());
}

TEST_F(KeyImportTest, TransactionFunctionTakesAsMuchOfTheBufferAsTheFormatSays) {
  for (const FormatCase &c : kFormatCases) {
    script::reset();
    connection().replies = kReply;
    const auto session = import_session(c.format, c.bits);
    std::memcpy(session->request.caKeyValue, value_of(256).data(), 256);
    ImportSymKey(session.get());
    EXPECT_EQ(session->iStatus, 0);
    EXPECT_THAT(connection().writes, ElementsAre(session_request(c, value_of(c.length)))) << c.format << c.bits;
    EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
                testing::IsSupersetOf({"iFormat <" + std::to_string(c.number) + ">", std::string(c.description)}));
  }
}

TEST_F(KeyImportTest, TransactionFunctionTakesAsMuchOfTheFileAsTheFormatSays) {
  for (const FormatCase &c : kFormatCases) {
    script::reset();
    connection().replies = kReply;
    const auto session = import_session(c.format, c.bits);
    std::strcpy(session->request.caFilePathLen, "1   ");
    std::strcpy(session->caFilePath, file_.fill(value_of(c.length)).c_str());
    ImportSymKey(session.get());
    EXPECT_EQ(session->iStatus, 0);
    EXPECT_THAT(connection().writes, ElementsAre(session_request(c, value_of(c.length)))) << c.format << c.bits;
    EXPECT_EQ(dump_of("caKeyValue")->bytes, value_of(c.length));
  }
}

TEST_F(KeyImportTest, TransactionFunctionRefusesAnUnknownFormat) {
  for (const char *format : {"", "bin", "BI", "XYZ"}) {
    script::reset();
    const auto session = import_session(format, "0256");
    ImportSymKey(session.get());
    EXPECT_EQ(session->iStatus, ERR_IMPORT_KEY_FORMAT);
    EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
                ElementsAre("F: ImportSymKey", "No Import File Specified, using data buffer",
                            std::string("Unknown Format <") + format + ">"));
  }
  // The file is opened first, and closed again.
  const auto session = import_session("XYZ", "0256");
  std::strcpy(session->request.caFilePathLen, "4   ");
  std::strcpy(session->caFilePath, file_.path().c_str());
  ImportSymKey(session.get());
  EXPECT_EQ(session->iStatus, ERR_IMPORT_FILE_OPEN);
  file_.fill("");
  ImportSymKey(session.get());
  EXPECT_EQ(session->iStatus, ERR_IMPORT_KEY_FORMAT);
  expect_nothing_sent();
}

class KeyExportTest : public LibraryTest {
 protected:
  static std::string reply(const std::string &length, const std::string &value, const char *return_code = "0000") {
    return framed("1025" + std::string(return_code) + padded("K1", 40) + padded("I1", 24) + "0256" + "RSA" + "2" +
                  length + value);
  }
  int export_key(const char *path) {
    return qExportSymKey(&paths_, host_, port_, "K1", "I1", "Cert1", path, value_.data());
  }
  static std::vector<std::string> last_two_traces() {
    const auto traces = connection().traces_of("orn/vesk/skeys");
    return {traces.end() - 2, traces.end()};
  }

  std::string value_ = std::string(257, 'u');
  const std::string kUntouched = std::string(257, 'u');
  TemporaryFile file_;
};

TEST_F(KeyExportTest, DeliversTheValueToMemoryAndFile) {
  connection().replies = reply("0256", value_of(256));
  file_.fill("something longer than nothing");
  EXPECT_EQ(export_key(file_.path().c_str()), 0);
  EXPECT_EQ(value_, value_of(256) + "u");
  EXPECT_EQ(file_.contents(), value_of(256));
  EXPECT_THAT(connection().writes,
              ElementsAre("00136"
                          "1025" +
                          padded("K1", 40) + padded("I1", 24) + "RSA" + padded("Cert1", 64) + "2" + zeros(5)));
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{340, 60}));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: ExportSymKey", "Tran Len <>", "Tran Id <1025>", "Key Name <" + padded("K1", 40) + ">",
                          "Instance <" + padded("I1", 24) + ">", "Format <RSA>",
                          "RSA Public Cert Name <" + padded("Cert1", 64) + ">", "RSA Padding Mode <2>",
                          "Export File Path len <" + padded(std::to_string(file_.path().size()), 4) + ">",
                          "EI File Path <" + file_.path() + ">", "Transaction Length <00136>", "iBytesRead <340>",
                          "iBytesRead <0>", "Tran Len <00340>", "Tran Id <1025>", "Return Code <0000>",
                          "Key Name <" + padded("K1", 40) + ">", "Instance <" + padded("I1", 24) + ">",
                          "Key size in bits <0256>", "Format <RSA>", "RSAPaddingMode <2>"));
  EXPECT_THAT(events_between("trace Transaction Length <00136>", "read"), ElementsAre("dump caReqBuf", "write"));
  EXPECT_THAT(events_between("trace RSAPaddingMode <2>", "teardown"), ElementsAre("dump Key value"));
}

TEST_F(KeyExportTest, DumpsWhatFollowsTheValueInTheReply) {
  connection().replies = reply("0008", value_of(256) + "behind it, not counted");
  EXPECT_EQ(export_key(nullptr), 0);
  ASSERT_NE(dump_of("Key value"), nullptr);
  EXPECT_EQ(dump_of("Key value")->bytes, "behind i");
  script::reset();
  connection().replies = reply("9999", value_of(256));
  EXPECT_EQ(export_key(nullptr), 0);
  EXPECT_EQ(dump_of("Key value")->bytes, zeros(9999));
}

TEST_F(KeyExportTest, WritesNoFileForANullOrEmptyPath) {
  const struct { const char *path, *length; } cases[] = {{nullptr, ""}, {"", "0   "}};
  for (const auto &c : cases) {
    script::reset();
    connection().replies = reply("0256", value_of(256));
    EXPECT_EQ(export_key(c.path), 0);
    EXPECT_EQ(value_, value_of(256) + "u");
    EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
                testing::IsSupersetOf(
                    {std::string("Export File Path len <") + c.length + ">", std::string("EI File Path <>")}));
  }
}

TEST_F(KeyExportTest, DeliversToTheFileAloneWithoutABuffer) {
  connection().replies = reply("0256", value_of(256));
  EXPECT_EQ(qExportSymKey(&paths_, host_, port_, "K1", "I1", "Cert1", file_.path().c_str(), nullptr), 0);
  EXPECT_EQ(file_.contents(), value_of(256));
}

TEST_F(KeyExportTest, WritesAsManyBytesAsTheReplyDeclares) {
  struct {
    const char *rule, *declared;
    std::string content;
  } const cases[] = {
      {"none", "0000", ""},
      {"no digits", "    ", ""},
      {"less than the value", "0003", value_of(3)},
      {"one less", "0255", value_of(255)},
      {"the value", "0256", value_of(256)},
      {"one more", "0257", value_of(256) + zeros(1)},
      {"the most that four digits declare", "9999", value_of(256) + zeros(9743)},
      {"a negative number", "-256", ""},
  };
  for (const auto &c : cases) {
    script::reset();
    // What stands behind the value in the reply is no part of it.
    connection().replies = reply(c.declared, value_of(256) + std::string(1000, 'x'));
    file_.fill("something longer than nothing");
    EXPECT_EQ(export_key(file_.path().c_str()), 0) << c.rule;
    EXPECT_EQ(file_.contents(), c.content) << c.rule;
    EXPECT_EQ(value_, value_of(256) + "u") << c.rule;
  }
}

TEST_F(KeyExportTest, ShowsZeroBytesForAValueThatIsCutShort) {
  connection().replies = reply("0256", value_of(100));
  EXPECT_EQ(export_key(file_.path().c_str()), 0);
  EXPECT_EQ(value_, value_of(100) + zeros(156) + "u");
  EXPECT_EQ(file_.contents(), value_of(100) + zeros(156));
}

TEST_F(KeyExportTest, WritesTheFileBeforeItLooksAtTheReturnCode) {
  connection().replies = reply("0256", value_of(256), "0042");
  EXPECT_EQ(export_key(file_.path().c_str()), 42);
  EXPECT_EQ(file_.contents(), value_of(256));
  EXPECT_EQ(value_, kUntouched);
}

TEST_F(KeyExportTest, RefusesAFileThatCannotBeOpened) {
  const std::string path = file_.folder() + "/missing/file";
  connection().replies = reply("0256", value_of(256), "0042");
  EXPECT_EQ(export_key(path.c_str()), ERR_EXPORT_FILE_OPEN) << "the return code does not count";
  EXPECT_EQ(value_, kUntouched);
  EXPECT_THAT(last_two_traces(), ElementsAre("ExportSymKey ERR <9125> Error opening export file <" + path + ">",
                                             "<No such file or directory>"));
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), ElementsAre("ExportSymKey Failed! ret = <9125>"));
}

TEST_F(KeyExportTest, OpensNoFileBeforeTheReplyArrived) {
  connection().failing_reads = {{1, 30062}};
  connection().replies = "00340";
  EXPECT_EQ(export_key(file_.path().c_str()), 30062);
  EXPECT_FALSE(file_.exists());
  script::reset();
  connection().replies = "16385";
  EXPECT_EQ(export_key(file_.path().c_str()), ERR_EXPORT_SIZE);
  EXPECT_FALSE(file_.exists());
}

TEST_F(KeyExportTest, CutsAnOverlongPath) {
  connection().replies = reply("0256", value_of(256));
  EXPECT_EQ(export_key(("/" + std::string(12344, 'p')).c_str()), ERR_EXPORT_FILE_OPEN);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              testing::IsSupersetOf(
                  {std::string("Export File Path len <1234>"), "EI File Path </" + std::string(2047, 'p') + ">"}));
}

TEST_F(KeyExportTest, TellsAFullDisk) {
  connection().replies = reply("9999", value_of(256), "0042");
  EXPECT_EQ(export_key("/dev/full"), ERR_EXPORT_FILE_WRITE) << "the return code does not count";
  EXPECT_EQ(value_, kUntouched);
  EXPECT_THAT(events_between("dump Key value", "trace ExportSymKey Failed! ret = <9126>"),
              ElementsAre("trace ExportSymKey ERR <9126> fwrite returned <0> items", "trace  instead of 1",
                          "trace  ferror returned <1>", "trace  feof returned <0>"));
}

TEST_F(KeyExportTest, TracesAFullDiskThatItMeetsWhenClosing) {
  connection().replies = reply("0256", value_of(256));
  EXPECT_EQ(export_key("/dev/full"), 0);
  EXPECT_EQ(value_, value_of(256) + "u");
  EXPECT_THAT(last_two_traces(),
              ElementsAre("ExportSymKey ERR <0> fclose failed for file </dev/full>", "<No space left on device>"));
  script::reset();
  connection().replies = reply("0256", value_of(256), "0042");
  EXPECT_EQ(export_key("/dev/full"), 42);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              Contains("ExportSymKey ERR <42> fclose failed for file </dev/full>"));
}

TEST_F(KeyExportTest, TakesNoOlderReasonForThatOfAFailedClose) {
  connection().replies = reply("0256", value_of(256));
  failure_of_close = 0;
  errno = ENOENT;
  EXPECT_EQ(export_key(file_.path().c_str()), 0);
  EXPECT_THAT(last_two_traces(),
              ElementsAre("ExportSymKey ERR <0> fclose failed for file <" + file_.path() + ">", "<Success>"));
}

TEST_F(KeyExportTest, CutsOverlongNames) {
  connection().replies = reply("0256", value_of(256));
  EXPECT_EQ(qExportSymKey(&paths_, host_, port_, std::string(41, 'k').c_str(), std::string(25, 'i').c_str(),
                          std::string(65, 'c').c_str(), nullptr, nullptr),
            0);
  EXPECT_THAT(connection().writes,
              ElementsAre("00136"
                          "1025" +
                          std::string(40, 'k') + std::string(24, 'i') + "RSA" + std::string(64, 'c') + "2" + zeros(5)));
}

TEST_F(KeyExportTest, TransactionFunctionLeavesTheValueInTheRequestArea) {
  const auto session = open_session();
  connection().replies = reply("0256", value_of(256), "0042");
  ExportSymKey(session.get());
  EXPECT_EQ(session->iStatus, 42);
  EXPECT_EQ(std::string(session->request.caKeyValue, 256), value_of(256));
}

}  // namespace
