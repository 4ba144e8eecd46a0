// Sessions that clients resume with tickets, and those that they may not.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <ctime>
#include <memory>
#include <string>

#include "tests/server/laboratory.h"
#include "veskd/certificates.h"
#include "veskd/files.h"

namespace veskd::test {
namespace {

namespace fs = std::filesystem;

constexpr const char *kReloaded = "read the settings and certificates again";
constexpr const char *kNoop = "000041043";
constexpr const char *kDone = "0000810430000";

using Session = std::unique_ptr<SSL_SESSION, decltype(&SSL_SESSION_free)>;

// What a connection came to.
struct Outcome {
  bool reused = false;
  std::string reply;
  int key_exchange = 0;  // the kind of the server's ephemeral key
  Session session{nullptr, SSL_SESSION_free};
};

Outcome connect(std::uint16_t port, const RawOptions &options, const Session &session = {nullptr, SSL_SESSION_free}) {
  Outcome outcome;
  RawConnection connection(port);
  if (!connection.handshake(options, session.get())) return outcome;
  outcome.reused = SSL_session_reused(connection.tls()) == 1;
  EVP_PKEY *key = nullptr;
  if (SSL_get_peer_tmp_key(connection.tls(), &key) == 1) outcome.key_exchange = EVP_PKEY_get_id(key);
  EVP_PKEY_free(key);
  connection.send(kNoop);
  outcome.reply = connection.receive_all();
  outcome.session.reset(SSL_get1_session(connection.tls()));
  // OpenSSL takes a session for unfit to be resumed whose connection was not closed in good order.
  SSL_shutdown(connection.tls());
  return outcome;
}

ServerOptions options_with(const TicketOptions &tickets) {
  ServerOptions options;
  options.tickets = tickets;
  options.roles = development_roles();
  return options;
}

TEST(Sessions, AreResumedAgainAndAgain) {
  TestServer server;
  const RawOptions options = raw_options(server.directory());
  Outcome last = connect(server.port(), options);
  EXPECT_FALSE(last.reused);
  for (int i = 0; i < 3; ++i) {
    last = connect(server.port(), options, last.session);
    EXPECT_TRUE(last.reused);
    EXPECT_EQ(last.reply, kDone);
  }
}

TEST(Sessions, AreResumedWithAFreshKeyExchangeAndNoEarlyData) {
  TestServer server;
  const RawOptions options = raw_options(server.directory());
  const Outcome first = connect(server.port(), options);
  EXPECT_EQ(first.key_exchange, EVP_PKEY_X25519);
  EXPECT_EQ(SSL_SESSION_get_max_early_data(first.session.get()), 0u);
  const Outcome second = connect(server.port(), options, first.session);
  EXPECT_TRUE(second.reused);
  EXPECT_EQ(second.key_exchange, EVP_PKEY_X25519);
}

TEST(Sessions, OfTls12AreNotResumed) {
  TestServer server;
  RawOptions options = raw_options(server.directory());
  options.max_version = TLS1_2_VERSION;
  const Outcome first = connect(server.port(), options);
  ASSERT_EQ(first.reply, kDone);
  const Outcome second = connect(server.port(), options, first.session);
  EXPECT_FALSE(second.reused);
  EXPECT_EQ(second.reply, kDone);
}

TEST(Sessions, AreNotResumedWhenTicketsAreOff) {
  TicketOptions off;
  off.enabled = false;
  TestServer server(options_with(off));
  const RawOptions options = raw_options(server.directory());
  const Outcome first = connect(server.port(), options);
  EXPECT_FALSE(SSL_SESSION_has_ticket(first.session.get()));
  const Outcome second = connect(server.port(), options, first.session);
  EXPECT_FALSE(second.reused);
  EXPECT_EQ(second.reply, kDone);
}

// Another authority's server has the same keys here, because they are those of the process.
TEST(Sessions, OfAnotherAuthorityAreNotResumed) {
  TestServer server, other;
  const Outcome first = connect(other.port(), raw_options(other.directory()));
  const Outcome second = connect(server.port(), raw_options(server.directory()), first.session);
  EXPECT_FALSE(second.reused);
  EXPECT_EQ(second.reply, kDone);
}

// A client whose certificate runs out in a moment.
void write_short_lived_client(const fs::path &directory, long seconds) {
  const Identity authority = read_identity(directory / "authority.pem", directory / "authority-key.pem");
  const Identity client = make_leaf(authority, {"short-lived", Purpose::kClient, {}}, Days(1));
  X509_gmtime_adj(X509_getm_notAfter(client.certificate.get()), seconds);
  X509_sign(client.certificate.get(), authority.key.get(), EVP_sha256());
  replace_file(directory / "client.pem", certificate_pem(client.certificate.get()), kPublicMode);
  replace_file(directory / "client-key.pem", private_key_pem(client.key.get()).text(), kPrivateMode);
}

TEST(Sessions, DoNotOutliveTheClientsCertificate) {
  TestServer server;
  const RawOptions options = raw_options(server.directory());
  Outcome first;
  // On a slow machine the certificate may run out before it was shown.
  for (long seconds = 2; seconds < 100 && first.reply != kDone; seconds *= 2) {
    write_short_lived_client(server.directory(), seconds);
    first = connect(server.port(), options);
  }
  ASSERT_EQ(first.reply, kDone);
  const Identity client = read_identity(options.certificate, options.key);
  ASSERT_TRUE(eventually([&] { return !is_valid_now(client.certificate.get()); }));
  const Outcome second = connect(server.port(), options, first.session);
  EXPECT_FALSE(second.reused);
  EXPECT_EQ(second.reply, "");
}

class ConfiguredTickets : public testing::Test {
 protected:
  RawOptions options() { return raw_options(laboratory.path()); }
  // Keys that stay the same.
  void share_keys(const std::string &rotate) {
    laboratory.configure(fmt::format("[tls.tickets]\nkey_file = 'tickets.key'\nrotate = '{}'\n", rotate));
  }
  void SetUp() override {
    const std::string digits(64, '7');
    replace_file(laboratory / "tickets.key", digits + "\n", kPrivateMode);
  }

