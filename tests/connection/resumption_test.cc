// What one connection leaves for the next: sessions, and contexts with what their files hold.
#include <gmock/gmock.h>
#include <openssl/tls1.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <set>

#include "tests/connection/client.h"

namespace tests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// A server that resumes sessions and remembers which tickets it was offered.
class ResumingServer {
 public:
  explicit ResumingServer(
      const TlsSettings &settings = world().settings(),
      std::function<void(Line &)> serve = [](Line &line) { echo(line); }, const char *address = "127.0.0.1")
      : context_(make_server_context(settings)), server_([this, serve](Line &line) { accept(line, serve); }, address) {
    static const unsigned char kName[] = "test";
    SSL_CTX_set_session_id_context(context_.get(), kName, sizeof kName);
    SSL_CTX_set_client_hello_cb(context_.get(), note_ticket, this);
  }
  ResumingServer(const ResumingServer &) = delete;
  ResumingServer &operator=(const ResumingServer &) = delete;

  const TlsServer &server() const { return server_; }
  SSL_CTX *context() const { return context_.get(); }

  // One for each handshake so far; empty where no ticket was offered.
  std::vector<std::string> tickets() const {
    std::lock_guard lock(mutex_);
    return tickets_;
  }
  bool last_was_offered_one() const { return !tickets().back().empty(); }

 private:
  static int note_ticket(SSL *ssl, int *, void *self) {
    const unsigned char *bytes = nullptr;
    std::size_t length = 0;
    std::string ticket;
    if (SSL_client_hello_get0_ext(ssl, TLSEXT_TYPE_psk, &bytes, &length) == 1)
      ticket.assign(reinterpret_cast<const char *>(bytes), length);
    auto *server = static_cast<ResumingServer *>(self);
    std::lock_guard lock(server->mutex_);
    server->tickets_.push_back(ticket);
    return SSL_CLIENT_HELLO_SUCCESS;
  }

  void accept(Line &line, const std::function<void(Line &)> &serve) {
    if (line.accept_tls(context_.get())) serve(line);
  }

  orn::SslContextPtr context_;
  mutable std::mutex mutex_;
  std::vector<std::string> tickets_;
  TlsServer server_;
};

// Every test begins with nothing kept.
class Resumption : public testing::Test {
 protected:
  Resumption() { TLSForgetAll(); }
  ~Resumption() override { TLSResumption(1); }
};

enum class Way { kFailed, kInFull, kResumed };

void PrintTo(Way way, std::ostream *out) {
  *out << (way == Way::kFailed ? "failed" : way == Way::kInFull ? "in full" : "resumed");
}

Way exchange(Client &client) {
  if (client.write("x") != 0 || client.read(1) != 0) return Way::kFailed;
  return SSL_session_reused(static_cast<SSL *>(client.tls())) == 1 ? Way::kResumed : Way::kInFull;
}

Way call(const ResumingServer &server, const std::string &host = "127.0.0.1", const World &files = world()) {
  Client client;
  return files.connect(client, server.server(), host) == 0 ? exchange(client) : Way::kFailed;
}

TEST_F(Resumption, TheSecondCallNeedsNoCertificates) {
  ResumingServer server;
  EXPECT_EQ(Way::kInFull, call(server));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Way::kResumed, call(server));
}

TEST_F(Resumption, TheKeyExchangeIsFreshEachTime) {
  ResumingServer server;
  std::set<std::string> shares;
  for (Way way : {Way::kInFull, Way::kResumed, Way::kResumed}) {
    Client client;
    ASSERT_STATUS(0, world().connect(client, server.server()));
    EVP_PKEY *share = nullptr;
    ASSERT_EQ(1, SSL_get_peer_tmp_key(static_cast<SSL *>(client.tls()), &share));
    const orn::KeyPtr owner(share);
    unsigned char bytes[32];
    std::size_t length = sizeof bytes;
    ASSERT_EQ(1, EVP_PKEY_get_raw_public_key(share, bytes, &length));
    EXPECT_EQ(NID_X25519, EVP_PKEY_get_base_id(share));
    shares.emplace(reinterpret_cast<char *>(bytes), length);
    EXPECT_EQ(way, exchange(client));
  }
  EXPECT_THAT(shares, SizeIs(3));
}

