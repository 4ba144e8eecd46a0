// The client's side of the tests: its files, and a connection that is torn down when the test ends.
#ifndef TESTS_CONNECTION_CLIENT_H
#define TESTS_CONNECTION_CLIENT_H

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "orn/support.h"
#include "tests/connection/certificates.h"
#include "tests/connection/tls_server.h"

namespace tests {

// One connection. Every call's test includes that OpenSSL's error queue is empty afterwards.
class Client {
 public:
  Client() = default;
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;
  ~Client() { tear_down(); }

  int connect(const std::string &authority, const std::string &chain, const std::string &key, const std::string &host,
              const std::string &port, int seconds = 10);
  int write(const std::string &bytes);
  // Reads count bytes; what arrived is in received().
  int read(int count, int seconds = 10);
  const std::string &received() const { return received_; }
  void tear_down();

  bool has_handles() const { return tls_ || aux_ || read_; }
  void *tls() const { return tls_; }
  void *aux() const { return aux_; }

 private:
  void *tls_ = nullptr;
  void *aux_ = nullptr;
  void *read_ = nullptr;
  std::string received_;
};

// A trusted authority, a server and a client it has certified, and their files.
struct World {
  World();

  int connect(Client &client, const TlsServer &server, const std::string &host = "127.0.0.1", int seconds = 10) const {
    return client.connect(authority_file, chain_file, key_file, host, server.port(), seconds);
  }
  // The status of connecting to a server that shows these certificates.
  int status_against(const Identity &server, std::vector<const Identity *> intermediates = {},
                     const std::string &host = "127.0.0.1") const;
  TlsSettings settings() const { return {.identity = &server}; }

  Identity authority = make_authority("Test Authority");
  Identity server = issue({}, &authority);
  Identity client = make_client(authority);
  TemporaryFolder folder;
  std::string authority_file;
  std::string chain_file;
  std::string key_file;
};

// The world that most tests share; nobody changes it.
const World &world();

// Collects the trace of its lifetime.
class TraceText {
 public:
  TraceText() {
    TraceToCallback(
        [](void *self, const char *line) { static_cast<TraceText *>(self)->text_ += std::string(line) + "\n"; }, this);
  }
  TraceText(const TraceText &) = delete;
  TraceText &operator=(const TraceText &) = delete;
  ~TraceText() { TraceOff(); }

  const std::string &text() const { return text_; }

 private:
  std::string text_;
};

// Within so many seconds is over what has a deadline of one, or needs none. A deadline that does not hold is missed by
// more than this; one that does may be missed by less, on a machine that does much else.
inline constexpr double kAtLatest = 10.0;

class Stopwatch {
 public:
  double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// AddressSanitizer's allocator may be locked by another thread at the moment of a fork, and then stays so in the child.
#ifdef ADDRESS_SANITIZER
#define SKIP_WHERE_FORK_MAY_HANG() GTEST_SKIP() << "AddressSanitizer does not support it"
#else
#define SKIP_WHERE_FORK_MAY_HANG() static_cast<void>(0)
#endif

// Statuses print as their names.
#define EXPECT_STATUS(expected, actual) EXPECT_STREQ(StatusName(expected), StatusName(actual))
#define ASSERT_STATUS(expected, actual) ASSERT_STREQ(StatusName(expected), StatusName(actual))

}  // namespace tests

#endif