  Laboratory laboratory;
};

TEST_F(ConfiguredTickets, DoNotSurviveARestartWithoutAKeyFile) {
  Outcome first;
  {
    ConfiguredServer server(laboratory);
    first = connect(server.port(), options());
    EXPECT_TRUE(connect(server.port(), options(), first.session).reused);
  }
  ConfiguredServer server(laboratory);
  const Outcome second = connect(server.port(), options(), first.session);
  EXPECT_FALSE(second.reused);
  EXPECT_EQ(second.reply, kDone);
}

TEST_F(ConfiguredTickets, SurviveARestartWithAKeyFile) {
  share_keys("12h");
  Outcome first;
  {
    ConfiguredServer server(laboratory);
    first = connect(server.port(), options());
  }
  ConfiguredServer server(laboratory);
  const Outcome second = connect(server.port(), options(), first.session);
  EXPECT_TRUE(second.reused);
  EXPECT_EQ(second.reply, kDone);
}

TEST_F(ConfiguredTickets, SurviveSettingsThatAreReadAgain) {
  ConfiguredServer server(laboratory);
  const Outcome first = connect(server.port(), options());
  ASSERT_TRUE(server.reload(kReloaded));
  EXPECT_TRUE(connect(server.port(), options(), first.session).reused);
}

TEST_F(ConfiguredTickets, EndWithTheAuthorityThatTheyWereIssuedUnder) {
  ConfiguredServer server(laboratory);
  Outcome first = connect(server.port(), options());
  const Identity another = make_authority("another", Days(1));
  laboratory.write("authority.pem",
                   read_file(laboratory / "authority.pem") + certificate_pem(another.certificate.get()));
  ASSERT_TRUE(server.reload(kReloaded));
  const Outcome second = connect(server.port(), options(), first.session);
  EXPECT_FALSE(second.reused);
  EXPECT_EQ(second.reply, kDone);
  EXPECT_TRUE(connect(server.port(), options(), second.session).reused);
}

TEST_F(ConfiguredTickets, CarryTheClientAndNotItsRoles) {
  ConfiguredServer server(laboratory);
  const Outcome first = connect(server.port(), options());
  laboratory.configure("", "");
  ASSERT_TRUE(server.reload(kReloaded));
  const Outcome second = connect(server.port(), options(), first.session);
  EXPECT_TRUE(second.reused);
  EXPECT_EQ(second.reply, "0000810430111");
}

// A time of rotation under which as many periods more have passed by now as the number says, and after which no new one
// begins for a while.
std::time_t rotation_that_is_ahead_by(std::time_t rotation, std::time_t number) {
  const std::time_t now = std::time(nullptr);
  const std::time_t step = number > 0 ? -1 : 1;
  std::time_t other = rotation;
  while (now / other != now / rotation + number || now % other < 300 || now % other > other - 300) other += step;
  return other;
}

TEST_F(ConfiguredTickets, AreGoodForOnePeriodMore) {
  constexpr std::time_t kRotation = 12 * 3600;
  const std::time_t rotation = rotation_that_is_ahead_by(kRotation, 0);
  share_keys(fmt::format("{}s", rotation));
  ConfiguredServer server(laboratory);
  const Outcome first = connect(server.port(), options());
  for (const std::time_t number : {-2, -1, 0, 1, 2}) {
    share_keys(fmt::format("{}s", rotation_that_is_ahead_by(rotation, number)));
    ASSERT_TRUE(server.reload(kReloaded));
    const Outcome later = connect(server.port(), options(), first.session);
    EXPECT_EQ(later.reused, number >= -1 && number <= 1) << number;
    EXPECT_EQ(later.reply, kDone) << number;
  }
}

TEST(DevTickets, AreSwitchedOff) {
  TemporaryDirectory directory;
  Program program({"dev", "--dir", directory.path().string(), "--no-tickets"});
  const std::string banner = program.read_line();
  program.read_line();
  const auto port = static_cast<std::uint16_t>(std::stoi(banner.substr(banner.rfind(' '))));
  const Outcome first = connect(port, raw_options(directory.path()));
  EXPECT_EQ(first.reply, kDone);
  EXPECT_FALSE(SSL_SESSION_has_ticket(first.session.get()));
}

}  // namespace
}  // namespace veskd::test