TEST_F(Resumption, ATicketIsUsedOnce) {
  ResumingServer server;
  // Two at the same time take two tickets; each gets new ones.
  ASSERT_EQ(Way::kInFull, call(server));
  for (int i = 0; i < 3; ++i) {
    Client one, other;
    ASSERT_STATUS(0, world().connect(one, server.server()));
    ASSERT_EQ(Way::kResumed, exchange(one));
    one.tear_down();
    ASSERT_STATUS(0, world().connect(other, server.server()));
    ASSERT_EQ(Way::kResumed, exchange(other));
  }
  std::vector<std::string> offered = server.tickets();
  ASSERT_THAT(offered, SizeIs(7));
  EXPECT_THAT(std::set(offered.begin() + 1, offered.end()), SizeIs(6));
}

TEST_F(Resumption, AnOlderVersionIsNotResumed) {
  ResumingServer server({.identity = &world().server, .max_version = TLS1_2_VERSION});
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Way::kInFull, call(server));
}

TEST_F(Resumption, IsForTheSameHostAlone) {
  ResumingServer server;
  ASSERT_EQ(Way::kInFull, call(server));
  // The server and its ticket keys are the same, the name that its certificate must show is not.
  EXPECT_EQ(Way::kInFull, call(server, "localhost"));
  EXPECT_FALSE(server.last_was_offered_one());
  EXPECT_EQ(Way::kResumed, call(server, "localhost"));
  EXPECT_EQ(Way::kResumed, call(server, "127.0.0.1"));
}

TEST_F(Resumption, IsForTheSamePortAlone) {
  ResumingServer one;
  ASSERT_EQ(Way::kInFull, call(one));
  ResumingServer other;
  EXPECT_EQ(Way::kInFull, call(other));
  EXPECT_FALSE(other.last_was_offered_one());
}

TEST_F(Resumption, IsForTheSameFilesAlone) {
  ResumingServer server;
  ASSERT_EQ(Way::kInFull, call(server));
  World others;
  others.authority_file = others.folder.write("same.pem", contents_of(world().authority_file));
  EXPECT_EQ(Way::kInFull, call(server, "127.0.0.1", others));
  EXPECT_FALSE(server.last_was_offered_one());
}

// A copy of the world's files that a test may change.
class OwnFiles {
 public:
  int connect(Client &client, const ResumingServer &server) const {
    return client.connect(authority, chain, key, "127.0.0.1", server.server().port());
  }
  Way call(const ResumingServer &server) const {
    Client client;
    return connect(client, server) == 0 ? exchange(client) : Way::kFailed;
  }
  // Writes another text into a file, or the same one.
  void write(const std::string &path, const std::string &text) {
    folder_.write_old(std::filesystem::path(path).filename(), text);
  }

 private:
  TemporaryFolder folder_;

 public:
  std::string authority = folder_.write_old("authority.pem", contents_of(world().authority_file));
  std::string chain = folder_.write_old("chain.pem", contents_of(world().chain_file));
  std::string key = folder_.write_old("key.pem", contents_of(world().key_file));
};

TEST_F(Resumption, AChangedFileTakesEffectOnTheNextCall) {
  ResumingServer server;
  OwnFiles files;
  ASSERT_EQ(Way::kInFull, files.call(server));
  ASSERT_EQ(Way::kResumed, files.call(server));
  // Even if what it says is the same.
  for (const std::string &path : {files.authority, files.chain, files.key}) {
    files.write(path, contents_of(path));
    EXPECT_EQ(Way::kInFull, files.call(server)) << path;
    EXPECT_FALSE(server.last_was_offered_one());
    EXPECT_EQ(Way::kResumed, files.call(server)) << path;
  }
  files.write(files.authority, pem_of(make_authority("Another").certificate.get()));
  Client client;
  EXPECT_STATUS(CONN_ERR_PEER_NOT_TRUSTED, files.connect(client, server));
  files.write(files.authority, "nothing");
  EXPECT_STATUS(CONN_ERR_AUTHORITY_NOT_PEM, files.connect(client, server));
  files.write(files.authority, contents_of(world().authority_file));
  EXPECT_EQ(Way::kInFull, files.call(server));
}

// A change within a tick of the clock for file times does not show. What was read so soon after a change is used once;
// a time ahead of the clock makes it soon for as long as the test takes.
TEST_F(Resumption, AFileThatWasJustWrittenIsReadAgain) {
  namespace fs = std::filesystem;
  ResumingServer server;
  OwnFiles files;
  fs::last_write_time(files.key, fs::file_time_type::clock::now() + std::chrono::hours(1));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Way::kInFull, files.call(server));
  files.write(files.key, contents_of(files.key));
  EXPECT_EQ(Way::kInFull, files.call(server));
  EXPECT_EQ(Way::kResumed, files.call(server));
}

