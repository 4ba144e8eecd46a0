// What the server does with requests that are not what they should be, and with peers that do not do their part.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <vector>

#include "tests/server/test_server.h"
#include "veskd/handlers.h"

namespace veskd::test {
namespace {

using namespace std::chrono_literals;

struct Malformed {
  const char *rule;
  std::string request;
  std::string reply;
};

void PrintTo(const Malformed &malformed, std::ostream *out) {
  *out << malformed.rule;
}

const std::string kRetrieve = "000712001" + padded("K1", 40) + padded("", 24) + "BIN";

std::string with(std::string text, std::size_t at, char c) {
  text.at(at) = c;
  return text;
}

const std::vector<Malformed> kMalformed = {
    {"length digits with a letter", "0000x1043", "0000800000101"},
    {"length digits with a sign", "+00041043", "0000800000101"},
    {"length digits with blanks", "    41043", "0000800000101"},
    {"length digits with a NUL", with("000041043", 4, '\0'), "0000800000101"},
    {"an identifier that is no number", "0000410a3", "0000800000101"},
    {"nine bytes of anything", "GET / HTT", "0000800000101"},
    {"an identifier that nobody has", "000049999", "0000899990102"},
    {"the least identifier", "000040000", "0000800000102"},
    {"a length one too short", "000031043", "0000810430101"},
    {"a length one too long", "000051043", "0000810430101"},
    {"a length of zero", "000001043", "0000810430101"},
    {"the greatest length", "999992001", "0000820010101"},
    {"the length of another transaction", "000041001", "0000810010101"},
    {"a control character in a name", with(kRetrieve, 10, '\n'), "0000820010101"},
    {"a NUL in a name", with(kRetrieve, 12, '\0'), "0000820010101"},
    {"a DEL in an instance", with(kRetrieve, 60, '\x7f'), "0000820010101"},
    {"a fixed word that is another word", "000121107createDB", "0000811070101"},
    {"a fixed letter that is another letter", "000481125N" + padded("CONSTANT_000015", 39) + "1506", "0000811250101"},
    {"a name of letters outside ASCII",
     "005841001" + padded("K\xc3\xa9y", 40) + "02560000000000000000N0000YN1" + padded("", 512), "0000810010201"},
};

class MalformedRequest : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedRequest, IsAnsweredWithItsReturnCodeAndClosed) {
  TestServer server;
  RawConnection connection(server.port());
  ASSERT_TRUE(connection.handshake(raw_options(server.directory())));
  connection.send(GetParam().request);
  EXPECT_EQ(connection.receive_all(), GetParam().reply) << GetParam().rule;
  EXPECT_TRUE(connection.closed_cleanly());
  EXPECT_EQ(server.ping(), 0);
}

INSTANTIATE_TEST_SUITE_P(Requests, MalformedRequest, testing::ValuesIn(kMalformed), [](const auto &info) {
  std::string name = info.param.rule;
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
});

TEST(Requests, EveryTransactionOfTheProtocolHasAHandler) {
  for (const vesk::wire::Transaction &row : vesk::wire::kTransactions)
    EXPECT_NE(find_handler(row.tran_id), nullptr) << row.function;
}

TEST(Requests, WhatFollowsARequestIsReadAwayAndTheReplyArrives) {
  TestServer server;
  EXPECT_EQ(ask(server, "000041043" + std::string(20000, 'x')), "0000810430000");
}

TEST(Requests, ASecondRequestOnAConnectionIsNotAnswered) {
  TestServer server;
  EXPECT_EQ(ask(server, "000041043000041043"), "0000810430000");
}

TEST(Requests, ARequestMayArriveByteByByte) {
  TestServer server;
  RawConnection connection(server.port());
  ASSERT_TRUE(connection.handshake(raw_options(server.directory())));
  for (const char c : std::string("000041043")) connection.send(std::string(1, c));
  EXPECT_EQ(connection.receive_all(), "0000810430000");
}

// Every prefix of a request, then the end of the connection: the server only has to live on.
TEST(Requests, APeerThatLeavesInTheMiddleDoesNoHarm) {
  TestServer server;
  for (const std::size_t length : {0, 1, 4, 5, 8, 9, 40, 75}) {
    RawConnection connection(server.port());
    ASSERT_TRUE(connection.handshake(raw_options(server.directory())));
    connection.send(kRetrieve.substr(0, length));
  }
  EXPECT_EQ(server.ping(), 0);
}

// ---- Who may talk to the server ----

TEST(Admission, AClientWithoutACertificateGetsNoReply) {
  TestServer server;
  RawConnection connection(server.port());
  RawOptions options = raw_options(server.directory());
  options.certificate.clear();
  connection.handshake(options);
  connection.send("000041043");
  EXPECT_EQ(connection.receive_all(), "");
  EXPECT_FALSE(connection.closed_cleanly());
  EXPECT_EQ(server.ping(), 0);
}

TEST(Admission, ACertificateOfAnotherAuthorityGetsNoReply) {
  TestServer server, stranger;
  RawOptions options = raw_options(stranger.directory());
  options.authority = server.directory() / "authority.pem";
  RawConnection connection(server.port());
  connection.handshake(options);
  connection.send("000041043");
  EXPECT_EQ(connection.receive_all(), "");
  EXPECT_FALSE(connection.closed_cleanly());
}

// The alert reaches a client whose request is on its way already.
TEST(Admission, ARefusedClientLearnsThatItsCertificateWasRefused) {
  TestServer server, stranger;
  CertificatePaths paths = client_paths(stranger.directory());
  const CertificatePaths trusting = client_paths(server.directory());
  std::copy(std::begin(trusting.caPath[1]), std::end(trusting.caPath[1]), std::begin(paths.caPath[1]));
  for (int i = 0; i < 20; ++i) EXPECT_EQ(qAdminNoop(&paths, server.host(), server.port()), CONN_ERR_CLIENT_REFUSED);
}

TEST(Admission, AServersCertificateIsNoClients) {
  TestServer server;
  RawOptions options = raw_options(server.directory());
  options.certificate = server.directory() / "server.pem";
  options.key = server.directory() / "server-key.pem";
  RawConnection connection(server.port());
  connection.handshake(options);
  connection.send("000041043");
  EXPECT_EQ(connection.receive_all(), "");
  EXPECT_FALSE(connection.closed_cleanly());
}

TEST(Admission, Tls12IsTheOldestVersion) {
  TestServer server;
  RawOptions options = raw_options(server.directory());
  options.max_version = TLS1_1_VERSION;
  RawConnection old(server.port());
  EXPECT_FALSE(old.handshake(options));
  options.max_version = TLS1_2_VERSION;
  RawConnection oldest(server.port());
  ASSERT_TRUE(oldest.handshake(options));
  oldest.send("000041043");
  EXPECT_EQ(oldest.receive_all(), "0000810430000");
  RawConnection newest(server.port());
  ASSERT_TRUE(newest.handshake(raw_options(server.directory())));
  EXPECT_STREQ(SSL_get_version(newest.tls()), "TLSv1.3");
}

TEST(Admission, ConnectionsAreNotRenegotiated) {
  TestServer server;
  RawOptions options = raw_options(server.directory());
  options.max_version = TLS1_2_VERSION;
  RawConnection connection(server.port());
  ASSERT_TRUE(connection.handshake(options));
  SSL_renegotiate(connection.tls());
  EXPECT_NE(SSL_do_handshake(connection.tls()), 1);
  EXPECT_EQ(server.ping(), 0);
}

TEST(Admission, TheServerSendsItsChainUpToTheAuthority) {
  TestServer server;
  RawConnection connection(server.port());
  ASSERT_TRUE(connection.handshake(raw_options(server.directory())));
  EXPECT_EQ(sk_X509_num(SSL_get_peer_cert_chain(connection.tls())), 2);
}

// ---- Peers that take their time ----

constexpr std::chrono::milliseconds kShort = 300ms;

TEST(TimeOuts, APeerThatDoesNotBeginTheHandshakeIsClosed) {
  Limits limits;
  limits.handshake = kShort;
  TestServer server(limits);
  RawConnection silent(server.port());
  EXPECT_TRUE(silent.is_closed_by_peer());
}

TEST(TimeOuts, APeerThatDoesNotFinishItsRequestIsClosedWithoutAReply) {
  Limits limits;
  limits.request = kShort;
  TestServer server(limits);
  for (const std::string &part :
       {std::string(), std::string("00"), std::string("000712001"), kRetrieve.substr(0, 75)}) {
    RawConnection slow(server.port());
    ASSERT_TRUE(slow.handshake(raw_options(server.directory())));
    slow.send(part);
    EXPECT_EQ(slow.receive_all(), "");
  }
}

// The time is of the whole request: bytes that do come, one by one, gain the peer nothing.
TEST(TimeOuts, APeerThatSendsItsRequestSlowlyIsClosedAllTheSame) {
  Limits limits;
  limits.request = kShort;
  TestServer server(limits);
  RawConnection slow(server.port());
  ASSERT_TRUE(slow.handshake(raw_options(server.directory())));
  pollfd closed = {.fd = SSL_get_fd(slow.tls()), .events = POLLRDHUP, .revents = 0};
  std::size_t num_sent = 0;
  do slow.send(kRetrieve.substr(num_sent++, 1));
  while (num_sent < kRetrieve.size() && ::poll(&closed, 1, 100) == 0);
  EXPECT_LT(num_sent, kRetrieve.size());
  EXPECT_EQ(slow.receive_all(), "");
}

// With room for one connection, the next is served only when the one before it has ended.
TEST(TimeOuts, APeerThatDoesNotCloseIsClosed) {
  Limits limits;
  limits.closing = kShort;
  limits.max_connections = 1;
  TestServer server(limits);
  RawConnection lingering(server.port());
  ASSERT_TRUE(lingering.handshake(raw_options(server.directory())));
  lingering.send("000041043");
  EXPECT_EQ(server.ping(), 0);
  EXPECT_EQ(lingering.receive_all(), "0000810430000");
}

TEST(TimeOuts, APeerThatDoesNotReadItsReplyIsClosed) {
  Limits limits;
  limits.reply = kShort;
  limits.max_connections = 1;
  TestServer server(limits);
  insert_keys(store_address(server.directory()), 5000);
  RawConnection deaf(server.port());
  ASSERT_TRUE(deaf.handshake(raw_options(server.directory())));
  deaf.send("000041053");
  EXPECT_EQ(server.ping(), 0);
}

TEST(Connections, MoreThanTheServerTakesWaitForTheirTurn) {
  Limits limits;
  limits.request = kShort;
  limits.max_connections = 1;
  TestServer server(limits);
  RawConnection silent(server.port());
  ASSERT_TRUE(silent.handshake(raw_options(server.directory())));
  EXPECT_EQ(server.ping(), 0);
  EXPECT_EQ(silent.receive_all(), "");
}

TEST(Stopping, ConnectionsThatRunAreFinishedOrCutOffInTime) {
  Limits limits;
  limits.stopping = 200ms;
  TestServer server(limits);
  RawConnection silent(server.port());
  ASSERT_TRUE(silent.handshake(raw_options(server.directory())));
  EXPECT_EQ(server.ping(), 0);
  server.stop();
}

TEST(Stopping, AnIdleServerStopsAtOnce) {
  Limits limits;
  limits.stopping = 1h;
  TestServer server(limits);
  server.stop();
}

}  // namespace
}  // namespace veskd::test
