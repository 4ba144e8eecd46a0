// One TLS connection to a verified server.
#ifndef ORN_SUPPORT_CONNECTION_H
#define ORN_SUPPORT_CONNECTION_H

#include <cstddef>
#include <memory>
#include <span>

#include "orn/support/channel.h"
#include "orn/support/failure.h"
#include "orn/support/openssl_ptr.h"
#include "orn/support/verify.h"

namespace orn {

// host and port are checked and numeric.
struct Endpoint {
  const char *host;
  const char *port;
};

class Connection {
 public:
  // Resolves, connects and does the handshake, all by the deadline. Returns a status.
  static int open(const Endpoint &endpoint, SSL_CTX *context, Deadline deadline, std::unique_ptr<Connection> &opened);

  // The connection that an SSL belongs to, or null.
  static Connection *of(const SSL *ssl);

  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;
  ~Connection();

  SSL *ssl() const { return ssl_.get(); }

  // Both return a status. A connection that has failed otherwise than by a read's time-out fails the same way from then
  // on.
  int write(std::span<const unsigned char> bytes);
  int read(std::span<unsigned char> bytes, Deadline deadline, std::size_t &num_read);

 private:
  explicit Connection(Descriptor socket) : channel_(std::move(socket)) {}

  static int note_certificate_request(SSL *, void *connection);

  int start_tls(const PeerName &peer, SSL_CTX *context);
  int shake_hands(Deadline deadline);

  // Repeats an operation of OpenSSL's, which returns 1 when it is done, until it is done, failed or out of time.
  template <typename Operation>
  int run(const char *name, int timed_out, Operation operation);
  int alert_behind(int write_status);

  Channel channel_;  // outlives the SSL that uses it
  SslPtr ssl_;
  bool client_certificate_asked_ = false;
  bool is_established_ = false;
  int broken_ = 0;
};

}  // namespace orn

#endif
