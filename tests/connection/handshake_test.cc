// The way to an established connection, and every place where it can end.
#include <gmock/gmock.h>
#include <sys/socket.h>

#include "tests/connection/client.h"
#include "tests/connection/signal_storm.h"

namespace tests {
namespace {

// A server's handshake whose bytes the test sends as it likes.
class HandshakeBytes {
 public:
  explicit HandshakeBytes(const TlsSettings &settings) : ssl_(make_server_ssl(settings)) {
    SSL_set_bio(ssl_.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_set_accept_state(ssl_.get());
  }

  // What the server answers to what came from the client. After the handshake it answers "request" with "reply".
  std::string answer(const std::string &bytes) {
    BIO_write(SSL_get_rbio(ssl_.get()), bytes.data(), static_cast<int>(bytes.size()));
    char request[16];
    if (SSL_read(ssl_.get(), request, sizeof request) > 0) SSL_write(ssl_.get(), "reply", 5);
    char *data = nullptr;
    long length = BIO_get_mem_data(SSL_get_wbio(ssl_.get()), &data);
    std::string out(data, static_cast<std::size_t>(length));
    static_cast<void>(BIO_reset(SSL_get_wbio(ssl_.get())));
    return out;
  }

 private:
  orn::SslPtr ssl_;
};

TlsSettings settings_of(int version) {
  return {.identity = &world().server, .min_version = version, .max_version = version};
}

int status_of(Script script, int seconds = 10) {
  TlsServer server(std::move(script));
  Client client;
  return world().connect(client, server, "127.0.0.1", seconds);
}

struct Ending {
  const char *name;
  int status;
  void (*end)(Line &);
};

constexpr Ending kEndings[] = {
    {"closes", CONN_ERR_CLOSED, [](Line &line) { line.close_politely(); }},
    {"resets", CONN_ERR_RESET, [](Line &line) { line.reset(); }},
    {"is silent", CONN_ERR_CONNECT_TIMED_OUT, [](Line &line) { line.wait_for_end(); }},
};

class Stages : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Handshake, Stages, testing::Values(TLS1_2_VERSION, TLS1_3_VERSION),
                         [](const auto &info) { return info.param == TLS1_2_VERSION ? "v12" : "v13"; });

TEST_P(Stages, AServerThatStopsAtAnyPointIsNoticed) {
  for (const Ending &ending : kEndings) {
    // How much of the first flight of some 800 bytes comes: nothing, a header cut short, half.
    for (std::size_t sent : {0, 1, 5, 400}) {
      const bool waits = ending.status == CONN_ERR_CONNECT_TIMED_OUT;
      Stopwatch watch;
      int status = status_of(
          [&](Line &line) {
            HandshakeBytes handshake(settings_of(GetParam()));
            line.write_in_clear(handshake.answer(line.read_some()).substr(0, sent));
            ending.end(line);
          },
          waits ? 1 : 10);
      EXPECT_STATUS(ending.status, status) << ending.name << " after " << sent;
      EXPECT_GE(watch.seconds(), waits ? 1.0 : 0.0);
      EXPECT_LT(watch.seconds(), kAtLatest);
    }
  }
}

TEST_P(Stages, BytesMayComeOneByOne) {
  TlsServer server([](Line &line) {
    HandshakeBytes handshake(settings_of(GetParam()));
    for (std::string bytes = line.read_some(); !bytes.empty(); bytes = line.read_some()) {
      for (char byte : handshake.answer(bytes)) line.write_in_clear({&byte, 1});
    }
  });
  Client client;
  ASSERT_STATUS(0, world().connect(client, server));
  ASSERT_STATUS(0, client.write("request"));
  ASSERT_STATUS(0, client.read(5));
  EXPECT_EQ("reply", client.received());
}

TEST(Handshake, AServerThatClosesAtOnceIsClosedOrReset) {
  EXPECT_THAT((std::vector{CONN_ERR_CLOSED, CONN_ERR_RESET}), testing::Contains(status_of([](Line &) {})));
}

TEST(Handshake, WhatDoesNotSpeakTlsIsNoticedAtItsFirstByte) {
  for (const char *greeting : {"220 mail.example ESMTP\r\n", "HTTP/1.1 400 Bad Request\r\n\r\n", "?", "\x16\x02"}) {
    Stopwatch watch;
    EXPECT_STATUS(CONN_ERR_NOT_TLS, status_of([&](Line &line) {
                    line.write_in_clear(greeting);
                    line.wait_for_end();
                  }))
        << greeting;
    EXPECT_LT(watch.seconds(), kAtLatest);
  }
}

TEST(Handshake, AnAlertEndsItAtOnce) {
  struct {
    char alert;
    int status;
  } const kAlerts[] = {
      {SSL_AD_HANDSHAKE_FAILURE, CONN_ERR_ALERT},           {SSL_AD_INTERNAL_ERROR, CONN_ERR_ALERT},
      {SSL_AD_PROTOCOL_VERSION, CONN_ERR_PROTOCOL_VERSION}, {SSL_AD_ACCESS_DENIED, CONN_ERR_CLIENT_REFUSED},
      {SSL_AD_UNKNOWN_CA, CONN_ERR_CLIENT_REFUSED},         {SSL_AD_CERTIFICATE_REVOKED, CONN_ERR_CLIENT_REFUSED},
  };
  for (auto [alert, status] : kAlerts) {
    const char record[] = {SSL3_RT_ALERT, 3, 3, 0, 2, SSL3_AL_FATAL, alert};
    EXPECT_STATUS(status, status_of([&](Line &line) {
                    line.read_some();
                    line.write_in_clear({record, sizeof record});
                    line.wait_for_end();
                  }))
        << int{alert};
  }
}

TEST(Handshake, OldVersionsAreTooOld) {
  for (int version : {TLS1_VERSION, TLS1_1_VERSION}) {
    EXPECT_STATUS(CONN_ERR_PROTOCOL_VERSION, status_of([&](Line &line) { line.accept_tls(settings_of(version)); }));
  }
}

TEST(Handshake, TheNewestVersionIsPreferred) {
  TlsServer server(echo(world().settings()));
  Client client;
  ASSERT_STATUS(0, world().connect(client, server));
  EXPECT_STREQ("TLSv1.3", SSL_get_version(static_cast<SSL *>(client.tls())));
}

TEST(Handshake, AnotherAddressIsTriedWhenOneRefuses) {
  // The name has an IPv6 and an IPv4 address here or the IPv4 one alone; the server has only the latter.
  TlsServer server(echo(world().settings()));
  Client client;
  EXPECT_STATUS(0, world().connect(client, server, "localhost"));
}

TEST(Endpoint, APortWhereNobodyListensRefuses) {
  std::string port = TlsServer([](Line &) {}).port();
  Client client;
  const World &w = world();
  EXPECT_STATUS(CONN_ERR_REFUSED, client.connect(w.authority_file, w.chain_file, w.key_file, "127.0.0.1", port));
  EXPECT_STATUS(CONN_ERR_REFUSED, client.connect(w.authority_file, w.chain_file, w.key_file, "localhost", port));
}

TEST(Endpoint, AnAddressThatNobodyCanConnectToIsUnreachable) {
  Client client;
  const World &w = world();
  // A group of hosts.
  EXPECT_STATUS(CONN_ERR_UNREACHABLE, client.connect(w.authority_file, w.chain_file, w.key_file, "224.0.0.1", "1"));
}

TEST(Endpoint, PortsAreFrom1To65535InDecimalDigits) {
  Client client;
  const World &w = world();
  for (const char *port : {"", "0", "00000", "65536", "99999", "123456", "-1", "+443", " 443", "443 ", "0x1", "http"}) {
    EXPECT_STATUS(CONN_ERR_PORT, client.connect(w.authority_file, w.chain_file, w.key_file, "127.0.0.1", port)) << port;
  }
  EXPECT_STATUS(CONN_ERR_REFUSED, client.connect(w.authority_file, w.chain_file, w.key_file, "127.0.0.1", "00001"));
}

TEST(Endpoint, AHostIsANameOrAnAddress) {
  Client client;
  const World &w = world();
  EXPECT_STATUS(CONN_ERR_HOST, client.connect(w.authority_file, w.chain_file, w.key_file, "", "1"));
  EXPECT_STATUS(CONN_ERR_HOST, client.connect(w.authority_file, w.chain_file, w.key_file, ".example", "1"));
}

TEST(Endpoint, NullArgumentsAreRefusedAndTheHandlesCleared) {
  void *tls = &tls;
  void *aux = &aux;
  const char *file = world().authority_file.c_str();
  EXPECT_STATUS(CONN_ERR_ARGUMENT, SetupConnection(&tls, &aux, nullptr, file, file, 0, file, "localhost", "1", 1));
  EXPECT_EQ(nullptr, tls);
  EXPECT_EQ(nullptr, aux);
  void *read = &read;
  EXPECT_STATUS(CONN_ERR_ARGUMENT, SetupConnection(&tls, &aux, &read, file, file, 0, nullptr, "localhost", "1", 1));
  EXPECT_STATUS(CONN_ERR_ARGUMENT, SetupConnection(&tls, &aux, &read, file, file, 0, file, nullptr, "1", 1));
  EXPECT_EQ(nullptr, read);
}

TEST(Endpoint, ATimeOutOfZeroIsOverAtOnce) {
  for (int seconds : {0, -1}) {
    Stopwatch watch;
    EXPECT_STATUS(CONN_ERR_CONNECT_TIMED_OUT, status_of([](Line &line) { line.wait_for_end(); }, seconds));
    EXPECT_LT(watch.seconds(), kAtLatest);
  }
}

TEST(Signals, NeitherShortenNorLengthenATimeOut) {
  TlsServer silent([](Line &line) { line.wait_for_end(); });
  TlsServer server(echo(world().settings()));
  Client client;
  SignalStorm storm;
  Stopwatch connecting;
  EXPECT_STATUS(CONN_ERR_CONNECT_TIMED_OUT, world().connect(client, silent, "127.0.0.1", 1));
  EXPECT_GE(connecting.seconds(), 1.0);
  EXPECT_LT(connecting.seconds(), kAtLatest);
  ASSERT_STATUS(0, world().connect(client, server));
  Stopwatch reading;
  EXPECT_STATUS(CONN_ERR_READ_TIMED_OUT, client.read(1, 1));
  EXPECT_GE(reading.seconds(), 1.0);
  EXPECT_LT(reading.seconds(), kAtLatest);
}

}  // namespace
}  // namespace tests
