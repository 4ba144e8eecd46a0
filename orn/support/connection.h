// One TLS connection to a verified server.
#ifndef ORN_SUPPORT_CONNECTION_H
#define ORN_SUPPORT_CONNECTION_H

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <string>

#include "orn/support/channel.h"
#include "orn/support/failure.h"
#include "orn/support/kept_contexts.h"
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
  static int open(const Endpoint &endpoint, const std::shared_ptr<SharedContext> &context, Deadline deadline,
                  std::unique_ptr<Connection> &opened);

  // What OpenSSL calls, on every context, when the server has sent a ticket.
  static int note_session(SSL *ssl, SSL_SESSION *session);

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
  // How many tickets of one call are of use; servers send one or two.
  static constexpr std::size_t kMostTickets = 4;

  Connection(std::unique_ptr<Socket> socket, std::shared_ptr<SharedContext> context, const std::string &server)
      : context_(std::move(context)), server_(server), channel_(std::move(socket)) {}

  static int note_certificate_request(SSL *, void *connection);

  int start_tls(const PeerName &peer);
  void offer(Ticket ticket);
  int shake_hands(Deadline deadline);
  void hand_in_tickets();

  // Repeats an operation of OpenSSL's, which returns 1 when it is done, until it is done, failed or out of time.
  template <typename Operation>
  int run(const char *name, int timed_out, Operation operation);
  int alert_behind(int write_status);

  const std::shared_ptr<SharedContext> context_;
  const std::string server_;  // host and port
  Channel channel_;           // outlives the SSL that uses it
  SslPtr ssl_;
  Clock::time_point checked_until_{};
  std::array<Ticket, kMostTickets> tickets_;  // the call's own, kept for others when it has ended well
  std::size_t num_tickets_ = 0;
  bool offered_ticket_ = false;
  bool client_certificate_asked_ = false;
  bool is_established_ = false;
  bool is_answered_ = false;  // something was read since the last write
  bool has_failed_ = false;
  int broken_ = 0;
};

}  // namespace orn

#endif
