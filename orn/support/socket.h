// TCP sockets under a deadline.
#ifndef ORN_SUPPORT_SOCKET_H
#define ORN_SUPPORT_SOCKET_H

#include <sys/socket.h>

#include <memory>
#include <vector>

#include "orn/support/deadline.h"
#include "orn/support/descriptor.h"
#include "orn/support/resolver.h"

namespace orn {

// The socket's own time-out of a blocking call. Setting it costs a system call, so a wait is cut into slices that are
// begun again until the deadline, and only a slice at the very end needs another setting.
class SliceOfTime {
 public:
  // option: SO_RCVTIMEO or SO_SNDTIMEO.
  explicit SliceOfTime(int option) : option_(option) {}

  // Lets no wait of the descriptor last longer than left. False leaves errno.
  bool limit(int descriptor, Deadline::Clock::duration left);

 private:
  const int option_;
  Deadline::Clock::duration set_ = Deadline::Clock::duration::max();
};

// A connected TCP socket, which blocks.
struct Socket {
  Descriptor descriptor;
  SliceOfTime receiving{SO_RCVTIMEO};
  SliceOfTime sending{SO_SNDTIMEO};
};

// The status of a failed system call on a connection or on the way to one.
int status_of_errno(int error);

// Connects to the first of the addresses that accepts. Each gets an equal share of the time that is left to it and to
// those behind it, so that one which swallows packets leaves time for the others. Returns a status; what was connected
// is null if it is not 0.
int connect_to(const std::vector<Address> &addresses, Deadline deadline, std::unique_ptr<Socket> &connected);

}  // namespace orn

#endif
