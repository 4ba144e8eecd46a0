#include "veskd/delivery_lease.h"

#include "veskd/mirror_records.h"

namespace veskd {

DeliveryLease::DeliveryLease(std::chrono::milliseconds time) : time_(time), name_(random_name()) {}

bool DeliveryLease::take(StoreConnection &store) {
  Query query(store.database, "SELECT holder, beat FROM delivery_lease");
  if (!query.next()) throw DatabaseError("the table delivery_lease has no row");
  const std::string holder = query.text(0);
  const std::int64_t beat = query.number(1);
  const Clock::time_point now = Clock::now();
  if (holder != name_ && !holder.empty()) {
    if (holder != holder_ || beat != beat_) {
      holder_ = holder;
      beat_ = beat;
      seen_at_ = now;
    }
    if (now < seen_at_ + time_) return false;
  }
  Query(store.database, "UPDATE delivery_lease SET holder = ?1, beat = beat + 1", name_).run();
  return true;
}

void DeliveryLease::give_back(StoreConnection &store) const {
  Query(store.database, "UPDATE delivery_lease SET holder = '' WHERE holder = ?1", name_).run();
}

}  // namespace veskd
