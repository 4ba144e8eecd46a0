// Names and their addresses, with the system's name resolution played by the test, and where it can come from.
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "tests/connection/client.h"
#include "tests/connection/signal_storm.h"

namespace {

// What a lookup of a name answers: a code, or these IPv4 addresses.
struct Lookup {
  int code = 0;
  std::vector<const char *> addresses;
};

// Held by a test for as long as lookups are to get no answer.
std::mutex answering;
Lookup played;
sigset_t signals_of_lookup;  // that the thread of the last lookup blocks

addrinfo *entry_of(const char *address, const char *port, addrinfo *next) {
  auto *entry = static_cast<addrinfo *>(std::calloc(1, sizeof(addrinfo) + sizeof(sockaddr_in)));
  auto *ipv4 = reinterpret_cast<sockaddr_in *>(entry + 1);
  ipv4->sin_family = AF_INET;
  ipv4->sin_port = htons(static_cast<std::uint16_t>(std::atoi(port)));
  inet_pton(AF_INET, address, &ipv4->sin_addr);
  entry->ai_family = AF_INET;
  entry->ai_socktype = SOCK_STREAM;
  entry->ai_addr = reinterpret_cast<sockaddr *>(ipv4);
  entry->ai_addrlen = sizeof *ipv4;
  entry->ai_next = next;
  return entry;
}

// From where no socket of these kinds can connect to an address.
struct NoWay {
  const char *address;
  std::vector<int> kinds;
};
NoWay no_way;

// Has the port that is connected to be the socket's own, as it may be given to it.
bool meets_itself = false;

bool has_no_way(int socket, const sockaddr *address) {
  in_addr wanted{};
  if (no_way.kinds.empty() || inet_pton(AF_INET, no_way.address, &wanted) != 1) return false;
  int kind = 0;
  socklen_t bytes = sizeof kind;
  getsockopt(socket, SOL_SOCKET, SO_TYPE, &kind, &bytes);
  return reinterpret_cast<const sockaddr_in *>(address)->sin_addr.s_addr == wanted.s_addr &&
         std::find(no_way.kinds.begin(), no_way.kinds.end(), kind) != no_way.kinds.end();
}

}  // namespace

extern "C" int connect(int socket, const sockaddr *address, socklen_t bytes) {
  if (has_no_way(socket, address)) {
    errno = EADDRNOTAVAIL;
    return -1;
  }
  if (meets_itself) bind(socket, address, bytes);
  return static_cast<int>(syscall(SYS_connect, socket, address, bytes));
}

extern "C" int getaddrinfo(const char *, const char *port, const addrinfo *hints, addrinfo **found) {
  pthread_sigmask(SIG_BLOCK, nullptr, &signals_of_lookup);
  if (hints->ai_flags & AI_NUMERICHOST) return EAI_NONAME;  // the tests ask for names alone
  const std::lock_guard lock(answering);
  *found = nullptr;
  if (played.code != 0) return played.code;
  for (auto address = played.addresses.rbegin(); address != played.addresses.rend(); ++address)
    *found = entry_of(*address, port, *found);
  return 0;
}

extern "C" void freeaddrinfo(addrinfo *entry) {
  while (entry != nullptr) {
    addrinfo *next = entry->ai_next;
    std::free(entry);
    entry = next;
  }
}

namespace {

using namespace tests;

// A port of an address whose queue of connections is full: what else comes is swallowed.
class FullListener {
 public:
  FullListener(const char *address, const std::string &port) {
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(static_cast<std::uint16_t>(std::stoi(port)));
    inet_pton(AF_INET, address, &own.sin_addr);
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockets_.push_back(listener);
    is_ready_ = bind(listener, reinterpret_cast<sockaddr *>(&own), sizeof own) == 0 && listen(listener, 0) == 0;
    for (int i = 0; i < 4; ++i) {
      sockets_.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
      connect(sockets_.back(), reinterpret_cast<sockaddr *>(&own), sizeof own);
    }
  }
  FullListener(const FullListener &) = delete;
  FullListener &operator=(const FullListener &) = delete;
  ~FullListener() {
    for (const int socket : sockets_) close(socket);
  }
  bool is_ready() const { return is_ready_; }

