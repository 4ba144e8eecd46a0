// Key templates in the store. A template hands out its keys in the order of their increments, each once.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "veskd/key_records.h"
#include "veskd/store.h"

namespace veskd {

inline constexpr std::size_t kConstantLength = 15;
inline constexpr std::size_t kIncrementLength = 6;
inline constexpr std::int64_t kMaxIncrements = 0x1000000;

struct Template {
  std::int64_t id;
  std::string constant;
  std::int64_t num_generated;   // increments 0 to num_generated - 1 have, or had, keys
  std::int64_t next_increment;  // where serving goes on
  std::int64_t first_unserved;  // no increment at or behind it was served
  bool removed;

  std::int64_t last_increment() const { return num_generated - 1; }
};

// Six upper-case hexadecimal digits.
std::string increment_text(std::int64_t increment);

// Removed templates too.
std::optional<Template> find_template(StoreConnection &store, std::string_view constant);
Template create_template(StoreConnection &store, std::string_view constant);

// Whether one of the names that the template's next count keys would have is, or was, another key's.
bool has_collision(StoreConnection &store, const Template &family, std::int64_t count);

// Makes count keys behind the last one.
void generate_keys(StoreConnection &store, const Template &family, std::int64_t count, const KeyPolicy &policy);

struct NextKey {
  std::string name;
  std::int64_t increment;
};

// The key to be served next; keys that were deleted are passed over. Nothing when the template is exhausted.
std::optional<NextKey> find_next_key(StoreConnection &store, const Template &family);
void mark_served(StoreConnection &store, const Template &family, std::int64_t increment);
void set_next_increment(StoreConnection &store, const Template &family, std::int64_t increment);

// Moves every template on by that many increments, none meaning past all that were generated, as if they had been
// served. Where that leads behind the last one, the increments between count as generated too: their names may be
// taken.
void skip_increments(StoreConnection &store, const std::optional<std::int64_t> &count);

// Whether every key that was not served may be deleted.
bool is_removable(StoreConnection &store, const Template &family);

// Deletes the keys that were not served and records who did so. The constant stays taken.
void remove_template(StoreConnection &store, const Template &family, std::string_view removed_by);

}  // namespace veskd
