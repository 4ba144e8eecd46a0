// TLS sessions that later connections may resume, by server.
//
// OpenSSL checks neither the server's name nor its certificate again when a session is resumed. So a session is offered
// only to the host and port that it was begun with, under the same certificate files (each set of them has Sessions of
// its own), and never for longer than the server's certificate chain is valid, nor than kLongestAge after it was
// checked.
#ifndef ORN_SUPPORT_SESSIONS_H
#define ORN_SUPPORT_SESSIONS_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <span>
#include <string>

#include "orn/support/openssl_ptr.h"

namespace orn {

using Clock = std::chrono::steady_clock;

// A session that a server allows to be resumed, once.
struct Ticket {
  SslSessionPtr session;
  Clock::time_point checked_until;  // end of what the last check of the server's certificates is good for
  Clock::time_point expires;        // not after that
};

// When the last check of the server's certificates, made now on this connection, is out of date.
Clock::time_point checked_until(const SSL *ssl);

// Whether sessions are kept and resumed at all; for the whole process.
inline std::atomic<bool> resumption_is_on{true};

class Sessions {
 public:
  static constexpr std::chrono::minutes kLongestAge{60};
  // How long a server that does not take its own tickets is offered none.
  static constexpr std::chrono::minutes kPause{1};
  static constexpr std::size_t kMostServers = 32;
  // As many as there are threads that call one server at once.
  static constexpr std::size_t kMostTickets = 64;

  // A ticket for one connection, or one without a session. server is host and port.
  Ticket take(const std::string &server);

  // Moves tickets of a call that has ended well.
  void keep(const std::string &server, std::span<Ticket> tickets);

  // Forgets a server's tickets: a call to it has failed.
  void drop(const std::string &server);

  // Forgets them and keeps none for kPause: the server has not taken one.
  void pause(const std::string &server);

  void drop_all();

 private:
  struct Server {
    std::deque<Ticket> tickets;  // the oldest first
    Clock::time_point paused_until{};
    Clock::time_point last_used{};
  };

  Server &server(const std::string &name, Clock::time_point now);

  std::mutex mutex_;
  std::map<std::string, Server> servers_;
};

}  // namespace orn

#endif
