// Certificates and private keys: imports, export, deletions.
#include <sys/resource.h>

#include <csignal>

#include "tests/library/library_test.h"
#include "tests/library/temporary_file.h"

namespace {

using script::Read;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// Bytes of all values, NULs and line ends among them.
std::string content(std::size_t length) {
  std::string bytes;
  for (std::size_t i = 0; i < length; ++i) bytes += static_cast<char>(i * 7);
  return bytes;
}

class ImportTest : public LibraryTest {
 protected:
  int import_certificate(const std::string &path) {
    return qImportCertificate(&paths_, host_, port_, path.c_str(), "Cert1", 1);
  }
  int import_key(const std::string &path) { return qImportPrivateKey(&paths_, host_, port_, path.c_str(), "Key1"); }

  static std::string certificate_request(const char *count) {
    return "00075"
           "1139"
           "C" +
           padded("Cert1", 64) + "Y" + count;
  }
  static std::string key_request(const char *count) {
    return "00074"
           "1143" +
           padded("Key1", 64) + "Y" + count;
  }

  void expect_nothing_sent() {
    EXPECT_THAT(connection().writes, IsEmpty());
    EXPECT_THAT(connection().reads, IsEmpty());
  }

  const std::string kCertificateReply = framed(
      "1139"
      "0000");
  const std::string kKeyReply = framed(
      "1143"
      "0000");
  TemporaryFile file_;
};

TEST_F(ImportTest, OfACertificateSendsItsFileBehindTheRequest) {
  connection().replies = kCertificateReply;
  EXPECT_EQ(import_certificate(file_.fill(content(1000))), 0);
  EXPECT_THAT(connection().writes, ElementsAre(certificate_request("01000"), content(1000)));
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{8, 60}));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: ImportCertificate", "iBytesRead <8>", "iBytesRead <0>", "Return Code <0000>"));
  EXPECT_EQ(connection().dumps.size(), 2u) << "the file is in no dump";
  EXPECT_EQ(connection().dumps[0].bytes, certificate_request("01000"));
}

TEST_F(ImportTest, OfAPrivateKeySendsItsFileBehindTheRequest) {
  connection().replies = kKeyReply;
  EXPECT_EQ(import_key(file_.fill(content(1000))), 0);
  EXPECT_THAT(connection().writes, ElementsAre(key_request("01000"), content(1000)));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: ImportPrivateKey", "iBytesRead <8>", "iBytesRead <0>", "Return Code <0000>"));
  EXPECT_EQ(connection().dumps.size(), 2u) << "the key is in no dump";
}

TEST_F(ImportTest, SendsTheFlagAsYOrN) {
  for (const int flag : {0, 1, -1, 256}) {
    script::reset();
    connection().replies = kCertificateReply;
    EXPECT_EQ(qImportCertificate(&paths_, host_, port_, file_.fill("x").c_str(), "Cert1", flag), 0);
    EXPECT_EQ(connection().writes[0].substr(74, 1), flag == 0 ? "N" : "Y") << flag;
  }
}

TEST_F(ImportTest, SendsAtMost16305BytesOfACertificate) {
  const struct {
    std::size_t length, sent;
    const char *count;
  } cases[] = {{16304, 16304, "16304"}, {16305, 16305, "16305"}, {16306, 16305, "16305"}, {40000, 16305, "16305"}};
  for (const auto &c : cases) {
    script::reset();
    connection().replies = kCertificateReply;
    EXPECT_EQ(import_certificate(file_.fill(content(c.length))), 0);
    EXPECT_THAT(connection().writes, ElementsAre(certificate_request(c.count), content(c.sent))) << c.length;
  }
}

TEST_F(ImportTest, SendsAtMost16306BytesOfAPrivateKey) {
  const struct {
    std::size_t length, sent;
    const char *count;
  } cases[] = {{16305, 16305, "16305"}, {16306, 16306, "16306"}, {16307, 16306, "16306"}, {40000, 16306, "16306"}};
  for (const auto &c : cases) {
    script::reset();
    connection().replies = kKeyReply;
    EXPECT_EQ(import_key(file_.fill(content(c.length))), 0);
    EXPECT_THAT(connection().writes, ElementsAre(key_request(c.count), content(c.sent))) << c.length;
  }
}

