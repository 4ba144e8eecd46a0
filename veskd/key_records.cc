#include "veskd/key_records.h"

#include <fmt/format.h>
#include <openssl/rand.h>

#include <vector>

#include "veskd/dates.h"
#include "veskd/errors.h"

namespace veskd {
namespace {

// 24 characters: when the instance was made, and what tells it from others of that second.
std::string new_instance() {
  std::array<std::uint8_t, 4> random;
  if (RAND_bytes(random.data(), random.size()) != 1) throw std::runtime_error("no random bytes: " + openssl_error());
  return fmt::format("{}-{:02X}{:02X}{:02X}{:02X}", timestamp(), random[0], random[1], random[2], random[3]);
}

std::string value_context(std::string_view name, std::string_view instance) {
  return fmt::format("key value\n{}\n{}", name, instance);
}

void insert_record(StoreConnection &store, std::string_view name, std::string_view instance, const KeyPolicy &policy,
                   const TemplatePlace &place) {
  Query(store.database,
        "INSERT INTO keys (name, current_instance, size_bits, creation_date, activation_date, expiration_date, "
        "rollover_code, rollover_days, deletable, mirror, user_group_flag, user_name, group_name, template, increment) "
        "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15)",
        name, instance, kKeySizeBits, today(), policy.activation_date, policy.expiration_date, policy.rollover_code,
        policy.rollover_days, policy.deletable, policy.mirror, policy.user_group_flag, policy.user, policy.group,
        place.template_id, place.increment)
      .run();
}

}  // namespace

std::optional<Key> find_key(StoreConnection &store, std::string_view name) {
  Query query(store.database,
              "SELECT id, name, current_instance, size_bits, creation_date, activation_date, expiration_date, "
              "rollover_code, rollover_days, last_rollover_date, deletable, revoked_date, mirror "
              "FROM keys WHERE name = ?1",
              name);
  if (!query.next()) return std::nullopt;
  return Key{query.number(0), query.text(1),  query.text(2), query.number(3), query.text(4),
             query.text(5),   query.text(6),  query.text(7), query.text(8),   query.text(9),
             query.text(10),  query.text(11), query.text(12)};
}

bool has_instance(StoreConnection &store, const Key &key, std::string_view instance) {
  return Query(store.database, "SELECT 1 FROM instances WHERE key = ?1 AND instance = ?2", key.id, instance).next();
}

std::string find_instance(StoreConnection &store, const Key &key, const std::string &instance) {
  if (instance.empty()) return key.current_instance;
  return has_instance(store, key, instance) ? instance : std::string();
}

bool was_deleted(StoreConnection &store, std::string_view name) {
  return Query(store.database, "SELECT 1 FROM deleted_keys WHERE name = ?1", name).next();
}

std::string create_key(StoreConnection &store, std::string_view name, const KeyPolicy &policy,
                       const TemplatePlace &place) {
  KeyValue value;
  fill_with_secret_random(*value);
  return add_key(store, name, policy, value, place);
}

std::string add_key(StoreConnection &store, std::string_view name, const KeyPolicy &policy, const KeyValue &value,
                    const TemplatePlace &place) {
  std::string instance = new_instance();
  insert_key(store, name, instance, policy, value, place);
  return instance;
}

void insert_key(StoreConnection &store, std::string_view name, std::string_view instance, const KeyPolicy &policy,
                const KeyValue &value, const TemplatePlace &place) {
  const std::vector<std::uint8_t> sealed = store.sealer.seal(*value, value_context(name, instance));
  insert_record(store, name, instance, policy, place);
  Query(store.database, "INSERT INTO instances SELECT id, ?2, ?3 FROM keys WHERE name = ?1", name, instance,
        std::span<const std::uint8_t>(sealed))
      .run();
}

void read_key_value(StoreConnection &store, const Key &key, std::string_view instance, KeyValue &value) {
  Query query(store.database, "SELECT sealed_value FROM instances WHERE key = ?1 AND instance = ?2", key.id, instance);
  if (!query.next() || !store.sealer.unseal(query.blob(0), value_context(key.name, instance), *value))
    throw DamagedKey(fmt::format("the stored value of key {} instance {} was damaged", key.name, instance));
}

void replace_key_value(StoreConnection &store, const Key &key, std::string_view instance, const KeyValue &value) {
  const std::vector<std::uint8_t> sealed = store.sealer.seal(*value, value_context(key.name, instance));
  Query(store.database,
        "INSERT INTO instances VALUES (?1, ?2, ?3) ON CONFLICT (key, instance) DO UPDATE SET sealed_value = ?3", key.id,
        instance, std::span<const std::uint8_t>(sealed))
      .run();
}

bool opens(const Sealer &sealer, std::string_view name, std::string_view instance,
           std::span<const std::uint8_t> sealed_value) {
  KeyValue value;
  return sealer.unseal(sealed_value, value_context(name, instance), *value);
}

namespace {

// A sealed value and its place.
struct SealedValue {
  std::int64_t key;
  std::string instance;
  std::string name;
  std::vector<std::uint8_t> bytes;
};

// Some of the values behind that place, in order.
std::vector<SealedValue> sealed_values(Database &database, std::int64_t key, std::string_view instance) {
  constexpr std::int64_t kMaxValues = 1000;
  Query query(database,
              "SELECT instances.key, instance, name, sealed_value FROM instances JOIN keys ON id = instances.key "
              "WHERE (instances.key, instance) > (?1, ?2) ORDER BY instances.key, instance LIMIT ?3",
              key, instance, kMaxValues);
  std::vector<SealedValue> values;
  while (query.next()) {
    const std::span<const std::uint8_t> bytes = query.blob(3);
    values.push_back({query.number(0), query.text(1), query.text(2), {bytes.begin(), bytes.end()}});
  }
  return values;
}

void reseal(Database &database, const SealedValue &old, const Sealer &from, const Sealer &to) {
  const std::string context = value_context(old.name, old.instance);
  KeyValue value;
  if (!from.unseal(old.bytes, context, *value)) return;
  const std::vector<std::uint8_t> sealed = to.seal(*value, context);
  Query(database, "UPDATE instances SET sealed_value = ?3 WHERE key = ?1 AND instance = ?2", old.key, old.instance,
        std::span<const std::uint8_t>(sealed))
      .run();
}

}  // namespace

void reseal_key_values(Database &database, const Sealer &from, const Sealer &to) {
  std::vector<SealedValue> values = sealed_values(database, 0, "");
  while (!values.empty()) {
    for (const SealedValue &value : values) reseal(database, value, from, to);
    values = sealed_values(database, values.back().key, values.back().instance);
  }
}

void for_each_damaged_value(StoreConnection &store, const std::function<void(const std::string &)> &take) {
  Query query(store.database, kStoredValues);
  while (query.next()) {
    const std::string name = query.text(0);
    const std::string instance = query.text(1);
    if (query.is_null(2) || !opens(store.sealer, name, instance, query.blob(2)))
      take(fmt::format("key {} instance {}", name, instance));
  }
}

void make_deletable(StoreConnection &store, const Key &key) {
  Query(store.database, "UPDATE keys SET deletable = 'Y' WHERE id = ?1", key.id).run();
}

void delete_key(StoreConnection &store, const Key &key, std::string_view deleted_by) {
  Query(store.database, "INSERT INTO deleted_keys VALUES (?1, ?2, ?3, ?4)", key.name, key.current_instance, timestamp(),
        deleted_by)
      .run();
  Query(store.database, "DELETE FROM keys WHERE id = ?1", key.id).run();
}

}  // namespace veskd
