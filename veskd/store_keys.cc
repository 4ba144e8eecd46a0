#include "veskd/store_keys.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "veskd/audit_records.h"
#include "veskd/certificate_records.h"
#include "veskd/key_records.h"

namespace veskd {
namespace {

constexpr std::string_view kValuesPurpose = "values";
constexpr std::string_view kAuditPurpose = "audit";

std::string sealing_context(std::string_view purpose) {
  return fmt::format("store key\n{}", purpose);
}

bool read_key(Database &database, const Sealer &sealer, std::string_view purpose, KeyValue &key) {
  Query query(database, "SELECT sealed FROM store_keys WHERE purpose = ?1", purpose);
  return query.next() && sealer.unseal(query.blob(0), sealing_context(purpose), *key);
}

void write_key(Database &database, const Sealer &sealer, std::string_view purpose, const KeyValue &key) {
  const std::vector<std::uint8_t> sealed = sealer.seal(*key, sealing_context(purpose));
  Query(database, "INSERT INTO store_keys VALUES (?1, ?2) ON CONFLICT (purpose) DO UPDATE SET sealed = ?2", purpose,
        std::span<const std::uint8_t>(sealed))
      .run();
}

// What a store without keys of its own knows its master key by: a value sealed under it. There is none in a fresh
// store.
bool passes_former_check(Database &database, const Sealer &sealer) {
  constexpr std::string_view kCheckValue = "veskd master key";
  Query query(database, "SELECT sealed FROM master_key_check");
  if (!query.next()) return true;
  std::array<std::uint8_t, kCheckValue.size()> value;
  return sealer.unseal(query.blob(0), "master key check", value) &&
         std::equal(value.begin(), value.end(), kCheckValue.begin());
}

}  // namespace

std::unique_ptr<StoreKeys> make_store_keys() {
  auto keys = std::make_unique<StoreKeys>();
  fill_with_secret_random(*keys->values);
  fill_with_secret_random(*keys->audit);
  return keys;
}

std::unique_ptr<StoreKeys> read_store_keys(Database &database, const MasterKey &master) {
  const Sealer sealer(master.bytes());
  auto keys = std::make_unique<StoreKeys>();
  const bool opened = read_key(database, sealer, kValuesPurpose, keys->values) &&
                      read_key(database, sealer, kAuditPurpose, keys->audit);
  return opened ? std::move(keys) : nullptr;
}

void write_store_keys(Database &database, const MasterKey &master, const StoreKeys &keys) {
  const Sealer sealer(master.bytes());
  write_key(database, sealer, kValuesPurpose, keys.values);
  write_key(database, sealer, kAuditPurpose, keys.audit);
}

std::unique_ptr<StoreKeys> open_store_keys(Database &database, const MasterKey &master) {
  if (Query(database, "SELECT 1 FROM store_keys").next()) return read_store_keys(database, master);
  const Sealer former(master.bytes());
  if (!passes_former_check(database, former)) return nullptr;
  auto keys = make_store_keys();
  reseal_values(database, former, Sealer(*keys->values));
  write_store_keys(database, master, *keys);
  begin_audit(database, keys->audit);
  database.execute("DROP TABLE master_key_check");
  return keys;
}

void reseal_values(Database &database, const Sealer &from, const Sealer &to) {
  reseal_key_values(database, from, to);
  reseal_entries(database, from, to);
}

}  // namespace veskd
