// Which of the servers that share a store delivers the queues of its mirrors: the one that has the lease.
//
// Its holder counts a beat up as long as it lives. Who sees one beat for too long by its own clock takes the lease
// over; no two clocks are compared. That two deliver for a moment, one of them having been held up, does no harm: a
// mirror applies no change twice.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "veskd/store.h"

namespace veskd {

class DeliveryLease {
 public:
  // A holder that is not heard of for that time has lost the lease.
  explicit DeliveryLease(std::chrono::milliseconds time);

  // As a change of the store, every so often: takes the lease if it is free, keeps it if it is this server's. Whether
  // it is this server's now.
  bool take(StoreConnection &store);

  // As a change of the store: leaves the lease to the others.
  void give_back(StoreConnection &store) const;

 private:
  using Clock = std::chrono::steady_clock;

  const std::chrono::milliseconds time_;
  const std::string name_;
  // Of another holder: what was seen last, and since when.
  std::string holder_;
  std::int64_t beat_ = 0;
  Clock::time_point seen_at_;
};

}  // namespace veskd
