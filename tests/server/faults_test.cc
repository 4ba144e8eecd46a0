// A server that misbehaves on purpose: what the library makes of every deviation.
#include "veskd/faults.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/server/fault_file.h"
#include "tests/server/test_server.h"
#include "veskd/files.h"

namespace veskd::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char *kConstant = "CONSTANT_000015";

// ---- What the library makes of it ----

ServerOptions misbehaving(const std::filesystem::path &faults, Limits limits) {
  ServerOptions options;
  options.limits = limits;
  options.limits.num_threads = 2;
  options.roles = development_roles();
  options.faults.script = faults;
  return options;
}

struct Listing {
  int status = 0;
  std::vector<std::string> names;
};

// A server with a fault, and the calls that meet it.
class FaultyServer {
 public:
  explicit FaultyServer(const std::string &faults, Limits limits = {})
      : server_(misbehaving(FaultFile(faults).path(), limits)) {
    TLSForgetAll();
  }
  ~FaultyServer() { TLSForgetAll(); }
  FaultyServer(const FaultyServer &) = delete;
  FaultyServer &operator=(const FaultyServer &) = delete;

  int ping() const { return server_.ping(); }
  int create(const std::string &name) const {
    return qCreateSymKey(server_.paths(), server_.host(), server_.port(), name.c_str(), 'N');
  }
  int retrieve(const std::string &name, KeyRecord &record) const {
    return qRetrieveKey(server_.paths(), server_.host(), server_.port(), name.c_str(), "", &record);
  }
  int generate(const std::string &constant) const {
    return qAutoGenKeys(server_.paths(), server_.host(), server_.port(), constant.c_str(), 'i', 3);
  }
  Listing list_keys() const { return list(qRetrieveKeyNameList_as_ll, 41); }
  Listing list_templates() const { return list(qGetTemplateList, 40); }

  const TestServer &test() const { return server_; }

 private:
  template <typename Call>
  Listing list(Call call, std::size_t element_bytes) const {
    const std::unique_ptr<LinkedList, decltype(&ll_free)> list(ll_create(element_bytes), ll_free);
    Listing listing;
    listing.status = call(server_.paths(), server_.host(), server_.port(), list.get());
    for (const LinkedListNode *node = ll_first(list.get()); node != nullptr; node = ll_next(node)) {
      const std::string name = static_cast<const char *>(ll_element(node));
      listing.names.push_back(name.substr(0, name.find_last_not_of(' ') + 1));
    }
    return listing;
  }

  TestServer server_;
};

enum class Record { kEmpty, kPart, kWhole };

struct Deviant {
  const char *fault;
  int status;
  Record record;  // what the caller gets of it
};

constexpr Deviant kDeviants[] = {
    {"do = 'delay'\ntime = '20ms'", 0, Record::kWhole},
    {"do = 'dribble'\npause = '0ms'", 0, Record::kWhole},
    {"do = 'cut'", CONN_ERR_CLOSED, Record::kEmpty},
    {"do = 'cut'\nafter_bytes = 3", CONN_ERR_CLOSED, Record::kEmpty},
    {"do = 'cut'\nafter_bytes = 20", CONN_ERR_CLOSED, Record::kEmpty},
    {"do = 'cut'\nafter_bytes = 65535", 0, Record::kWhole},
    {"do = 'reset'", CONN_ERR_RESET, Record::kEmpty},
    {"do = 'reset'\nafter_bytes = 20", CONN_ERR_RESET, Record::kEmpty},
    {"do = 'length'\ndigits = '16385'", ERR_TRANSACTION_SIZE, Record::kEmpty},
    {"do = 'length'\ndigits = '99999'", ERR_TRANSACTION_SIZE, Record::kEmpty},
    {"do = 'length'\ndigits = '16384'", CONN_ERR_CLOSED, Record::kEmpty},
    {"do = 'length'\ndigits = '00008'", ERR_KEY_NAME_MISMATCH, Record::kPart},
    {"do = 'length'\ndigits = '00000'", ERR_KEY_NAME_MISMATCH, Record::kPart},
    {"do = 'length'\ndigits = '-0001'", ERR_KEY_NAME_MISMATCH, Record::kPart},
    {"do = 'length'\ndigits = 'abcde'", ERR_KEY_NAME_MISMATCH, Record::kPart},
    {"do = 'short'\nbytes = 1", 0, Record::kPart},
    {"do = 'short'\nbytes = 65535", ERR_KEY_NAME_MISMATCH, Record::kPart},
    {"do = 'long'\nbytes = 1", 0, Record::kPart},
    {"do = 'long'\nbytes = 16384", ERR_TRANSACTION_SIZE, Record::kEmpty},
    {"do = 'return-code'\ncode = 9998", 9998, Record::kPart},
};

