// The address book of mirrors and their replication queues in the store.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "veskd/return_codes.h"
#include "veskd/store.h"

namespace veskd {

// The health of a mirror, as the protocol tells it in one character.
inline constexpr std::string_view kNotTried = "N";
inline constexpr std::string_view kUp = "U";       // the last exchange with it succeeded
inline constexpr std::string_view kDown = "D";     // the last attempt brought no exchange about
inline constexpr std::string_view kRefuses = "R";  // it answers, with a refusal

// Whether the mirror holds the same mirror keys.
inline constexpr std::string_view kSameData = "Y";
inline constexpr std::string_view kOtherData = "N";
inline constexpr std::string_view kUnknownData = "?";

struct Mirror {
  std::int64_t id;
  std::string name;
  std::string host;
  std::uint16_t port;
  std::string status;
  std::int64_t fault_count;
  std::int64_t last_fault;
  std::string data_hash_status;
  std::int64_t num_keys_here;
  std::int64_t num_keys_there;
  std::string compared_time;
  std::int64_t attempt;
};

std::optional<Mirror> find_mirror(StoreConnection &store, std::string_view name);
std::optional<Mirror> find_mirror(StoreConnection &store, std::int64_t id);
std::vector<std::int64_t> list_mirrors(StoreConnection &store);

// Adds a mirror or gives it another address. Its queue and its faults stay.
void set_mirror(StoreConnection &store, std::string_view name, std::string_view host, std::uint16_t port);

// Its queue goes with it.
void remove_mirror(StoreConnection &store, const Mirror &mirror);

// Has the mirror tried and compared at once, without waiting for its next turn.
void request_attempt(StoreConnection &store, const Mirror &mirror);

std::int64_t queue_size(StoreConnection &store, const Mirror &mirror);

// The data hash status as it is now: while changes wait for a mirror, its data is not known to be the same, whatever
// the last comparison said.
std::string_view data_hash_status_now(const Mirror &mirror, std::int64_t num_waiting);

// Queues a key, or the news that it is gone; false when there never was a mirror key of that name.
bool queue_key(StoreConnection &store, const Mirror &mirror, std::string_view key_name);

// Queues every mirror key, and behind them those that were deleted.
void queue_all_keys(StoreConnection &store, const Mirror &mirror);

// 32 hexadecimal digits that nobody had before.
std::string random_name();

// From now on changes have an origin that no change had before: a store that was restored from a copy gives out numbers
// anew, and what it calls change 7 must not be taken for a change 7 that a mirror remembers.
void renew_origin(Database &database);

// The store as a digest of its mirror keys: names, instances, policies and metadata. Values are not in it, because an
// instance never changes its value.
struct MirrorDigest {
  std::string hexadecimal;
  std::int64_t num_keys = 0;
};
MirrorDigest digest_of_mirror_keys(StoreConnection &store);

}  // namespace veskd