// As one that keeps the time of what it copies, in place of a file of the same size.
TEST_F(Resumption, AFileWhoseTimeWasSetBackIsReadAgain) {
  namespace fs = std::filesystem;
  ResumingServer server;
  OwnFiles files;
  ASSERT_EQ(Way::kInFull, files.call(server));
  const auto time = fs::last_write_time(files.key);
  const std::string another = pem_of(make_key().get());
  ASSERT_EQ(another.size(), contents_of(files.key).size());
  files.write(files.key, another);
  fs::last_write_time(files.key, time);
  Client client;
  EXPECT_STATUS(CONN_ERR_KEY_MISMATCH, files.connect(client, server));
}

TEST_F(Resumption, FilesThatFailAreReadAgain) {
  ResumingServer server;
  OwnFiles files;
  const std::string good = contents_of(files.key);
  files.write(files.key, pem_of(make_key().get()));
  Client client;
  EXPECT_STATUS(CONN_ERR_KEY_MISMATCH, files.connect(client, server));
  EXPECT_STATUS(CONN_ERR_KEY_MISMATCH, files.connect(client, server));
  files.write(files.key, good);
  EXPECT_EQ(Way::kInFull, files.call(server));
}

TEST_F(Resumption, CanBeSwitchedOff) {
  ResumingServer server;
  ASSERT_EQ(Way::kInFull, call(server));
  TLSResumption(0);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Way::kInFull, call(server));
  TLSResumption(1);
  EXPECT_EQ(Way::kInFull, call(server));
  EXPECT_THAT(server.tickets(), testing::Each(IsEmpty()));
  EXPECT_EQ(Way::kResumed, call(server));
}

TEST_F(Resumption, CanBeMadeToForget) {
  ResumingServer server;
  ASSERT_EQ(Way::kInFull, call(server));
  Client open;
  ASSERT_STATUS(0, world().connect(open, server.server()));
  TLSForgetAll();
  EXPECT_EQ(Way::kResumed, exchange(open));
  // It had the old context, and what came with it went with it.
  open.tear_down();
  EXPECT_EQ(Way::kInFull, call(server));
  EXPECT_FALSE(server.last_was_offered_one());
}

TEST_F(Resumption, AFailedCallLeavesNoTicket) {
  std::atomic<bool> resets{false};
  ResumingServer server(world().settings(), [&](Line &line) {
    if (!resets) return echo(line);
    line.read_some();
    line.reset();
  });
  ASSERT_EQ(Way::kInFull, call(server));
  {
    // Both of the first call's tickets are there; the failure also drops the one that was not used.
    resets = true;
    Client client;
    ASSERT_STATUS(0, world().connect(client, server.server()));
    EXPECT_EQ(Way::kFailed, exchange(client));
  }
  resets = false;
  EXPECT_EQ(Way::kInFull, call(server));
  EXPECT_FALSE(server.last_was_offered_one());
}

TEST_F(Resumption, ARequestThatWasSentIsNotSentAgain) {
  std::atomic<bool> closes{false};
  std::atomic<int> num_requests{0};
  ResumingServer server(world().settings(), [&](Line &line) {
    if (!closes) return echo(line);
    if (!line.read_some().empty()) ++num_requests;
  });
  ASSERT_EQ(Way::kInFull, call(server));
  closes = true;
  for (int i = 1; i <= 2; ++i) {
    EXPECT_EQ(Way::kFailed, call(server));
    EXPECT_EQ(i, num_requests);
  }
  EXPECT_THAT(server.tickets(), ElementsAre(IsEmpty(), testing::Not(IsEmpty()), IsEmpty()));
}

TEST_F(Resumption, APortWhereNobodyListensAnyMoreDropsItsTickets) {
  std::string port;
  {
    ResumingServer server;
    ASSERT_EQ(Way::kInFull, call(server));
    port = server.server().port();
  }
  Client client;
  const World &w = world();
  EXPECT_STATUS(CONN_ERR_REFUSED, client.connect(w.authority_file, w.chain_file, w.key_file, "127.0.0.1", port));
}

TEST_F(Resumption, AServerThatRefusesATicketGetsNoneForAWhile) {
  ResumingServer server;
  ASSERT_EQ(Way::kInFull, call(server));
  unsigned char keys[80] = {1};
  ASSERT_EQ(1, SSL_CTX_set_tlsext_ticket_keys(server.context(), keys, sizeof keys));
  EXPECT_EQ(Way::kInFull, call(server));
  EXPECT_TRUE(server.last_was_offered_one());
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Way::kInFull, call(server));
    EXPECT_FALSE(server.last_was_offered_one());
  }
}