TEST_F(ImportTest, OfAnEmptyFileMakesAWriteOfZeroBytes) {
  connection().replies = kCertificateReply;
  EXPECT_EQ(import_certificate(file_.fill("")), 0);
  EXPECT_THAT(connection().writes, ElementsAre(certificate_request("00000"), ""));
  script::reset();
  connection().replies = kKeyReply;
  EXPECT_EQ(import_key(file_.path()), 0);
  EXPECT_THAT(connection().writes, ElementsAre(key_request("00000"), ""));
}

TEST_F(ImportTest, DoesNotNoticeAFailedFirstWriteWhenTheSecondSucceeds) {
  connection().replies = kCertificateReply;
  connection().failing_writes = {{0, 30061}};
  EXPECT_EQ(import_certificate(file_.fill("x")), 0);
  EXPECT_THAT(connection().writes, ElementsAre(certificate_request("00001"), "x"));
  script::reset();
  connection().replies = kKeyReply;
  connection().failing_writes = {{0, 30061}};
  EXPECT_EQ(import_key(file_.path()), 0);
  EXPECT_THAT(connection().writes, ElementsAre(key_request("00001"), "x"));
}

TEST_F(ImportTest, ReturnsTheStatusOfTheSecondWrite) {
  connection().failing_writes = {{0, 30060}, {1, 30061}};
  EXPECT_EQ(import_certificate(file_.fill("x")), 30061);
  EXPECT_THAT(connection().reads, IsEmpty());
}

TEST_F(ImportTest, RefusesAFileThatCannotBeOpened) {
  EXPECT_EQ(import_certificate(file_.path()), ERR_DATA_FILE);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: ImportCertificate", "Failed to open data file <" + file_.path() + ">"));
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), ElementsAre("ImportCertificate Failed! ret = <20010>"));
  expect_nothing_sent();
  script::reset();
  EXPECT_EQ(import_key(file_.path()), ERR_DATA_FILE);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), ElementsAre("F: ImportPrivateKey", "Failed to open data file"))
      << "the path of a private key is not told";
  expect_nothing_sent();
}

TEST_F(ImportTest, RefusesAFileThatCannotBeRead) {
  EXPECT_EQ(import_certificate(file_.folder()), ERR_DATA_FILE);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), ElementsAre("F: ImportCertificate", "Error reading file <1>"));
  expect_nothing_sent();
  script::reset();
  EXPECT_EQ(import_key(file_.folder()), ERR_DATA_FILE);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), ElementsAre("F: ImportPrivateKey", "Error reading file <1>"));
  expect_nothing_sent();
}

TEST_F(ImportTest, RefusesEmptyNullAndOverlongPaths) {
  const std::string overlong = "/" + std::string(5000, 'p');
  for (const char *path : {"", static_cast<const char *>(nullptr), overlong.c_str()}) {
    EXPECT_EQ(qImportCertificate(&paths_, host_, port_, path, "Cert1", 1), ERR_DATA_FILE);
    EXPECT_EQ(qImportPrivateKey(&paths_, host_, port_, path, "Key1"), ERR_DATA_FILE);
  }
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              Contains("Failed to open data file </" + std::string(2047, 'p') + ">"));
  expect_nothing_sent();
}

TEST_F(ImportTest, CutsOverlongNames) {
  const std::string name(65, 'n'), kept(64, 'n');
  connection().replies = kCertificateReply + kKeyReply;
  EXPECT_EQ(qImportCertificate(&paths_, host_, port_, file_.fill("x").c_str(), name.c_str(), 0), 0);
  EXPECT_EQ(qImportPrivateKey(&paths_, host_, port_, file_.path().c_str(), name.c_str()), 0);
  EXPECT_THAT(connection().writes, ElementsAre("00075"
                                               "1139"
                                               "C" +
                                                   kept +
                                                   "N"
                                                   "00001",
                                               "x",
                                               "00074"
                                               "1143" +
                                                   kept +
                                                   "Y"
                                                   "00001",
                                               "x"));
}

TEST_F(ImportTest, OfAPrivateKeyWritesTheIdentifierItself) {
  const auto session = open_session();
  connection().replies = kKeyReply;
  std::strcpy(session->request.caTranId, "9999");
  std::strcpy(session->request.caCertName, padded("Key1", 64).c_str());
  std::strcpy(session->request.caImportFlag, "Y");
  std::strcpy(session->caFilePath, file_.fill("x").c_str());
  ImportPrivateKey(session.get());
  EXPECT_EQ(session->iStatus, 0);
  EXPECT_THAT(connection().writes, ElementsAre(key_request("00001"), "x"));
}

