// A server that does to its clients whatever a test's script says.
#ifndef TESTS_CONNECTION_TLS_SERVER_H
#define TESTS_CONNECTION_TLS_SERVER_H

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/connection/certificates.h"

namespace tests {

// How a server speaks TLS.
struct TlsSettings {
  const Identity *identity = nullptr;
  std::vector<const Identity *> intermediates = {};
  const Identity *client_authority = nullptr;  // null: no client certificate is asked for
  int min_version = 0;
  int max_version = 0;
  int security_level = 0;
};

// Servers resume sessions that were begun with the same context.
orn::SslContextPtr make_server_context(const TlsSettings &settings);
orn::SslPtr make_server_ssl(const TlsSettings &settings);

// One client's line, in clear until accept_tls().
class Line {
 public:
  explicit Line(int descriptor) : descriptor_(descriptor) {}
  Line(const Line &) = delete;
  Line &operator=(const Line &) = delete;
  ~Line();

  int descriptor() const { return descriptor_; }
  SSL *ssl() const { return ssl_.get(); }

  bool accept_tls(const TlsSettings &settings);
  bool accept_tls(SSL_CTX *context);
  // At most count bytes as they come; empty at the end.
  std::string read_some(std::size_t count = 65536);
  void write(std::string_view bytes);
  void write_in_clear(std::string_view bytes);
  // Reads and forgets until the client goes.
  void wait_for_end();
  // Says good-bye, ends its own direction and waits for the client to go.
  void close_politely();
  // From now on the line is gone with a reset.
  void reset();

 private:
  int descriptor_;
  orn::SslPtr ssl_;
};

using Script = std::function<void(Line &)>;

class TlsServer {
 public:
  // Serves one client after the other, or each in a thread of its own.
  enum class Clients { kOneByOne, kAtOnce };

  explicit TlsServer(Script script, const char *address = "127.0.0.1", Clients clients = Clients::kOneByOne);
  TlsServer(const TlsServer &) = delete;
  TlsServer &operator=(const TlsServer &) = delete;
  // Cuts the lines that are still open.
  ~TlsServer();

  const std::string &port() const { return port_; }

 private:
  void serve();
  void handle(int descriptor);

  Script script_;
  Clients clients_;
  std::string port_;
  int listener_;  // behind the port, which is learned from it
  std::mutex mutex_;
  bool is_stopping_ = false;
  std::vector<int> open_;
  std::vector<std::thread> handlers_;
  std::thread thread_;
};

// Echoes what it reads until the client goes.
Script echo(const TlsSettings &settings);
void echo(Line &line);

}  // namespace tests

#endif