bool is_empty(const KeyRecord &record) {
  const KeyRecord empty{};
  return std::memcmp(&record, &empty, sizeof record) == 0;
}

// Every other call meets a fault; the ones in between find the server as it should be.
TEST(Deviation, OfAReplyHasItsStatusAndLeavesNothingBehind) {
  std::string file;
  int number = 0;
  for (const Deviant &deviant : kDeviants)
    file += fmt::format("[[fault]]\noperation = 'RetrieveKey'\nnth = {}\n{}\n", number += 2, deviant.fault);
  const FaultyServer server(file);
  ASSERT_EQ(server.create("K1"), 0);
  for (const Deviant &deviant : kDeviants) {
    SCOPED_TRACE(deviant.fault);
    KeyRecord good;
    ASSERT_EQ(server.retrieve("K1", good), 0);
    KeyRecord record;
    std::memset(&record, 1, sizeof record);
    EXPECT_EQ(server.retrieve("K1", record), deviant.status);
    EXPECT_EQ(is_empty(record), deviant.record == Record::kEmpty);
    EXPECT_EQ(std::memcmp(&record, &good, sizeof record) == 0, deviant.record == Record::kWhole);
  }
}

TEST(Deviation, OfTheServersCertificateIsNoticedBeforeAnythingIsSent) {
  const FaultyServer server(
      "[[fault]]\nnth = 1\ndo = 'expired-certificate'\n[[fault]]\nnth = 2\ndo = 'wrong-name'\n"
      "[[fault]]\nevery = 1\noperation = 'CreateSymKey'\ndo = 'return-code'\ncode = 9998\n");
  EXPECT_EQ(server.create("K1"), CONN_ERR_PEER_EXPIRED);
  EXPECT_EQ(server.create("K1"), CONN_ERR_PEER_NAME);
  EXPECT_EQ(server.create("K1"), 9998);
}

TEST(Deviation, DelayTakesItsTime) {
  const FaultyServer server("[[fault]]\ndo = 'delay'\ntime = '200ms'\n");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(server.ping(), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 200ms);
}

TEST(Deviation, DribbleTakesItsTimeForEachByte) {
  const FaultyServer server("[[fault]]\ndo = 'dribble'\npause = '10ms'\n");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(server.ping(), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 12 * 10ms);
}

// A reader that has no time is told so, and gets the reply when it comes.
TEST(Deviation, DelayBeyondATimeOutIsATimeOut) {
  Limits limits;
  limits.stopping = 1ms;
  const FaultyServer server("[[fault]]\ndo = 'delay'\ntime = '1h'\nnth = 2\n", limits);
  const auto &path = server.test().paths()->caPath;
  for (const int expected : {0, int{CONN_ERR_READ_TIMED_OUT}}) {
    void *tls = nullptr, *aux = nullptr, *read = nullptr;
    ASSERT_EQ(SetupConnection(&tls, &aux, &read, path[2], path[1], 0, path[3], server.test().host(),
                              std::to_string(server.test().port()).c_str(), 10),
              0);
    EXPECT_EQ(TLSWrite(tls, "000041043", 9), 0);
    char digits[5];
    int num_read = -1;
    EXPECT_EQ(TLSRead(tls, read, digits, sizeof digits, expected == 0 ? 60 : 0, &num_read), expected);
    EXPECT_EQ(num_read, expected == 0 ? 5 : 0);
    EXPECT_EQ(TLSTeardown(tls, aux, read), 0);
  }
}

// The change is made, and the client does not hear of it.
TEST(Deviation, ALostReplyLosesNoChange) {
  const FaultyServer server("[[fault]]\noperation = 'CreateSymKey'\nfirst = 1\ndo = 'cut'\n");
  EXPECT_EQ(server.create("K1"), CONN_ERR_CLOSED);
  EXPECT_EQ(server.create("K1"), RC_KEY_EXISTS);
}

TEST(Deviation, ARefusalChangesNothing) {
  const FaultyServer server("[[fault]]\noperation = 'CreateSymKey'\nfirst = 1\ndo = 'return-code'\ncode = 202\n");
  EXPECT_EQ(server.create("K1"), RC_KEY_EXISTS);
  EXPECT_EQ(server.create("K1"), 0);
}

// ---- Lists ----

// Pages of two entries, and three templates.
class FaultyList : public testing::Test {
 protected:
  Listing list_with(const std::string &fault) {
    Limits limits;
    limits.max_page_bytes = 88;
    limits.list = 1s;
    const FaultyServer server("[[fault]]\n" + fault + "\noperation = 'GetTemplateList'\nfirst = 1\n", limits);
    for (const char *constant : {"CONSTANT_000001", "CONSTANT_000002", "CONSTANT_000003"})
      EXPECT_EQ(server.generate(constant), 0);
    const Listing listing = server.list_templates();
    EXPECT_THAT(server.list_templates().names, SizeIs(3)) << "afterwards";
    return listing;
  }
};

