#include "veskd/store_file.h"

#include <fmt/format.h>

#include <utility>

#include "veskd/errors.h"
#include "veskd/schema.h"

namespace veskd {
namespace {

namespace fs = std::filesystem;

Database open_existing(const StoreAddress &store, DatabaseUse use) {
  if (!store_exists(store)) throw StartError(fmt::format("there is no key store {}", store.name()));
  Database database(store, use);
  const std::int64_t version = database.version();
  if (version != std::ssize(kMigrations))
    throw StartError(
        fmt::format("the key store {} has version {}, this veskd works on version {}: start the server of "
                    "this veskd on it once, or use a newer veskd",
                    store.name(), version, kMigrations.size()));
  return database;
}

}  // namespace

StoreFiles store_files_in(const fs::path &directory) {
  return {directory / "store.db", directory / "master.key"};
}

bool store_exists(const StoreAddress &store) {
  if (!store.is_shared()) return fs::exists(store.text());
  try {
    return Database(store, DatabaseUse::kReads).version() > 0;
  } catch (const DatabaseError &error) {
    throw unusable(store, error);
  }
}

StoreFile::StoreFile(const StoreFiles &files, DatabaseUse use) {
  try {
    Database database = open_existing(files.store, use);
    for (const fs::path &path : {files.master_key, files.next_master_key()}) {
      if (keys_ || !fs::exists(path)) continue;
      master_ = MasterKey::read(path);
      keys_ = read_store_keys(database, *master_);
    }
    if (!keys_)
      throw StartError(
          fmt::format("the master key {} does not belong to the key store {}: restore the master key file "
                      "that was made with this store",
                      files.master_key.string(), files.store.name()));
    sealer_ = std::make_unique<Sealer>(*keys_->values);
    connection_.reset(new StoreConnection{std::move(database), *sealer_, keys_->audit});
  } catch (const DatabaseError &error) {
    throw unusable(files.store, error);
  }
}

}  // namespace veskd
