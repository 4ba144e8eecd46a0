#include "orn/support/connection.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>
#include <vector>

#include "orn/support/resolver.h"
#include "orn/support/tracing.h"

namespace orn {
namespace {

constexpr int kWriteSeconds = 60;

int connection_index() {
  static const int index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
  return index;
}

// Certificates hold names without the dot that may end a fully qualified name.
std::string without_last_dot(std::string name) {
  if (!name.empty() && name.back() == '.') name.pop_back();
  return name;
}

int find_addresses(const Endpoint &endpoint, Deadline deadline, std::vector<Address> &addresses, PeerName &peer) {
  if (parse_address(endpoint.host, endpoint.port, addresses)) {
    peer.octets = addresses.front().octets();
    return 0;
  }
  peer.name = without_last_dot(endpoint.host);
  return resolve(endpoint.host, endpoint.port, deadline, addresses);
}

}  // namespace

int Connection::open(const Endpoint &endpoint, const std::shared_ptr<SharedContext> &context, Deadline deadline,
                     std::unique_ptr<Connection> &opened) {
  std::vector<Address> addresses;
  PeerName peer;
  const std::string server = std::string(endpoint.host) + ' ' + endpoint.port;
  if (int status = find_addresses(endpoint, deadline, addresses, peer)) return status;
  for (Ticket ticket = context->sessions.take(server);; ticket = {}) {
    std::unique_ptr<Socket> socket;
    if (int status = connect_to(addresses, deadline, socket)) {
      context->sessions.drop(server);
      return status;
    }
    std::unique_ptr<Connection> connection(new Connection(std::move(socket), context, server));
    if (int status = connection->start_tls(peer)) return status;
    connection->offer(std::move(ticket));
    int status = connection->shake_hands(deadline);
    if (status == 0) {
      opened = std::move(connection);
      return 0;
    }
    if (!connection->offered_ticket_) return status;
    ORN_TRACE("%s has not taken its ticket (%s), a full handshake follows", server.c_str(), StatusName(status));
  }
}

Connection *Connection::of(const SSL *ssl) {
  return ssl ? static_cast<Connection *>(SSL_get_ex_data(ssl, connection_index())) : nullptr;
}

Connection::~Connection() {
  try {
    hand_in_tickets();
  } catch (const std::bad_alloc &) {
    // Without memory the next handshake is a full one.
  }
  if (!is_established_ || broken_ != 0) return;
  // Says good-bye if that needs no waiting.
  channel_.set_deadline(Deadline::in_seconds(0));
  SSL_shutdown(ssl_.get());
  channel_.prepare_close(is_answered_);
}

void Connection::hand_in_tickets() {
  Sessions &sessions = context_->sessions;
  if (is_established_ && !has_failed_) {
    sessions.keep(server_, std::span(tickets_).first(num_tickets_));
  } else if (offered_ticket_ && !is_answered_) {
    sessions.pause(server_);
  } else {
    sessions.drop(server_);
  }
}

int Connection::note_certificate_request(SSL *, void *connection) {
  static_cast<Connection *>(connection)->client_certificate_asked_ = true;
  return 1;
}

// Copied: the session is still the connection's own, and its owner may take the certificates off its chain.
int Connection::note_session(SSL *ssl, SSL_SESSION *session) {
  Connection *connection = of(ssl);
  if (!connection || connection->num_tickets_ == kMostTickets || !resumption_is_on) return 0;
  if (SSL_SESSION_get_protocol_version(session) != TLS1_3_VERSION || !SSL_SESSION_is_resumable(session)) return 0;
  SslSessionPtr copy(SSL_SESSION_dup(session));
  if (!copy) return 0;
  const std::chrono::seconds lifetime(SSL_SESSION_get_ticket_lifetime_hint(session));
  const Clock::time_point checked_until = connection->checked_until_;
  connection->tickets_[connection->num_tickets_++] = {std::move(copy), checked_until,
                                                      std::min(checked_until, Clock::now() + lifetime)};
  return 0;
}

int Connection::start_tls(const PeerName &peer) {
  ssl_.reset(SSL_new(context_->tls.get()));
  BioPtr bio = channel_.new_bio();
  if (!ssl_ || !bio || SSL_set_ex_data(ssl_.get(), connection_index(), this) != 1 ||
      !require_peer_name(ssl_.get(), peer)) {
    ORN_TRACE("TLS connection: %s", openssl_reason().c_str());
    return CONN_ERR_TLS_SETUP;
  }
  SSL_set_cert_cb(ssl_.get(), note_certificate_request, this);
  BIO *line = bio.release();
  SSL_set_bio(ssl_.get(), line, line);
  return 0;
}

void Connection::offer(Ticket ticket) {
  if (!ticket.session || SSL_set_session(ssl_.get(), ticket.session.get()) != 1) return;
  offered_ticket_ = true;
  checked_until_ = ticket.checked_until;
}

// A server that says nothing to a ticket leaves time to ask without one.
int Connection::shake_hands(Deadline deadline) {
  channel_.set_deadline(offered_ticket_ ? deadline.first_part(2) : deadline);
  channel_.gather(true);
  const int status = run("handshake", CONN_ERR_CONNECT_TIMED_OUT, [this] { return SSL_connect(ssl_.get()); });
  channel_.gather(false);
  if (status != 0) return status;
  is_established_ = true;
  const bool is_resumed = SSL_session_reused(ssl_.get()) == 1;
  if (!is_resumed) checked_until_ = checked_until(ssl_.get());
  if (offered_ticket_ && !is_resumed) context_->sessions.pause(server_);
  ORN_TRACE("connected to %s with %s, %s%s", server_.c_str(), SSL_get_version(ssl_.get()),
            SSL_get_cipher_name(ssl_.get()), is_resumed ? ", resumed" : "");
  return 0;
}

template <typename Operation>
int Connection::run(const char *name, int timed_out, Operation operation) {
  for (;;) {
    clear_errors();
    int result = operation();
    if (result == 1) return 0;
    int ssl_error = SSL_get_error(ssl_.get(), result);
    const bool would_wait = ssl_error == SSL_ERROR_WANT_READ || ssl_error == SSL_ERROR_WANT_WRITE;
    if (would_wait && !channel_.is_not_tls() && !channel_.timed_out()) continue;
    has_failed_ = true;
    if (would_wait && !channel_.is_not_tls()) {
      ORN_TRACE("%s: time is up", name);
      return timed_out;
    }
    const FailedOperation failed = {name, timed_out, client_certificate_asked_};
    return broken_ = status_of_failure(failed, ssl_.get(), ssl_error, channel_);
  }
}

int Connection::write(std::span<const unsigned char> bytes) {
  if (broken_ != 0) return broken_;
  if (bytes.empty()) return 0;
  is_answered_ = false;
  channel_.set_deadline(Deadline::in_seconds(kWriteSeconds));
  int status = run("write", CONN_ERR_WRITE_TIMED_OUT, [&] {
    std::size_t written = 0;
    return SSL_write_ex(ssl_.get(), bytes.data(), bytes.size(), &written);
  });
  if (status == CONN_ERR_RESET) status = alert_behind(status);
  // What was cut off in the middle of a record cannot be followed by anything else.
  return broken_ = status;
}

// A server that has refused the client closes the line, which is what a write meets first. The alert that says why may
// lie there unread.
int Connection::alert_behind(int write_status) {
  channel_.set_deadline(Deadline::in_seconds(0));
  int status = run("read after a failed write", write_status, [this] {
    unsigned char unwanted;
    std::size_t num_read = 0;
    int result = SSL_read_ex(ssl_.get(), &unwanted, 1, &num_read);
    OPENSSL_cleanse(&unwanted, 1);
    return result;
  });
  return status == CONN_ERR_CLIENT_REFUSED || status == CONN_ERR_ALERT ? status : write_status;
}

int Connection::read(std::span<unsigned char> bytes, Deadline deadline, std::size_t &num_read) {
  num_read = 0;
  if (bytes.empty()) return 0;
  if (broken_ != 0) return broken_;
  channel_.set_deadline(deadline);
  if (SSL_has_pending(ssl_.get()) == 0) channel_.acknowledge_at_once();
  while (num_read < bytes.size()) {
    std::size_t got = 0;
    std::span<unsigned char> rest = bytes.subspan(num_read);
    int status =
        run("read", CONN_ERR_READ_TIMED_OUT, [&] { return SSL_read_ex(ssl_.get(), rest.data(), rest.size(), &got); });
    if (status != 0) return status;
    num_read += got;
    is_answered_ = true;
  }
  return 0;
}

}  // namespace orn