 private:
  std::vector<int> sockets_;
  bool is_ready_ = false;
};

int status_of_name(const char *name, const std::string &port, int seconds = 10) {
  Client client;
  return client.connect(world().authority_file, world().chain_file, world().key_file, name, port, seconds);
}

TEST(Resolver, ANameThatDoesNotExist) {
  played = {EAI_NONAME, {}};
  TraceText trace;
  EXPECT_STATUS(CONN_ERR_NAME_NOT_FOUND, status_of_name("no-such-host", "4433"));
  EXPECT_NE(trace.text().find("no-such-host"), std::string::npos);
}

TEST(Resolver, ANameWithoutAddresses) {
  played = {0, {}};
  EXPECT_STATUS(CONN_ERR_NAME_NOT_FOUND, status_of_name("no-such-host", "4433"));
}

TEST(Resolver, ANameServiceThatDoesNotWork) {
  for (const int code : {EAI_AGAIN, EAI_FAIL}) {
    played = {code, {}};
    EXPECT_STATUS(CONN_ERR_NAME_SERVICE, status_of_name("some-host", "4433"));
  }
}

TEST(Resolver, ALookupOutOfMemory) {
  played = {EAI_MEMORY, {}};
  EXPECT_STATUS(CONN_ERR_RESOURCES, status_of_name("some-host", "4433"));
}

TEST(Resolver, ALookupThatHangsEndsAtTheTimeOut) {
  played = {EAI_NONAME, {}};
  const std::lock_guard no_answer(answering);
  const Stopwatch watch;
  EXPECT_STATUS(CONN_ERR_CONNECT_TIMED_OUT, status_of_name("some-host", "4433", 1));
  EXPECT_GE(watch.seconds(), 1.0);
  EXPECT_LT(watch.seconds(), kAtLatest);
}

// The dot that ends a complete name stands neither in certificates nor in what the server is told.
TEST(Resolver, ACompleteName) {
  std::string seen;
  {
    TlsServer server([&](Line &line) {
      if (!line.accept_tls(world().settings())) return;
      const char *name = SSL_get_servername(line.ssl(), TLSEXT_NAMETYPE_host_name);
      seen = name ? name : "none";
    });
    played = {0, {"127.0.0.1"}};
    EXPECT_STATUS(0, status_of_name("localhost.", server.port()));
  }
  EXPECT_EQ("localhost", seen);
}

TEST(Resolver, ANameThatIsTooLongForTls) {
  TlsServer server(echo(world().settings()));
  played = {0, {"127.0.0.1"}};
  EXPECT_STATUS(CONN_ERR_TLS_SETUP, status_of_name(std::string(256, 'a').c_str(), server.port()));
}

// The process's handlers never run on a thread that it knows nothing of.
TEST(Resolver, ALookupTakesNoSignals) {
  played = {EAI_NONAME, {}};
  ASSERT_STATUS(CONN_ERR_NAME_NOT_FOUND, status_of_name("no-such-host", "4433"));
  for (const int signal : {SIGALRM, SIGCHLD, SIGINT, SIGPROF, SIGTERM, SIGUSR1})
    EXPECT_EQ(1, sigismember(&signals_of_lookup, signal)) << signal;
}

TEST(Resolver, AWildcardStandsForAWholeLabel) {
  struct {
    const char *name;
    int status;
  } const kNames[] = {
      {"DNS:*.keys.example", 0}, {"DNS:k*.keys.example", CONN_ERR_PEER_NAME}, {"DNS:*.example", CONN_ERR_PEER_NAME}};
  played = {0, {"127.0.0.1"}};
  for (const auto &[name, status] : kNames) {
    const Identity shown = issue({.alternative_names = name}, &world().authority);
    TlsServer server(echo({.identity = &shown}));
    EXPECT_STATUS(status, status_of_name("kms.keys.example", server.port())) << name;
  }
}

TEST(Resolver, EveryAddressIsTriedInTurn) {
  TlsServer server(echo(world().settings()));
  played = {0, {"127.0.0.3", "127.0.0.1"}};  // nothing listens on the first
  EXPECT_STATUS(0, status_of_name("localhost", server.port()));
}

TEST(Resolver, SignalsNeitherShortenNorLengthenAnAttempt) {
  TlsServer server(echo(world().settings()));
  const FullListener swallower("127.0.0.2", server.port());
  ASSERT_TRUE(swallower.is_ready());
  played = {0, {"127.0.0.2"}};
  const SignalStorm storm;
  const Stopwatch watch;
  EXPECT_STATUS(CONN_ERR_CONNECT_TIMED_OUT, status_of_name("localhost", server.port(), 1));
  EXPECT_GE(watch.seconds(), 1.0);
  EXPECT_LT(watch.seconds(), kAtLatest);
}

TEST(Resolver, AnAddressThatSwallowsPacketsLeavesTimeForTheOthers) {
  TlsServer server(echo(world().settings()));
  const FullListener swallower("127.0.0.2", server.port());
  ASSERT_TRUE(swallower.is_ready());
  played = {0, {"127.0.0.2"}};
  EXPECT_STATUS(CONN_ERR_CONNECT_TIMED_OUT, status_of_name("localhost", server.port(), 1));
  played = {0, {"127.0.0.2", "127.0.0.1"}};
  const Stopwatch watch;
  EXPECT_STATUS(0, status_of_name("localhost", server.port(), 6));
  EXPECT_GE(watch.seconds(), 1.0) << "the first address did not swallow";
  EXPECT_LT(watch.seconds(), 6.0);
}

// As a machine without IPv6 has none to the IPv6 addresses of a name: what the others say counts.
TEST(Resolver, AnAddressThatTheMachineHasNoWayTo) {
  std::string port;
  { port = TlsServer(echo(world().settings())).port(); }
  no_way = {"127.0.0.2", {SOCK_STREAM, SOCK_DGRAM}};
  played = {0, {"127.0.0.2"}};
  EXPECT_STATUS(CONN_ERR_UNREACHABLE, status_of_name("localhost", port));
  for (const auto &addresses : {std::vector{"127.0.0.1", "127.0.0.2"}, {"127.0.0.2", "127.0.0.1"}}) {
    played = {0, addresses};
    EXPECT_STATUS(CONN_ERR_REFUSED, status_of_name("localhost", port));
  }
  no_way = {};
}

TEST(Resolver, LocalPortsThatHaveRunOutForOneAddressAreThereForAnother) {
  TlsServer server(echo(world().settings()));
  no_way = {"127.0.0.2", {SOCK_STREAM}};
  played = {0, {"127.0.0.2"}};
  EXPECT_STATUS(CONN_ERR_RESOURCES, status_of_name("localhost", server.port()));
  played = {0, {"127.0.0.2", "127.0.0.1"}};
  EXPECT_STATUS(0, status_of_name("localhost", server.port()));
  no_way = {};
}

TEST(Resolver, AConnectionToItselfIsNone) {
  std::string port;
  { port = TlsServer(echo(world().settings())).port(); }
  played = {0, {"127.0.0.1"}};
  meets_itself = true;
  EXPECT_STATUS(CONN_ERR_REFUSED, status_of_name("localhost", port));
  meets_itself = false;
}

TEST(Resolver, AllAddressesRefused) {
  std::string port;
  { port = TlsServer(echo(world().settings())).port(); }
  played = {0, {"127.0.0.1", "127.0.0.2"}};
  EXPECT_STATUS(CONN_ERR_REFUSED, status_of_name("localhost", port));
}

}  // namespace
