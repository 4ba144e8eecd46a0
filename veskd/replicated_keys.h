// Mirror keys on their way between servers: what the sender puts into a change and what the receiver makes of it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "veskd/handlers.h"
#include "veskd/mirror_wire.h"

namespace veskd {

// The changes that wait for a mirror, as a request of ReplicateKeys; at most kMaxChanges of one origin.
struct ReplicationBatch {
  WipedText request;                 // empty when nothing waits
  std::int64_t last_number = 0;      // of the queue, up to which the request covers it
  std::vector<std::string> keys;     // whose changes are in the request
  std::vector<std::string> damaged;  // keys that cannot be sent because their stored value does not open
};
ReplicationBatch read_batch(StoreConnection &store, std::int64_t mirror_id);

// Takes what was dealt with from the queue.
void finish_changes(StoreConnection &store, std::int64_t mirror_id, std::int64_t last_number);

// The receiver's side.
bool parse_replicate_keys(std::string_view received, RequestFields &fields);
Reply replicate_keys(const Call &call);
ReturnCode compare_keys(const Call &call, wire::CompareKeysReply &reply);

}  // namespace veskd
