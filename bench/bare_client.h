// The practical limit: what a client of OpenSSL must do for one exchange, and no more. It verifies the server and its
// name and shows its own certificate as the library does; it has no trace, no deadlines and no parsing.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <span>
#include <string_view>

#include "bench/server.h"

namespace bench {

template <auto kFree>
struct Free {
  template <typename T>
  void operator()(T *object) const {
    kFree(object);
  }
};
using BareContext = std::unique_ptr<SSL_CTX, Free<SSL_CTX_free>>;
using BareSession = std::unique_ptr<SSL_SESSION, Free<SSL_SESSION_free>>;

// Reads the certificate files. This and what follows ends the process on failure.
BareContext read_context(const Server &server);

class BareConnection {
 public:
  // Connects and does the handshake, with a session to resume or null.
  BareConnection(const Server &server, SSL_CTX *context, SSL_SESSION *session);
  // Says good-bye and closes.
  ~BareConnection();
  BareConnection(const BareConnection &) = delete;
  BareConnection &operator=(const BareConnection &) = delete;

  void write(std::string_view bytes);
  // Returns how many bytes came, 0 at the end.
  std::size_t read(std::span<char> room);

  // What a later connection may resume once something was read; null if the server sent no ticket.
  BareSession session() const;
  bool is_resumed() const { return SSL_session_reused(ssl_.get()) == 1; }

 private:
  std::unique_ptr<SSL, Free<SSL_free>> ssl_;
  int socket_;
};

}  // namespace bench
