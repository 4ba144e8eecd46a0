// Names and their addresses, with the system's name resolution played by the test.
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "tests/connection/client.h"

namespace {

// What a lookup of a name answers: a code, or these IPv4 addresses.
struct Lookup {
  int code = 0;
  std::vector<const char *> addresses;
};

// Held by a test for as long as lookups are to get no answer.
std::mutex answering;
Lookup played;

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

}  // namespace

extern "C" int getaddrinfo(const char *, const char *port, const addrinfo *hints, addrinfo **found) {
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
  EXPECT_LT(watch.seconds(), 3.0);
}

TEST(Resolver, EveryAddressIsTriedInTurn) {
  TlsServer server(echo(world().settings()));
  played = {0, {"127.0.0.3", "127.0.0.1"}};  // nothing listens on the first
  EXPECT_STATUS(0, status_of_name("localhost", server.port()));
}

TEST(Resolver, AnAddressThatSwallowsPacketsLeavesTimeForTheOthers) {
  TlsServer server(echo(world().settings()));
  const FullListener swallower("127.0.0.2", server.port());
  ASSERT_TRUE(swallower.is_ready());
  played = {0, {"127.0.0.2"}};
  EXPECT_STATUS(CONN_ERR_CONNECT_TIMED_OUT, status_of_name("localhost", server.port(), 1));
  played = {0, {"127.0.0.2", "127.0.0.1"}};
  const Stopwatch watch;
  EXPECT_STATUS(0, status_of_name("localhost", server.port(), 4));
  EXPECT_GE(watch.seconds(), 1.0) << "the first address did not swallow";
  EXPECT_LT(watch.seconds(), 4.0);
}

TEST(Resolver, AllAddressesRefused) {
  std::string port;
  { port = TlsServer(echo(world().settings())).port(); }
  played = {0, {"127.0.0.1", "127.0.0.2"}};
  EXPECT_STATUS(CONN_ERR_REFUSED, status_of_name("localhost", port));
}

}  // namespace
