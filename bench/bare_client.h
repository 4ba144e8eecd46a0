// The practical limit: the least that a client of OpenSSL does for one exchange. It verifies the server and shows its
// own certificate as the library does, and does nothing else: no trace, no parsing, no deadlines.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <span>
#include <string_view>

namespace bench {

class BareConnection {
 public:
  // Reads the certificate files, builds a context, connects and does the handshake. Ends the process on failure.
  BareConnection();
  ~BareConnection();
  BareConnection(const BareConnection &) = delete;
  BareConnection &operator=(const BareConnection &) = delete;

  void write(std::string_view bytes);
  // Returns how many bytes came, 0 at the end.
  std::size_t read(std::span<char> room);

 private:
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
  int socket_;
};

}  // namespace bench
