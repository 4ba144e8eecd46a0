#include "orn/support/resolver.h"

#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>

#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>

#include "orn/support/tracing.h"

namespace orn {
namespace {

struct Answer {
  int code = EAI_SYSTEM;
  int error = 0;
  std::vector<Address> addresses;
};

Answer look_up(const std::string &host, const std::string &port, int flags) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags | AI_NUMERICSERV;
  addrinfo *found = nullptr;
  Answer answer;
  errno = 0;
  answer.code = getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
  answer.error = errno;
  std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
  for (const addrinfo *entry = found; entry; entry = entry->ai_next) {
    Address address;
    if (entry->ai_addrlen > sizeof address.storage) continue;
    std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
    address.length = entry->ai_addrlen;
    answer.addresses.push_back(address);
  }
  return answer;
}

// The system's name resolution knows no deadline and cannot be called off: it runs in a thread of its own, which shares
// the lookup with the caller and is left behind when the caller's time is up. It ends by the resolver's own time-outs.
struct Lookup {
  std::string host;
  std::string port;
  std::mutex mutex;
  std::condition_variable answered;
  bool done = false;
  Answer answer;
};

void *run_lookup(void *shared) {
  std::unique_ptr<std::shared_ptr<Lookup>> lookup(static_cast<std::shared_ptr<Lookup> *>(shared));
  Answer answer;
  try {
    answer = look_up((*lookup)->host, (*lookup)->port, 0);
  } catch (const std::exception &) {
    answer.code = EAI_MEMORY;
  }
  std::lock_guard lock((*lookup)->mutex);
  (*lookup)->answer = std::move(answer);
  (*lookup)->done = true;
  // Under the lock: the caller may go as soon as it can be taken, and this thread's share keeps the lookup alive.
  (*lookup)->answered.notify_one();
  return nullptr;
}

// All signals are blocked in the thread: the process's handlers never run on it.
bool start_detached(const std::shared_ptr<Lookup> &lookup) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  sigset_t all;
  sigfillset(&all);
  auto share = std::make_unique<std::shared_ptr<Lookup>>(lookup);
  pthread_t thread;
  bool started = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) == 0 &&
                 pthread_attr_setsigmask_np(&attributes, &all) == 0 &&
                 pthread_create(&thread, &attributes, run_lookup, share.get()) == 0;
  pthread_attr_destroy(&attributes);
  if (started) static_cast<void>(share.release());
  return started;
}

int status_of_answer(const Answer &answer) {
  if (answer.code == 0) return answer.addresses.empty() ? CONN_ERR_NAME_NOT_FOUND : 0;
  if (answer.code == EAI_MEMORY || answer.error == EMFILE || answer.error == ENFILE || answer.error == ENOMEM) {
    return CONN_ERR_RESOURCES;
  }
  switch (answer.code) {
    case EAI_NONAME:
    case EAI_NODATA:
    case EAI_ADDRFAMILY:
      return CONN_ERR_NAME_NOT_FOUND;
    default:
      return CONN_ERR_NAME_SERVICE;
  }
}

}  // namespace

std::string Address::octets() const {
  if (family() == AF_INET) {
    return {reinterpret_cast<const char *>(&reinterpret_cast<const sockaddr_in *>(&storage)->sin_addr), 4};
  }
  return {reinterpret_cast<const char *>(&reinterpret_cast<const sockaddr_in6 *>(&storage)->sin6_addr), 16};
}

bool Address::is_loopback() const {
  const std::string bytes = octets();
  return family() == AF_INET ? bytes[0] == IN_LOOPBACKNET
                             : std::memcmp(bytes.data(), &in6addr_loopback, bytes.size()) == 0;
}

std::string Address::text() const {
  std::array<char, NI_MAXHOST> host{};
  std::array<char, NI_MAXSERV> port{};
  if (getnameinfo(get(), length, host.data(), host.size(), port.data(), port.size(), NI_NUMERICHOST | NI_NUMERICSERV)) {
    return "an address";
  }
  return std::string(host.data()) + " port " + port.data();
}

bool parse_address(const std::string &host, const std::string &port, std::vector<Address> &addresses) {
  addresses = look_up(host, port, AI_NUMERICHOST).addresses;
  return !addresses.empty();
}

int resolve(const std::string &host, const std::string &port, Deadline deadline, std::vector<Address> &addresses) {
  auto lookup = std::make_shared<Lookup>();
  lookup->host = host;
  lookup->port = port;
  if (!start_detached(lookup)) {
    ORN_TRACE("no thread to look up %s", host.c_str());
    return CONN_ERR_RESOURCES;
  }
  std::unique_lock lock(lookup->mutex);
  if (!lookup->answered.wait_until(lock, deadline.time(), [&] { return lookup->done; })) {
    ORN_TRACE("looking up %s took too long", host.c_str());
    return CONN_ERR_CONNECT_TIMED_OUT;
  }
  int status = status_of_answer(lookup->answer);
  if (status != 0) ORN_TRACE("looking up %s failed: %s", host.c_str(), gai_strerror(lookup->answer.code));
  addresses = std::move(lookup->answer.addresses);
  return status;
}

}  // namespace orn
