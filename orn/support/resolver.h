// From host and port to the addresses to connect to.
#ifndef ORN_SUPPORT_RESOLVER_H
#define ORN_SUPPORT_RESOLVER_H

#include <sys/socket.h>

#include <string>
#include <vector>

#include "orn/support/deadline.h"

namespace orn {

struct Address {
  sockaddr_storage storage{};
  socklen_t length = 0;

  const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&storage); }
  int family() const { return storage.ss_family; }
  bool is_loopback() const;
  // The 4 or 16 bytes of the address itself, as certificates hold them.
  std::string octets() const;
  // Address and port, as a reader knows them.
  std::string text() const;
};

// Fills addresses with the one that host spells. False: host is a name. Asks nobody.
bool parse_address(const std::string &host, const std::string &port, std::vector<Address> &addresses);

// Asks the system's name resolution until the deadline. Returns a status.
int resolve(const std::string &host, const std::string &port, Deadline deadline, std::vector<Address> &addresses);

}  // namespace orn

#endif
