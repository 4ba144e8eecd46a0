#include "orn/support/socket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>

#include "orn/support/tracing.h"

namespace orn {
namespace {

// A connection attempt to a free loopback port may be given that very port as its own, and then meets itself.
bool is_connected_to_itself(int descriptor, const Address &address) {
  if (!address.is_loopback()) return false;
  sockaddr_storage own{};
  socklen_t own_bytes = sizeof own;
  return getsockname(descriptor, reinterpret_cast<sockaddr *>(&own), &own_bytes) == 0 && own_bytes == address.length &&
         std::memcmp(&own, address.get(), own_bytes) == 0;
}

// Waits for a connection that is under way. Returns 0 or an errno value.
int finish_connecting(int descriptor, Deadline deadline) {
  pollfd entry{.fd = descriptor, .events = POLLOUT, .revents = 0};
  for (;;) {
    int ready = poll(&entry, 1, deadline.poll_milliseconds());
    if (ready > 0) break;
    if (ready < 0 && errno != EINTR && errno != EAGAIN) return errno;
    if (deadline.passed()) return ETIMEDOUT;
  }
  int error = 0;
  socklen_t error_bytes = sizeof error;
  if (getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &error_bytes) < 0) return errno;
  return error;
}

// EADDRNOTAVAIL tells that local ports have run out, or that the machine has no address of its own to come from, as one
// without IPv6. A datagram socket, which sends nothing for it, wants an address alike and none of those ports.
int error_of_connecting(const Address &address, int error) {
  if (error != EADDRNOTAVAIL) return error;
  const Descriptor probe(socket(address.family(), SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP));
  const bool has_way = !probe || connect(probe.number(), address.get(), address.length) == 0 || errno != EADDRNOTAVAIL;
  return has_way ? error : ENETUNREACH;
}

// Returns 0 or an errno value.
int connect_to_one(const Address &address, Deadline deadline, Socket &made) {
  if (deadline.passed()) return ETIMEDOUT;
  made.descriptor = Descriptor(socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
  if (!made.descriptor) return errno;
  const int number = made.descriptor.number();
  // A request is one small write whose answer is waited for.
  const int on = 1;
  if (setsockopt(number, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) < 0) return errno;
  if (!made.sending.limit(number, deadline.left())) return errno;
  // Interrupted, or at the end of its slice of time, it goes on by itself.
  if (connect(number, address.get(), address.length) < 0) {
    if (errno != EINPROGRESS && errno != EINTR && errno != EAGAIN) return error_of_connecting(address, errno);
    if (int error = finish_connecting(number, deadline)) return error;
  }
  return is_connected_to_itself(number, address) ? ECONNREFUSED : 0;
}

}  // namespace

bool SliceOfTime::limit(int descriptor, Deadline::Clock::duration left) {
  using namespace std::chrono;
  // Long enough to be rare, short enough for a deadline that comes nearer than the one it was set for.
  constexpr Deadline::Clock::duration kSlice = seconds(1);
  const auto slice = std::clamp<Deadline::Clock::duration>(left, microseconds(1), kSlice);
  if (slice >= set_) return true;
  const auto whole = ceil<microseconds>(slice);
  const timeval value = {.tv_sec = static_cast<time_t>(whole.count() / 1'000'000),
                         .tv_usec = static_cast<suseconds_t>(whole.count() % 1'000'000)};
  if (setsockopt(descriptor, SOL_SOCKET, option_, &value, sizeof value) < 0) return false;
  set_ = slice;
  return true;
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

int connect_to(const std::vector<Address> &addresses, Deadline deadline, std::unique_ptr<Socket> &connected) {
  int status = CONN_ERR_UNREACHABLE;
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    auto made = std::make_unique<Socket>();
    int error = connect_to_one(addresses[i], deadline.first_part(addresses.size() - i), *made);
    if (error == 0) {
      connected = std::move(made);
      return 0;
    }
    ORN_TRACE("connecting to %s failed: %s", addresses[i].text().c_str(),
              std::generic_category().message(error).c_str());
    // A host without IPv6 cannot reach the IPv6 addresses of a name: what the other addresses said counts more.
    int last = status_of_errno(error);
    if (last != CONN_ERR_UNREACHABLE) status = last;
  }
  return status;
}

}  // namespace orn