TEST_F(FaultyList, WithACountOfMoreThanComesEndsWithTheConnection) {
  const Listing listing = list_with("do = 'count'\ndigits = '99999'");
  EXPECT_EQ(listing.status, CONN_ERR_CLOSED);
  EXPECT_THAT(listing.names, SizeIs(testing::Le(3)));
}

TEST_F(FaultyList, WithACountOfNothingHasNoNames) {
  const Listing listing = list_with("do = 'count'\ndigits = '00000'");
  EXPECT_THAT(listing.names, IsEmpty());
}

TEST_F(FaultyList, WithoutMoreEndsEarly) {
  const Listing listing = list_with("do = 'more-flag'\nflag = 'N'");
  EXPECT_EQ(listing.status, 0);
  EXPECT_THAT(listing.names, ElementsAre("CONSTANT_000001", "CONSTANT_000002"));
}

TEST_F(FaultyList, WithMoreThanThereIsEndsWithTheConnection) {
  const Listing listing = list_with("do = 'more-flag'\nflag = 'Y'");
  EXPECT_EQ(listing.status, CONN_ERR_CLOSED);
  EXPECT_THAT(listing.names, ElementsAre("CONSTANT_000001", "CONSTANT_000002", "CONSTANT_000003"));
}

TEST_F(FaultyList, WithoutEndEndsAtTheServersLimit) {
  const Listing listing = list_with("do = 'endless'");
  EXPECT_EQ(listing.status, CONN_ERR_CLOSED);
  EXPECT_THAT(listing.names, SizeIs(testing::Gt(3)));
  EXPECT_THAT(std::set(listing.names.begin(), listing.names.end()), ElementsAre("CONSTANT_000001", "CONSTANT_000002"));
}

TEST(Deviation, OfAListLeavesARefusalAsItIs) {
  const FaultyServer server(
      "[[fault]]\nnth = 1\ndo = 'endless'\n[[fault]]\nnth = 2\ndo = 'more-flag'\nflag = 'Y'\n"
      "[[fault]]\nnth = 3\ndo = 'count'\ndigits = '00001'\n");
  const std::string of_a_type_that_there_is_not = "000051049X";
  for (int i = 0; i < 3; ++i) EXPECT_EQ(ask(server.test(), of_a_type_that_there_is_not), "0001410490502N00000");
}

// ---- Session tickets ----

// What the connection layer says of its connections.
class Trace {
 public:
  Trace() { TraceToCallback(take, this); }
  ~Trace() { TraceOff(); }
  Trace(const Trace &) = delete;
  Trace &operator=(const Trace &) = delete;

  bool has(const std::string &text) const { return text_.find(text) != std::string::npos; }
  // Whether the connections so far were resumed, a letter each.
  std::string connections() const {
    std::string letters;
    std::istringstream lines(text_);
    for (std::string line; std::getline(lines, line);) {
      if (line.find("connected to ") != std::string::npos)
        letters += line.find(", resumed") != std::string::npos ? 'r' : 'f';
    }
    return letters;
  }

 private:
  static void take(void *self, const char *line) {
    const bool is_of_handshake =
        std::strstr(line, "connected to ") != nullptr || std::strstr(line, "ticket") != nullptr;
    if (is_of_handshake) static_cast<Trace *>(self)->text_.append(line).append("\n");
  }

  std::string text_;
};

TEST(RefusedResumption, OfAnIgnoredTicketIsAFullHandshake) {
  const FaultyServer server("[[fault]]\nnth = 2\ndo = 'ignore-ticket'\n");
  const Trace trace;
  for (int i = 0; i < 4; ++i) EXPECT_EQ(server.ping(), 0);
  // Behind the one that was ignored, no ticket is shown for a while.
  EXPECT_EQ(trace.connections(), "frff");
  TLSForgetAll();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(server.ping(), 0);
  EXPECT_EQ(trace.connections(), "frfffr");
}

TEST(RefusedResumption, WithAnAlertIsAnotherConnectionWithinTheCall) {
  const FaultyServer server("[[fault]]\nnth = 1\ndo = 'alert-on-ticket'\n");
  const Trace trace;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(server.ping(), 0);
  EXPECT_TRUE(trace.has("has not taken its ticket (CONN_ERR_ALERT), a full handshake follows"));
  EXPECT_EQ(trace.connections(), "fff");
}

