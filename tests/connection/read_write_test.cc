// Reading and writing over an established connection.
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <memory>

#include "tests/connection/client.h"

namespace tests {
namespace {

TlsSettings settings_of(int version) {
  return {.identity = &world().server, .min_version = version, .max_version = version};
}

// What holds for both versions of TLS.
class ReadWrite : public testing::TestWithParam<int> {
 protected:
  TlsSettings settings() const { return settings_of(GetParam()); }

  // A connected client whose server does this after the handshake.
  void serve(Script script) {
    server_ = std::make_unique<TlsServer>([settings = settings(), script](Line &line) {
      if (line.accept_tls(settings)) script(line);
    });
    ASSERT_STATUS(0, world().connect(client_, *server_));
  }

  Client client_;

 private:
  std::unique_ptr<TlsServer> server_;
};

INSTANTIATE_TEST_SUITE_P(Tls, ReadWrite, testing::Values(TLS1_2_VERSION, TLS1_3_VERSION),
                         [](const auto &info) { return info.param == TLS1_2_VERSION ? "v12" : "v13"; });

TEST_P(ReadWrite, EchoesEveryByteOfManyRecords) {
  serve([](Line &line) {
    for (std::string bytes = line.read_some(); !bytes.empty(); bytes = line.read_some()) line.write(bytes);
  });
  std::string sent(100'000, 'x');
  for (std::size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<char>(i * 7 + i / 251);
  ASSERT_STATUS(0, client_.write(sent));
  ASSERT_STATUS(0, client_.read(100'000));
  EXPECT_EQ(sent, client_.received());
}

TEST_P(ReadWrite, ReadsExactlyTheCountWhateverTheRecords) {
  serve([](Line &line) {
    for (char byte : std::string("0123456789")) line.write({&byte, 1});
    line.write("abcdefghij");
    line.wait_for_end();
  });
  for (const char *expected : {"01234", "56789abc", "d", "efghij"}) {
    ASSERT_STATUS(0, client_.read(static_cast<int>(std::string(expected).size())));
    EXPECT_EQ(expected, client_.received());
  }
}

TEST_P(ReadWrite, WhatCameBeforeAPoliteCloseIsDelivered) {
  serve([](Line &line) {
    line.write("half");
    line.close_politely();
  });
  EXPECT_STATUS(CONN_ERR_CLOSED, client_.read(9));
  EXPECT_EQ("half", client_.received());
  EXPECT_STATUS(CONN_ERR_CLOSED, client_.read(1));
}

TEST_P(ReadWrite, WhatCameBeforeACloseWithoutAWordIsDelivered) {
  serve([](Line &line) { line.write("half"); });
  EXPECT_STATUS(CONN_ERR_CLOSED, client_.read(9));
  EXPECT_EQ("half", client_.received());
}

TEST_P(ReadWrite, AResetHasItsOwnStatus) {
  serve([](Line &line) {
    line.read_some();
    line.reset();
  });
  ASSERT_STATUS(0, client_.write("x"));
  EXPECT_STATUS(CONN_ERR_RESET, client_.read(9));
  EXPECT_STATUS(CONN_ERR_RESET, client_.read(9));
  EXPECT_STATUS(CONN_ERR_RESET, client_.write("again"));
  EXPECT_STATUS(0, client_.read(0));
}

TEST_P(ReadWrite, GarbageInTheMiddleBreaksTheProtocol) {
  serve([](Line &line) {
    line.write_in_clear("this is no TLS record");
    line.wait_for_end();
  });
  EXPECT_STATUS(CONN_ERR_PROTOCOL, client_.read(1));
}

TEST_P(ReadWrite, AReadThatTimesOutKeepsWhatCameAndMayGoOn) {
  serve([](Line &line) {
    line.write("half");
    if (line.read_some() == "go on") line.write("rest");
    line.wait_for_end();
  });
  Stopwatch watch;
  EXPECT_STATUS(CONN_ERR_READ_TIMED_OUT, client_.read(8, 1));
  EXPECT_GE(watch.seconds(), 1.0);
  EXPECT_LT(watch.seconds(), kAtLatest);
  EXPECT_EQ("half", client_.received());
  ASSERT_STATUS(0, client_.write("go on"));
  ASSERT_STATUS(0, client_.read(4));
  EXPECT_EQ("rest", client_.received());
}

TEST_P(ReadWrite, ATimeOutOfZeroReadsWhatIsThere) {
  serve([](Line &line) {
    line.write("x123456789");
    line.wait_for_end();
  });
  // The record has arrived as a whole when its first byte has.
  ASSERT_STATUS(0, client_.read(1));
  ASSERT_STATUS(0, client_.read(9, 0));
  EXPECT_EQ("123456789", client_.received());
  EXPECT_STATUS(CONN_ERR_READ_TIMED_OUT, client_.read(1, 0));
  EXPECT_STATUS(CONN_ERR_READ_TIMED_OUT, client_.read(1, -1));
}

TEST_P(ReadWrite, TheLongestTimeOutIsNoOverflow) {
  serve(echo(settings()));
  Client client;
  TlsServer server(echo(settings()));
  ASSERT_STATUS(0, world().connect(client, server, "127.0.0.1", INT_MAX));
  ASSERT_STATUS(0, client.write("x"));
  EXPECT_STATUS(0, client.read(1, INT_MAX));
}

TEST_P(ReadWrite, NothingIsReadOrWrittenForACountOfZero) {
  serve([](Line &line) { line.wait_for_end(); });
  EXPECT_STATUS(0, client_.read(0, 0));
  EXPECT_STATUS(0, client_.write(""));
}

TEST_P(ReadWrite, RefusesWhatIsNoBuffer) {
  serve([](Line &line) { line.wait_for_end(); });
  char byte = 0;
  int num_read = 7;
  EXPECT_STATUS(CONN_ERR_ARGUMENT, TLSRead(client_.tls(), client_.aux(), &byte, -1, 1, &num_read));
  EXPECT_EQ(0, num_read);
  EXPECT_STATUS(CONN_ERR_ARGUMENT, TLSRead(client_.tls(), client_.aux(), nullptr, 1, 1, nullptr));
  EXPECT_STATUS(CONN_ERR_ARGUMENT, TLSRead(nullptr, nullptr, &byte, 1, 1, nullptr));
  EXPECT_STATUS(CONN_ERR_ARGUMENT, TLSWrite(client_.tls(), &byte, -1));
  EXPECT_STATUS(CONN_ERR_ARGUMENT, TLSWrite(client_.tls(), nullptr, 1));
  EXPECT_STATUS(CONN_ERR_ARGUMENT, TLSWrite(nullptr, &byte, 1));
}

void leave_errors() {
  ERR_raise(ERR_LIB_SSL, SSL_R_CERTIFICATE_VERIFY_FAILED);
  errno = EPIPE;
}

TEST_P(ReadWrite, ForeignErrorsFromBeforeDoNotMatter) {
  serve([](Line &line) {
    line.write("answer");
    line.wait_for_end();
  });
  leave_errors();
  EXPECT_STATUS(0, client_.write("request"));
  leave_errors();
  EXPECT_STATUS(0, client_.read(6));
  leave_errors();
  client_.tear_down();
  leave_errors();
  TlsServer server(echo(settings()));
  EXPECT_STATUS(0, world().connect(client_, server));
}

TEST_P(ReadWrite, TearingDownSaysGoodByeAndWaitsForNobody) {
  std::atomic<int> shutdown_state{0};
  serve([&](Line &line) {
    line.read_some();
    shutdown_state = SSL_get_shutdown(line.ssl());
    shutdown_state.notify_one();
    line.wait_for_end();
  });
  Stopwatch watch;
  client_.tear_down();
  EXPECT_LT(watch.seconds(), kAtLatest);
  shutdown_state.wait(0);
  EXPECT_TRUE(shutdown_state & SSL_RECEIVED_SHUTDOWN);
}

TEST_P(ReadWrite, TearingDownBeforeAllIsReadIsNoReset) {
  std::atomic<bool> is_written{false};
  std::atomic<int> end{1};
  serve([&](Line &line) {
    line.write(std::string(20'000, 'x'));
    is_written = true;
    is_written.notify_one();
    line.read_some();  // the good-bye
    char byte = 0;
    end = static_cast<int>(recv(line.descriptor(), &byte, 1, 0));
    end.notify_one();
  });
  is_written.wait(false);
  client_.tear_down();
  end.wait(1);
  EXPECT_EQ(0, end);
}

// The server asks for another handshake, which it is refused; the connection goes on as it is.
TEST(ReadWriteTls12, ARequestToRenegotiateIsInvisible) {
  int reason = 0;
  {
    TlsServer server([&](Line &line) {
      if (!line.accept_tls(settings_of(TLS1_2_VERSION))) return;
      SSL_renegotiate(line.ssl());
      SSL_do_handshake(line.ssl());
      line.write("answer");
      line.read_some();
      reason = ERR_GET_REASON(ERR_peek_error());
    });
    Client client;
    ASSERT_STATUS(0, world().connect(client, server));
    ASSERT_STATUS(0, client.read(6));
    EXPECT_EQ("answer", client.received());
  }
  EXPECT_EQ(SSL_R_NO_RENEGOTIATION, reason);
}

TEST(ReadWriteTls13, MessagesBetweenTheRecordsAreInvisible) {
  TlsServer server([](Line &line) {
    if (!line.accept_tls(settings_of(TLS1_3_VERSION))) return;
    SSL_new_session_ticket(line.ssl());
    line.write("ab");
    SSL_key_update(line.ssl(), SSL_KEY_UPDATE_REQUESTED);
    line.write("cd");
    SSL_new_session_ticket(line.ssl());
    line.write("ef");
    if (line.read_some() == "request") line.write("reply");
    line.wait_for_end();
  });
  Client client;
  ASSERT_STATUS(0, world().connect(client, server));
  ASSERT_STATUS(0, client.read(6));
  EXPECT_EQ("abcdef", client.received());
  ASSERT_STATUS(0, client.write("request"));
  ASSERT_STATUS(0, client.read(5));
  EXPECT_EQ("reply", client.received());
}

// A peer that never stops sending messages without data keeps OpenSSL busy, but not beyond the deadline.
TEST(ReadWriteTls13, AFloodOfMessagesWithoutDataTimesOut) {
  TlsServer server([](Line &line) {
    if (!line.accept_tls(settings_of(TLS1_3_VERSION))) return;
    while (SSL_key_update(line.ssl(), SSL_KEY_UPDATE_NOT_REQUESTED) == 1 && SSL_do_handshake(line.ssl()) == 1) {
    }
  });
  Client client;
  ASSERT_STATUS(0, world().connect(client, server));
  Stopwatch watch;
  int status = client.read(1, 1);
  EXPECT_THAT((std::vector{CONN_ERR_READ_TIMED_OUT, CONN_ERR_PROTOCOL}), testing::Contains(status));
  EXPECT_LT(watch.seconds(), kAtLatest);
}

// A client whose certificate comes from elsewhere.
class RefusedClient : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Tls, RefusedClient, testing::Values(TLS1_2_VERSION, TLS1_3_VERSION),
                         [](const auto &info) { return info.param == TLS1_2_VERSION ? "v12" : "v13"; });

TEST_P(RefusedClient, IsToldSoAtTheHandshakeOrTheFirstRead) {
  Identity stranger = make_authority("Stranger");
  TlsSettings settings = settings_of(GetParam());
  settings.client_authority = &stranger;
  TlsServer server([&](Line &line) { line.accept_tls(settings); });
  Client client;
  int status = world().connect(client, server);
  if (GetParam() == TLS1_3_VERSION) {
    ASSERT_STATUS(0, status);
    status = client.read(1);
  }
  EXPECT_STATUS(CONN_ERR_CLIENT_REFUSED, status);
}

TEST(RefusedClientTls13, IsToldSoByAWriteThatMeetsTheClosedLine) {
  Identity stranger = make_authority("Stranger");
  TlsSettings settings = settings_of(TLS1_3_VERSION);
  settings.client_authority = &stranger;
  std::atomic<bool> is_closed{false};
  TlsServer server([&](Line &line) {
    if (is_closed) return;
    line.accept_tls(settings);
    shutdown(line.descriptor(), SHUT_RDWR);
    is_closed = true;
    is_closed.notify_one();
  });
  Client client;
  ASSERT_STATUS(0, world().connect(client, server));
  is_closed.wait(false);
  int status = client.write("first");
  // The first write after the close may still be accepted by the client's own system.
  for (int i = 0; i < 1000 && status == 0; ++i) status = client.write("more");
  EXPECT_STATUS(CONN_ERR_CLIENT_REFUSED, status);
}

}  // namespace
}  // namespace tests
