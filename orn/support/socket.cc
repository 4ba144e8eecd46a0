#include "orn/support/socket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "orn/support/tracing.h"

namespace orn {
namespace {

// A connection attempt to a free loopback port may be given that very port as its own, and then meets itself.
bool is_connected_to_itself(int descriptor) {
  sockaddr_storage own{};
  sockaddr_storage peer{};
  socklen_t own_bytes = sizeof own;
  socklen_t peer_bytes = sizeof peer;
  return getsockname(descriptor, reinterpret_cast<sockaddr *>(&own), &own_bytes) == 0 &&
         getpeername(descriptor, reinterpret_cast<sockaddr *>(&peer), &peer_bytes) == 0 && own_bytes == peer_bytes &&
         std::memcmp(&own, &peer, own_bytes) == 0;
}

// Returns 0 or an errno value.
int finish_connecting(int descriptor, Deadline deadline) {
  switch (wait_for(descriptor, POLLOUT, deadline)) {
    case Wait::kTimedOut:
      return ETIMEDOUT;
    case Wait::kFailed:
      return errno;
    case Wait::kReady:
      break;
  }
  int error = 0;
  socklen_t error_bytes = sizeof error;
  if (getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &error_bytes) < 0) return errno;
  if (error == 0 && is_connected_to_itself(descriptor)) return ECONNREFUSED;
  return error;
}

// Returns 0 or an errno value.
int connect_to_one(const Address &address, Deadline deadline, Descriptor &connected) {
  Descriptor made(socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
  if (!made) return errno;
  // A request is one small write whose answer is waited for.
  const int on = 1;
  if (setsockopt(made.number(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) < 0) return errno;
  // An interrupted connect() goes on by itself, like one in progress.
  if (connect(made.number(), address.get(), address.length) < 0 && errno != EINPROGRESS && errno != EINTR) return errno;
  if (int error = finish_connecting(made.number(), deadline)) return error;
  connected = std::move(made);
  return 0;
}

}  // namespace

Wait wait_for(int descriptor, short events, Deadline deadline) {
  pollfd entry{.fd = descriptor, .events = events, .revents = 0};
  for (;;) {
    int ready = poll(&entry, 1, deadline.poll_milliseconds());
    if (ready > 0) return Wait::kReady;
    if (ready < 0 && errno != EINTR && errno != EAGAIN) return Wait::kFailed;
    if (deadline.passed()) return Wait::kTimedOut;
  }
}

int status_of_errno(int error) {
  switch (error) {
    case ECONNREFUSED:
      return CONN_ERR_REFUSED;
    case ECONNRESET:
    case ECONNABORTED:
    case EPIPE:
      return CONN_ERR_RESET;
    case EHOSTUNREACH:
    case EHOSTDOWN:
    case ENETUNREACH:
    case ENETDOWN:
    case EAFNOSUPPORT:
      return CONN_ERR_UNREACHABLE;
    case ETIMEDOUT:
      return CONN_ERR_CONNECT_TIMED_OUT;
    case EMFILE:
    case ENFILE:
    case ENOMEM:
    case ENOBUFS:
    case EADDRNOTAVAIL:
    case EAGAIN:
      return CONN_ERR_RESOURCES;
    default:
      return CONN_ERR_SYSTEM;
  }
}

int connect_to(const std::vector<Address> &addresses, Deadline deadline, Descriptor &connected) {
  int status = CONN_ERR_UNREACHABLE;
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    int error = connect_to_one(addresses[i], deadline.first_part(addresses.size() - i), connected);
    if (error == 0) return 0;
    ORN_TRACE("connecting to %s failed: %s", addresses[i].text().c_str(),
              std::generic_category().message(error).c_str());
    // A host without IPv6 cannot reach the IPv6 addresses of a name: what the other addresses said counts more.
    int last = status_of_errno(error);
    if (last != CONN_ERR_UNREACHABLE) status = last;
    if (last == CONN_ERR_RESOURCES) break;
  }
  return status;
}

}  // namespace orn
