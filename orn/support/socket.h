// TCP sockets under a deadline.
#ifndef ORN_SUPPORT_SOCKET_H
#define ORN_SUPPORT_SOCKET_H

#include <unistd.h>

#include <utility>
#include <vector>

#include "orn/support/deadline.h"
#include "orn/support/resolver.h"

namespace orn {

// Owns a file descriptor, of which 0 is one like any other.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }

  int number() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }

 private:
  int number_ = -1;
};

enum class Wait { kReady, kTimedOut, kFailed };

// Waits until the descriptor has one of poll()'s events, through interruptions. kFailed leaves errno.
Wait wait_for(int descriptor, short events, Deadline deadline);

// The status of a failed system call on a connection or on the way to one.
int status_of_errno(int error);

// Connects to the first of the addresses that accepts. Each gets an equal share of the time that is left to it and to
// those behind it, so that one which swallows packets leaves time for the others. Returns a status.
int connect_to(const std::vector<Address> &addresses, Deadline deadline, Descriptor &connected);

}  // namespace orn

#endif