class CertificateExportTest : public LibraryTest {
 protected:
  static std::string reply(const std::string &length, const char *return_code = "0000") {
    return framed("1153" + std::string(return_code) + "C" + padded("Cert1", 64) + length);
  }
  int export_to(const std::string &path) {
    return qExportCertificate(&paths_, host_, port_, "Cert1", 'C', path.c_str());
  }
  std::string last_trace() { return connection().traces_of("orn/vesk/skeys").back(); }

  TemporaryFile file_;
};

TEST_F(CertificateExportTest, WritesTheCertificateBehindTheReply) {
  connection().replies = reply("01000") + content(1000);
  file_.fill(std::string(5000, 'o'));
  EXPECT_EQ(export_to(file_.path()), 0);
  EXPECT_EQ(file_.contents(), content(1000));
  EXPECT_THAT(connection().writes, ElementsAre("00069"
                                               "1153"
                                               "C" +
                                               padded("Cert1", 64)));
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{78, 60}, Read{1000, 60}));
  EXPECT_THAT(
      connection().traces_of("orn/vesk/skeys"),
      ElementsAre("F: ExportCertificate", "Transaction Length <00069>", "Tran Id <1153>", "Cert Type <C>",
                  "Cert Name <" + padded("Cert1", 64) + ">", "EI File Path <" + file_.path() + ">", "iBytesRead <78>",
                  "iBytesRead <0>", "Tran Len <00078>", "Tran Id <1153>", "Return Code <0000>", "Cert Type <C>",
                  "Cert Name <" + padded("Cert1", 64) + ">", "Cert Length <01000>"));
}

TEST_F(CertificateExportTest, TakesACertificateOfAnyLength) {
  // 16306 bytes are left of the buffer behind the reply; a larger certificate arrives in pieces.
  for (const std::size_t length : {1u, 16305u, 16306u, 16307u, 16389u, 32695u, 99999u}) {
    script::reset();
    char digits[16];
    std::snprintf(digits, sizeof digits, "%05zu", length);
    connection().replies = reply(digits) + content(length);
    EXPECT_EQ(export_to(file_.path()), 0) << length;
    EXPECT_EQ(file_.contents(), content(length)) << length;
    EXPECT_EQ(connection().reads[2], (Read{static_cast<int>(std::min<std::size_t>(length, 16389)), 60})) << length;
  }
}

TEST_F(CertificateExportTest, EmptiesTheFileForALengthOfZero) {
  for (const char *length : {"00000", "     ", "-0001", "xyzzy"}) {
    script::reset();
    connection().replies = reply(length);
    file_.fill("something");
    EXPECT_EQ(export_to(file_.path()), 0) << length;
    EXPECT_TRUE(file_.exists());
    EXPECT_EQ(file_.contents(), "") << length;
    EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{78, 60}, Read{0, 60})) << length;
  }
}

TEST_F(CertificateExportTest, WritesZeroBytesForWhatDidNotArrive) {
  for (const std::size_t arrived : {0u, 1u, 999u}) {
    script::reset();
    connection().replies = reply("01000", "0042") + content(arrived);
    EXPECT_EQ(export_to(file_.path()), script::kClosed) << arrived;
    EXPECT_EQ(file_.contents(), content(arrived) + zeros(1000 - arrived)) << arrived;
  }
  // In pieces as well: nothing is read after the piece that failed.
  script::reset();
  connection().replies = reply("99999") + content(20000);
  EXPECT_EQ(export_to(file_.path()), script::kClosed);
  EXPECT_EQ(file_.contents(), content(20000) + zeros(79999));
  EXPECT_EQ(connection().reads.size(), 4u);
}

TEST_F(CertificateExportTest, WritesTheFileBeforeItLooksAtTheReturnCode) {
  connection().replies = reply("00010", "0042") + content(10);
  EXPECT_EQ(export_to(file_.path()), 42);
  EXPECT_EQ(file_.contents(), content(10));
}

TEST_F(CertificateExportTest, LeavesTheCertificateUnreadWhenTheFileCannotBeOpened) {
  const std::string missing = file_.folder() + "/missing/file", overlong = "/" + std::string(5000, 'p');
  const struct {
    std::string path, shown, reason;
  } cases[] = {{missing, missing, "No such file or directory"},
               {"", "", "No such file or directory"},
               {overlong, overlong.substr(0, 2048), "File name too long"},
               {file_.folder(), file_.folder(), "Is a directory"}};
  for (const auto &c : cases) {
    script::reset();
    connection().replies = reply("00010", "0042") + content(10);
    EXPECT_EQ(export_to(c.path), ERR_EXPORT_FILE_OPEN) << c.path;
    EXPECT_EQ(connection().replies, content(10));
    EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
                Contains("ExportCertificate ERR <9125> Error opening export file <" + c.shown + ">"));
    EXPECT_EQ(last_trace(), "<" + c.reason + ">");
    connection().replies.clear();
  }
}

