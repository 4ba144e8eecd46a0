// Keys in the store.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "veskd/secret.h"
#include "veskd/store.h"

namespace veskd {

inline constexpr int kKeySizeBits = 256;

// What the creator of a key decides about it.
struct KeyPolicy {
  std::string activation_date;
  std::string expiration_date;
  std::string rollover_code;
  std::string rollover_days;
  std::string deletable;
  std::string mirror;
  std::string user_group_flag;
  std::string user;
  std::string group;
};

struct Key {
  std::int64_t id;
  std::string name;
  std::string current_instance;
  std::int64_t size_bits;
  std::string creation_date;
  std::string activation_date;
  std::string expiration_date;
  std::string rollover_code;
  std::string rollover_days;
  std::string last_rollover_date;
  std::string deletable;
  std::string revoked_date;
  std::string mirror;
};

// The place of a key in its template, if it is of one.
struct TemplatePlace {
  std::optional<std::int64_t> template_id;
  std::optional<std::int64_t> increment;
};

std::optional<Key> find_key(StoreConnection &store, std::string_view name);
bool has_instance(StoreConnection &store, const Key &key, std::string_view instance);

// The instance asked for, empty text being the current one; empty when there is no such.
std::string find_instance(StoreConnection &store, const Key &key, const std::string &instance);

// Whether a key of that name was deleted.
bool was_deleted(StoreConnection &store, std::string_view name);

// Makes a key of a fresh random value and returns its instance. The name must be free.
std::string create_key(StoreConnection &store, std::string_view name, const KeyPolicy &policy,
                       const TemplatePlace &place = {});

// The same with a value from outside.
std::string add_key(StoreConnection &store, std::string_view name, const KeyPolicy &policy, const KeyValue &value,
                    const TemplatePlace &place = {});

// Makes a key of that value and instance. The name must be free.
void insert_key(StoreConnection &store, std::string_view name, std::string_view instance, const KeyPolicy &policy,
                const KeyValue &value, const TemplatePlace &place = {});

// A stored value that does not open: it was tampered with, or belongs elsewhere.
class DamagedKey : public DatabaseError {
 public:
  using DatabaseError::DatabaseError;
};

// The value of one of the key's instances. Throws DamagedKey when the stored value was tampered with.
void read_key_value(StoreConnection &store, const Key &key, std::string_view instance, KeyValue &value);

// Puts a value in the place of one that does not open.
void replace_key_value(StoreConnection &store, const Key &key, std::string_view instance, const KeyValue &value);

// Every stored value, as rows of key name, instance and sealed value; of a key that lacks its current instance that
// alone, with a value of null.
inline constexpr std::string_view kStoredValues =
    "SELECT name, coalesce(instances.instance, current_instance), instances.sealed_value FROM keys "
    "LEFT JOIN instances AS current ON current.key = id AND current.instance = current_instance "
    "LEFT JOIN instances ON instances.key = current.key ORDER BY name";

// Whether a stored value opens as that of the key and instance.
bool opens(const Sealer &sealer, std::string_view name, std::string_view instance,
           std::span<const std::uint8_t> sealed_value);

// Calls the function with the name and instance of every value that does not open, and of keys that have none.
void for_each_damaged_value(StoreConnection &store, const std::function<void(const std::string &)> &take);

// Seals every value anew. What does not open stays as it is.
void reseal_key_values(Database &database, const Sealer &from, const Sealer &to);

void make_deletable(StoreConnection &store, const Key &key);

// Deletes the key with its instances and records who did so.
void delete_key(StoreConnection &store, const Key &key, std::string_view deleted_by);

}  // namespace veskd
