// Certificate summaries, linked lists, and the words of statuses.
#include <gmock/gmock.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tests/connection/client.h"

namespace tests {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

CertificateInfo info_of(const CertificateSpec &spec) {
  CertificateInfo info;
  X509_get_info(issue(spec, &world().authority).certificate.get(), &info);
  EXPECT_EQ(0U, ERR_peek_error());
  return info;
}

TEST(CertificateSummary, HoldsWhatTheCertificateSays) {
  CertificateInfo info = info_of({.alternative_names = "DNS:kms.example, IP:192.0.2.1, IP:2001:db8::1, email:a@b.c"});
  EXPECT_STREQ("CN=server", info.subject);
  EXPECT_STREQ("CN=Test Authority", info.issuer);
  EXPECT_THAT(info.serialNumber, MatchesRegex("[0-9A-F]+"));
  EXPECT_THAT(info.notBefore, MatchesRegex("20[0-9-]*T[0-9:]*Z"));
  EXPECT_EQ(20U, std::strlen(info.notAfter));
  EXPECT_STREQ("DNS:kms.example, IP:192.0.2.1, IP:2001:db8::1, email:a@b.c", info.names);
  EXPECT_STREQ("EC P-256", info.key);
  EXPECT_THAT(info.sha256Fingerprint, MatchesRegex("([0-9A-F][0-9A-F]:)+[0-9A-F][0-9A-F]"));
  EXPECT_EQ(95U, std::strlen(info.sha256Fingerprint));
}

TEST(CertificateSummary, TellsNamesOfEveryKind) {
  EXPECT_STREQ("URI:https://kms.example/a\\5Cb, other name",
               info_of({.alternative_names = "URI:https://kms.example/a\\b, RID:1.2.3.4"}).names);
}

TEST(CertificateSummary, TellsTheSizeOfRsaKeys) {
  EXPECT_STREQ("RSA 2048", info_of({.rsa_bits = 2048}).key);
}

TEST(CertificateSummary, HostileNamesAreHarmless) {
  // A zero byte, a line end, a terminal's escape sequence in both its encodings, and a reversed direction.
  std::string name(
      "evil\0host\n\x1b[2J\xc2\x9b"
      "2J\xe2\x80\xae"
      "txt",
      24);
  EXPECT_STREQ("CN=evil\\00host\\0A\\1B[2J\\C2\\9B2J\\E2\\80\\AEtxt", info_of({.common_name = name}).subject);
  EXPECT_STREQ("CN=M\xc3\xbcller", info_of({.common_name = "M\xc3\xbcller"}).subject);
}

TEST(CertificateSummary, LongNamesAreCutAtAWholeCharacter) {
  std::string names;
  for (int i = 0; i < 100; ++i) names += (i ? ",DNS:" : "DNS:") + std::string(60, 'a');
  EXPECT_EQ(1023U, std::strlen(info_of({.alternative_names = names}).names));
}

TEST(CertificateSummary, OfNothingIsEmpty) {
  CertificateInfo info;
  std::memset(&info, 'x', sizeof info);
  X509_get_info(nullptr, &info);
  for (std::size_t i = 0; i < sizeof info; ++i) ASSERT_EQ(0, reinterpret_cast<char *>(&info)[i]);
  X509_get_info(world().server.certificate.get(), nullptr);
}

TEST(CertificateSummary, OfAnEmptyCertificateIsEmpty) {
  orn::X509Ptr empty(X509_new());
  CertificateInfo info;
  X509_get_info(empty.get(), &info);
  EXPECT_STREQ("", info.subject);
  EXPECT_STREQ("", info.key);
  EXPECT_EQ(0U, ERR_peek_error());
}

TEST(CertificateSummary, TheTextHasALineForEachField) {
  CertificateInfo info = info_of({});
  char *text = CertificateInfo_to_string(&info);
  EXPECT_THAT(text, MatchesRegex("Subject: CN=server\nIssuer: CN=Test Authority\nSerial number: [0-9A-F]+\n"
                                 "Not before: [^\n]+Z\nNot after: [^\n]+Z\nNames: DNS:localhost, IP:127.0.0.1\n"
                                 "Key: EC P-256\nSHA-256 fingerprint: [^\n]+"));
  std::free(text);
  text = CertificateInfo_to_string(nullptr);
  EXPECT_STREQ("", text);
  std::free(text);
}

TEST(CertificateSummary, AFullFieldWithoutTerminatorIsNotReadBeyond) {
  CertificateInfo info;
  std::memset(&info, 'x', sizeof info);
  char *text = CertificateInfo_to_string(&info);
  EXPECT_THAT(text, testing::StartsWith("Subject: " + std::string(512, 'x') + "\nIssuer: x"));
  std::free(text);
}

TEST(LinkedList, KeepsCopiesInTheirOrder) {
  LinkedList *list = ll_create(sizeof(int));
  EXPECT_EQ(nullptr, ll_first(list));
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(0, ll_append(list, &i));
  EXPECT_EQ(1000U, ll_count(list));
  EXPECT_EQ(sizeof(int), ll_get_element_size(list));
  int expected = 0;
  for (const LinkedListNode *node = ll_first(list); node; node = ll_next(node)) {
    EXPECT_EQ(expected++, *static_cast<const int *>(ll_element(node)));
  }
  EXPECT_EQ(1000, expected);
  ll_free(list);
}

TEST(LinkedList, ElementsMayHaveNoBytes) {
  LinkedList *list = ll_create(0);
  EXPECT_EQ(0, ll_append(list, ""));
  EXPECT_EQ(1U, ll_count(list));
  EXPECT_EQ(0U, ll_get_element_size(list));
  ll_free(list);
}

TEST(LinkedList, RefusesWhatCannotBe) {
  LinkedList *list = ll_create(SIZE_MAX);
  EXPECT_STATUS(CONN_ERR_RESOURCES, ll_append(list, ""));
  EXPECT_STATUS(CONN_ERR_ARGUMENT, ll_append(list, nullptr));
  EXPECT_STATUS(CONN_ERR_ARGUMENT, ll_append(nullptr, ""));
  EXPECT_EQ(0U, ll_count(list));
  EXPECT_EQ(0U, ll_count(nullptr));
  EXPECT_EQ(0U, ll_get_element_size(nullptr));
  EXPECT_EQ(nullptr, ll_first(nullptr));
  EXPECT_EQ(nullptr, ll_next(nullptr));
  EXPECT_EQ(nullptr, ll_element(nullptr));
  ll_free(list);
  ll_free(nullptr);
}

TEST(Status, EveryCodeHasItsNameAndSentence) {
  std::set<std::string> texts;
  int num_codes = 0;
#define EXPECT_WORDS(name, value, sentence) \
  EXPECT_STREQ(#name, StatusName(value));   \
  EXPECT_STREQ(sentence, StatusText(name)); \
  texts.insert(sentence);                   \
  ++num_codes;
  ORN_LIBRARY_STATUSES(EXPECT_WORDS)
  ORN_CONNECTION_STATUSES(EXPECT_WORDS)
#undef EXPECT_WORDS
  EXPECT_EQ(static_cast<std::size_t>(num_codes), texts.size());
}

// A range of its own, which neither servers nor the library use.
TEST(Status, OfTheConnectionLayerAreFrom30001To30099) {
#define EXPECT_IN_RANGE(name, value, sentence) EXPECT_TRUE(value >= 30'001 && value <= 30'099) << #name;
#define EXPECT_OUT_OF_RANGE(name, value, sentence) EXPECT_TRUE(value<30'001 || value> 30'099) << #name;
  ORN_CONNECTION_STATUSES(EXPECT_IN_RANGE)
  ORN_LIBRARY_STATUSES(EXPECT_OUT_OF_RANGE)
#undef EXPECT_IN_RANGE
#undef EXPECT_OUT_OF_RANGE
}

TEST(Status, TheOthersAreToldApartByValue) {
  EXPECT_STREQ("OK", StatusName(0));
  EXPECT_STREQ("CALL_FAILED", StatusName(-1));
  EXPECT_STREQ("SERVER_RETURN_CODE", StatusName(2));
  EXPECT_STREQ("SERVER_RETURN_CODE", StatusName(9983));
  EXPECT_STREQ("metadata field MD16 is not exactly 64 characters", StatusText(9984));
  EXPECT_STREQ("metadata field MD02 is not exactly 64 characters", StatusText(9998));
  EXPECT_STREQ("ERR_METADATA_SIZE_MD09", StatusName(9991));
  for (int unused : {-2, 10'000, 20'002, 20'006, 30'099, INT32_MAX, INT32_MIN}) {
    EXPECT_STREQ("UNKNOWN_STATUS", StatusName(unused));
  }
}

// The document's rows that name statuses are all that have words of their own, in the order of their values.
TEST(Status, EveryCodeStandsInTheDocumentAsItIs) {
  std::vector<std::string> expected;
  for (int status = -100; status <= 40'000; ++status) {
    const std::string_view name = StatusName(status);
    if (name == "UNKNOWN_STATUS" || name == "SERVER_RETURN_CODE") continue;
    expected.push_back("| " + std::to_string(status) + " | `" + StatusName(status) + "` | " + StatusText(status) +
                       " |");
  }
  std::ifstream document(STATUS_DOCUMENT);
  ASSERT_TRUE(document);
  std::vector<std::string> documented;
  for (std::string line; std::getline(document, line);) {
    if (line.find(" | `") != std::string::npos) documented.push_back(line);
  }
  EXPECT_EQ(documented, expected);
}

}  // namespace
}  // namespace tests