// Also one with a certificate to be refused, because a resumed connection shows none.
TEST(RefusedResumption, ComesWithGoodTickets) {
  const FaultyServer server("[[fault]]\nnth = 1\ndo = 'ignore-ticket'\n[[fault]]\nnth = 4\ndo = 'wrong-name'\n");
  std::unique_ptr<SSL_SESSION, decltype(&SSL_SESSION_free)> session(nullptr, SSL_SESSION_free);
  std::string resumed;
  for (int i = 0; i < 4; ++i) {
    RawConnection connection(server.test().port());
    ASSERT_TRUE(connection.handshake(raw_options(server.test().directory()), session.get()));
    resumed += SSL_session_reused(connection.tls()) == 1 ? 'r' : 'f';
    connection.send("000041043");
    EXPECT_EQ(connection.receive_all(), "0000810430000");
    // A copy: what a connection leaves behind is not good any more when it ends.
    session.reset(SSL_SESSION_dup(SSL_get0_session(connection.tls())));
  }
  EXPECT_EQ(resumed, "ffrf");
}

// ---- The example in the documents ----

// All that there are, in the example and in the table of the document.
TEST(FaultExample, HoldsEveryDeviation) {
  const std::string example = read_file(VESKD_EXAMPLE);
  std::stringstream document;
  document << std::ifstream(VESKD_DOCUMENT).rdbuf();
  std::set<std::string> words;
  const std::string key = "\ndo = \"";
  for (std::size_t at = example.find(key); at != std::string::npos; at = example.find(key, at + 1)) {
    const std::size_t begin = at + key.size();
    words.insert(example.substr(begin, example.find('"', begin) - begin));
  }
  EXPECT_THAT(words, SizeIs(static_cast<std::size_t>(Deviation::kAlertOnTicket) + 1));
  for (const std::string &word : words) EXPECT_THAT(document.str(), HasSubstr("\n| `" + word + "` |"));
}

// Every fault of it, one call after the other.
TEST(FaultExample, DoesWhatItSays) {
  Limits limits;
  limits.list = 1s;
  const FaultyServer server(read_file(VESKD_EXAMPLE), limits);
  const TestServer &test = server.test();
  const Trace trace;
  EXPECT_EQ(server.ping(), CONN_ERR_PEER_EXPIRED);
  EXPECT_EQ(server.ping(), CONN_ERR_PEER_NAME);
  EXPECT_EQ(server.ping(), 0);

  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(server.ping(), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 250ms);
  EXPECT_EQ(trace.connections(), "ff") << "the second shows a ticket that is ignored";
  TLSForgetAll();

  ASSERT_EQ(server.generate(kConstant), 0);
  char name[41];
  unsigned char value[32];
  std::uint32_t increment = 1, size = 1, next = 1;
  EXPECT_EQ(qGetNextKey(test.paths(), test.host(), test.port(), kConstant, name, value, &increment), 0);
  EXPECT_EQ(increment, 0u);
  EXPECT_EQ(trace.connections(), "ffff");
  EXPECT_TRUE(trace.has("has not taken its ticket (CONN_ERR_ALERT)"));
  EXPECT_EQ(qGetTemplateDepth(test.paths(), test.host(), test.port(), kConstant, &size, &next), 0);
  EXPECT_EQ(size + next, 0u) << "the fields did not arrive";

  std::vector<int> created;
  for (int i = 0; i < 8; ++i) created.push_back(server.create("K" + std::to_string(i)));
  constexpr int kReset = CONN_ERR_RESET;
  EXPECT_THAT(created, ElementsAre(kReset, kReset, 0, 0, 0, kReset, 0, 0)) << "as the seed has it";
  KeyRecord record;
  for (const int status : {0, 0, int{CONN_ERR_CLOSED}}) EXPECT_EQ(server.retrieve("K0", record), status);
  EXPECT_EQ(server.list_keys().status, CONN_ERR_CLOSED);
  EXPECT_THAT(server.list_keys().names, SizeIs(3 + 8)) << "all were created";
  EXPECT_EQ(qDeleteKey(test.paths(), test.host(), test.port(), "K0"), RC_SERVER_FAILURE);
  EXPECT_EQ(server.retrieve("K0", record), 0);

  KeyMetadataValues metadata;
  EXPECT_EQ(qRetrieveKeyMetadata(test.paths(), test.host(), test.port(), "K0", &metadata), ERR_TRANSACTION_SIZE);
  EXPECT_EQ(qSetMetadata(test.paths(), test.host(), test.port(), "K0", "", "", "", "", "", "", "", "", "", "", "", "",
                         "", "", "", "", ""),
            ERR_TRANSACTION_SIZE);
  EXPECT_EQ(server.list_templates().status, CONN_ERR_CLOSED);
  EXPECT_EQ(qRetrieveMetadata(test.paths(), test.host(), test.port(), "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0,
                              "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, ""),
            CONN_ERR_CLOSED);
}

}  // namespace
}  // namespace veskd::test
