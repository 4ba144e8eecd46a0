// A server in the test's own process, on a directory of its own, and clients for it.
#pragma once

#include <openssl/ssl.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>

#include "orn/vesk.h"
#include "veskd/certificates.h"
#include "veskd/dev_environment.h"
#include "veskd/log.h"
#include "veskd/server.h"
#include "veskd/store.h"

namespace veskd::test {

// Removed with all that is in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;

  const std::filesystem::path &path() const { return path_; }
  std::filesystem::path operator/(const std::string &name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

// Names the PostgreSQL that the tests' stores are on; without it they are files.
inline constexpr const char *kPostgresVariable = "VESKD_TEST_POSTGRES";

// Where the store of a server's directory is: in a file in it, or in a schema of its own.
StoreAddress store_address(const std::filesystem::path &directory);

// The master key of that store, in the directory; made with the store.
std::unique_ptr<MasterKey> master_key_in(const std::filesystem::path &directory);

// As if it had never been.
void lose_store(const std::filesystem::path &directory);

// Keys without values, INSERTED_______000001 and so on: enough of them to be listed.
void insert_keys(const StoreAddress &store, int count);

// The three files of a client in a server's directory.
CertificatePaths client_paths(const std::filesystem::path &directory);

class TestServer {
 public:
  // What the options leave open, the directory gives: the files.
  explicit TestServer(const ServerOptions &options);
  explicit TestServer(const Limits &limits = {}, const Machine &machine = {}, bool audit_reads = false);
  ~TestServer();
  TestServer(const TestServer &) = delete;
  TestServer &operator=(const TestServer &) = delete;

  const char *host() const { return "127.0.0.1"; }
  std::uint16_t port() const { return server_.port(); }
  const std::filesystem::path &directory() const { return directory_.path(); }
  const CertificatePaths *paths() const { return &paths_; }
  const ServerOptions &options() const { return options_; }
  const Server &server() const { return server_; }
  Store &store() { return store_; }

  // Tells the server to stop and waits until it has.
  void stop();

  // A client of the same authority with a certificate of its own.
  CertificatePaths add_client(const LeafRequest &request) const;

  int ping() const { return qAdminNoop(paths(), host(), port()); }

 private:
  TemporaryDirectory directory_;
  Log log_{true};
  DevEnvironment environment_;
  const ServerOptions options_;
  Store store_;
  Server server_;
  CertificatePaths paths_;
  std::thread thread_;
};

// Makes the call until it is not interrupted. A machine that stood still for a moment interrupts reads that have a
// time-out.
int unless_interrupted(const std::function<int()> &call);

// What a raw connection shows and demands.
struct RawOptions {
  std::filesystem::path certificate;  // none when empty
  std::filesystem::path key;
  std::filesystem::path authority;
  int max_version = 0;  // 0: the newest
};

RawOptions raw_options(const std::filesystem::path &directory);

// A TLS connection that sends what it is told, well-formed or not. Its reads give up after ten seconds.
class RawConnection {
 public:
  // Connects without a word.
  explicit RawConnection(std::uint16_t port);
  ~RawConnection();
  RawConnection(const RawConnection &) = delete;
  RawConnection &operator=(const RawConnection &) = delete;

  // False when the handshake fails on this side.
  bool handshake(const RawOptions &options, SSL_SESSION *session = nullptr);
  void send(const std::string &bytes);

  // Reads away what comes next; returns how much it was, 0 at the end.
  std::size_t receive_some();
  // Everything up to the end of the connection; whether it ended in good order is in closed_cleanly.
  std::string receive_all();
  bool closed_cleanly() const { return closed_cleanly_; }

  // Whether the other end closes before the reads give up. Without a handshake.
  bool is_closed_by_peer();

  SSL *tls() { return tls_.get(); }

 private:
  struct Free {
    void operator()(SSL *tls) const { SSL_free(tls); }
    void operator()(SSL_CTX *context) const { SSL_CTX_free(context); }
  };
  // Returns as SSL_read does.
  int read(std::span<char> room);

  int socket_;
  std::unique_ptr<SSL_CTX, Free> context_;
  std::unique_ptr<SSL, Free> tls_;
  bool closed_cleanly_ = false;
};

// Sends a request on a connection of its own and returns all of the reply.
std::string ask(const TestServer &server, const std::string &request);

// Asks until the condition holds; false when it does not within that time.
bool eventually(const std::function<bool()> &condition, std::chrono::seconds time = std::chrono::seconds(20));

// The message of the StartError that the action throws.
std::string start_error(const std::function<void()> &action);

// The permissions of a file.
mode_t mode_of(const std::filesystem::path &path);

std::string padded(const std::string &text, std::size_t width);

}  // namespace veskd::test