TEST_F(CertificateExportTest, TellsAFullDisk) {
  connection().replies = reply("20000", "0042") + content(20000);
  EXPECT_EQ(export_to("/dev/full"), ERR_EXPORT_FILE_WRITE);
  const auto traces = connection().traces_of("orn/vesk/skeys");
  EXPECT_THAT(std::vector(traces.end() - 5, traces.end()),
              ElementsAre("Cert Length <20000>", "ExportCertificate ERR <9126> fwrite returned <0> items",
                          " instead of 1", " ferror returned <1>", " feof returned <0>"));
  connection().replies.clear();
  // A full disk outweighs a line that is down.
  script::reset();
  connection().replies = reply("10000");
  EXPECT_EQ(export_to("/dev/full"), ERR_EXPORT_FILE_WRITE);
  // One that is met only when the file is closed is not told.
  script::reset();
  connection().replies = reply("00010", "0042") + content(10);
  EXPECT_EQ(export_to("/dev/full"), 42);
  EXPECT_EQ(last_trace(), "Cert Length <00010>");
}

// No file grows beyond that while it exists.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : old_handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &old_limit_);
    const rlimit limit{bytes, old_limit_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &old_limit_);
    std::signal(SIGXFSZ, old_handler_);
  }
  FileSizeLimit(const FileSizeLimit &) = delete;
  FileSizeLimit &operator=(const FileSizeLimit &) = delete;

 private:
  sighandler_t old_handler_;
  rlimit old_limit_{};
};

TEST_F(CertificateExportTest, CountsThePiecesThatWereWrittenBeforeTheDiskWasFull) {
  const FileSizeLimit limit(16384);
  connection().replies = reply("40000") + content(40000);
  EXPECT_EQ(export_to(file_.path()), ERR_EXPORT_FILE_WRITE);
  EXPECT_EQ(file_.contents(), content(16384));
  // The first piece, of 16389 bytes, and what the stream took of the second until its buffer was full.
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              Contains("ExportCertificate ERR <9126> fwrite returned <20480> items"));
  connection().replies.clear();
}

TEST_F(CertificateExportTest, OpensNoFileBeforeTheReplyArrived) {
  connection().replies = "16385";
  EXPECT_EQ(export_to(file_.path()), ERR_EXPORT_SIZE);
  EXPECT_FALSE(file_.exists());
}

TEST_F(CertificateExportTest, PassesTheTypeThroughAndCutsTheName) {
  connection().replies = reply("00000");
  EXPECT_EQ(qExportCertificate(&paths_, host_, port_, std::string(65, 'n').c_str(), '?', "/dev/null"), 0);
  EXPECT_THAT(connection().writes, ElementsAre("00069"
                                               "1153"
                                               "?" +
                                               std::string(64, 'n')));
}

using DeletionTest = LibraryTest;

TEST_F(DeletionTest, OfACertificatePassesTheTypeThroughAndCutsTheName) {
  connection().replies = framed(
      "1141"
      "0000");
  EXPECT_EQ(qDeleteCertificate(&paths_, host_, port_, std::string(65, 'n').c_str(), '?'), 0);
  EXPECT_THAT(connection().writes, ElementsAre("00069"
                                               "1141"
                                               "?" +
                                               std::string(64, 'n')));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: DeleteCertificate", "iBytesRead <8>", "iBytesRead <0>", "Tran Len <00008>",
                          "Tran Id <1141>", "Return Code <0000>"));
}

TEST_F(DeletionTest, OfAPrivateKeyCutsTheName) {
  connection().replies = framed(
      "1145"
      "0000");
  EXPECT_EQ(qDeletePrivateKey(&paths_, host_, port_, std::string(65, 'n').c_str()), 0);
  EXPECT_THAT(connection().writes, ElementsAre("00068"
                                               "1145" +
                                               std::string(64, 'n')));
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              ElementsAre("F: DeletePrivateKey", "iBytesRead <8>", "iBytesRead <0>", "Tran Len <00008>",
                          "Tran Id <1145>", "Return Code <0000>"));
}

}  // namespace