// What OpenSSL's servers do that verify clients without a session-id context.
TEST_F(Resumption, AServerThatFailsOnATicketGetsAFullHandshakeInTheSameCall) {
  TlsSettings settings = world().settings();
  settings.client_authority = &world().authority;
  ResumingServer server(settings);
  SSL_CTX_set_session_id_context(server.context(), nullptr, 0);
  ASSERT_EQ(Way::kInFull, call(server));
  EXPECT_EQ(Way::kInFull, call(server));
  EXPECT_EQ(Way::kInFull, call(server));
  const std::vector<std::string> offered = server.tickets();
  EXPECT_THAT(offered, ElementsAre(IsEmpty(), testing::Not(IsEmpty()), IsEmpty(), IsEmpty()));
}

TEST_F(Resumption, AServerThatFallsSilentOnATicketIsAskedWithoutOneInTheSameCall) {
  std::atomic<int> num_lines{0};
  orn::SslContextPtr context = make_server_context(world().settings());
  TlsServer server([&](Line &line) {
    if (++num_lines == 2) return line.wait_for_end();
    if (line.accept_tls(context.get())) echo(line);
  });
  for (int i = 0; i < 2; ++i) {
    Client client;
    Stopwatch watch;
    ASSERT_STATUS(0, world().connect(client, server, "127.0.0.1", 6));
    EXPECT_LT(watch.seconds(), 6.0);
    EXPECT_EQ(Way::kInFull, exchange(client));
  }
  EXPECT_EQ(3, num_lines);
}

TEST_F(Resumption, EndsWithTheServersCertificate) {
  const Identity shown = issue({.last_day = 0, .last_second = 2}, &world().authority);
  ResumingServer server({.identity = &shown});
  int num_resumed = 0;
  int status = 0;
  for (Stopwatch watch; status == 0 && watch.seconds() < 10;) {
    Client client;
    status = world().connect(client, server.server());
    if (status == 0 && exchange(client) == Way::kResumed) ++num_resumed;
  }
  EXPECT_STATUS(CONN_ERR_PEER_EXPIRED, status);
  EXPECT_GT(num_resumed, 0);
}

std::vector<std::string> subjects(const Client &client) {
  std::vector<std::string> found;
  STACK_OF(X509) *chain = SSL_get_peer_cert_chain(static_cast<SSL *>(client.tls()));
  for (int i = 0; i < sk_X509_num(chain); ++i) {
    CertificateInfo info;
    X509_get_info(sk_X509_value(chain, i), &info);
    found.emplace_back(info.subject);
  }
  return found;
}

TEST_F(Resumption, TheServersChainIsShownAndMayBeTakenApart) {
  const Identity intermediate = make_authority("Intermediate", &world().authority);
  const Identity shown = issue({}, &intermediate);
  ResumingServer server({.identity = &shown, .intermediates = {&intermediate}});
  for (Way way : {Way::kInFull, Way::kResumed, Way::kResumed, Way::kResumed}) {
    Client client;
    ASSERT_STATUS(0, world().connect(client, server.server()));
    EXPECT_THAT(subjects(client), ElementsAre("CN=server", "CN=Intermediate"));
    EXPECT_EQ(way, exchange(client));
    // By now the connection's session may be the very one that a ticket came for.
    STACK_OF(X509) *chain = SSL_get_peer_cert_chain(static_cast<SSL *>(client.tls()));
    while (X509 *taken = sk_X509_pop(chain)) X509_free(taken);
  }
}

// A ticket would otherwise be used by both.
TEST_F(Resumption, AChildBeginsWithNothingAndItsParentGoesOn) {
  SKIP_WHERE_FORK_MAY_HANG();
  ResumingServer server;
  ASSERT_EQ(Way::kInFull, call(server));
  const pid_t child = fork();
  if (child == 0) _exit(call(server) == Way::kInFull && call(server) == Way::kResumed ? 0 : 1);
  int state = -1;
  ASSERT_EQ(child, waitpid(child, &state, 0));
  EXPECT_EQ(0, state);
  EXPECT_EQ(Way::kResumed, call(server));
}

TEST_F(Resumption, TheTraceSaysSo) {
  ResumingServer server;
  TraceText trace;
  ASSERT_EQ(Way::kInFull, call(server));
  EXPECT_THAT(trace.text(), testing::Not(HasSubstr("resumed")));
  ASSERT_EQ(Way::kResumed, call(server));
  EXPECT_THAT(trace.text(), HasSubstr("with TLSv1.3, TLS_AES_256_GCM_SHA384, resumed"));
}

}  // namespace
}  // namespace tests
