#include "veskd/master_key_rotation.h"

#include <fmt/format.h>

#include <memory>

#include "veskd/audit_records.h"
#include "veskd/errors.h"
#include "veskd/files.h"
#include "veskd/transaction.h"

namespace veskd {
namespace {

namespace fs = std::filesystem;

enum class Extent { kMasterKey, kAllKeys };

// One rotation, or the end of one, at a time.
Descriptor lock_rotation(const StoreFiles &files) {
  return wait_for_lock(files.master_key.string() + ".lock");
}

bool opens_store(const StoreFiles &files, const fs::path &master_key) {
  if (!fs::exists(master_key)) return false;
  Database database(files.store, DatabaseUse::kReads);
  return read_store_keys(database, *MasterKey::read(master_key)) != nullptr;
}

// A new key under which nothing was sealed is forgotten.
void finish_locked(const StoreFiles &files) {
  const fs::path next = files.next_master_key();
  if (!fs::exists(next)) return;
  if (!store_exists(files.store) || opens_store(files, files.master_key)) return remove_file(next);
  if (!opens_store(files, next))
    throw StartError(
        fmt::format("neither {} nor {} belongs to the key store {}: restore the master key file of this store",
                    files.master_key.string(), next.string(), files.store.name()));
  rename_file(next, files.master_key);
}

void reseal(StoreFile &store, const MasterKey &master, Extent extent) {
  Database &database = (*store).database;
  Transaction transaction(database);
  if (!read_store_keys(database, store.master_key()))
    throw StartError("the master key is being changed on another machine: copy the new one from there");
  auto keys = make_store_keys();
  *keys->audit = *store.keys().audit;
  if (extent == Extent::kAllKeys) {
    reseal_values(database, (*store).sealer, Sealer(*keys->values));
  } else {
    *keys->values = *store.keys().values;
  }
  write_store_keys(database, master, *keys);
  append_audit_entry(*store, local_event(extent == Extent::kAllKeys ? "RotateAllKeys" : "RotateMasterKey", {}));
  transaction.commit();
}

void rotate(const StoreFiles &files, Extent extent) {
  const Descriptor lock = lock_rotation(files);
  finish_locked(files);
  StoreFile store(files);
  const auto next = MasterKey::create(files.next_master_key());
  reseal(store, *next, extent);
  rename_file(files.next_master_key(), files.master_key);
  // It may still be sealed under the old key.
  (*store).database.forget_overwritten();
}

}  // namespace

void rotate_master_key(const StoreFiles &files) {
  rotate(files, Extent::kMasterKey);
}

void rotate_all_keys(const StoreFiles &files) {
  if (files.store.is_shared())
    throw StartError(
        fmt::format("other servers may have the key store {} open, and would go on with the former keys: its values "
                    "keep their key",
                    files.store.name()));
  const Descriptor lock = lock_file(files.lock());
  rotate(files, Extent::kAllKeys);
}

std::unique_ptr<MasterKey> open_master_key(const StoreFiles &files) {
  if (fs::exists(files.next_master_key())) {
    const Descriptor lock = lock_rotation(files);
    finish_locked(files);
  }
  if (fs::exists(files.master_key)) return MasterKey::read(files.master_key);
  if (!store_exists(files.store)) return MasterKey::create(files.master_key);
  // A new key in the place of the one that is missing would only hide that the store cannot be read.
  throw StartError(
      fmt::format("the key store {} is there but its master key {} is missing: restore it from a backup; "
                  "without it no key of the store can be read",
                  files.store.name(), files.master_key.string()));
}

}  // namespace veskd
