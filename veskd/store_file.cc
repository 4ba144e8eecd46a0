#include "veskd/store_file.h"

#include <fmt/format.h>

#include <utility>

#include "veskd/errors.h"
#include "veskd/schema.h"

namespace veskd {
namespace {

namespace fs = std::filesystem;

Database open_existing(const fs::path &path) {
  if (!fs::exists(path)) throw StartError(fmt::format("there is no key store {}", path.string()));
  Database database(path);
  const std::int64_t version = store_version(database);
  if (version != std::ssize(kMigrations))
    throw StartError(
        fmt::format("the key store {} has version {}, this veskd works on version {}: start the server of "
                    "this veskd on it once, or use a newer veskd",
                    path.string(), version, kMigrations.size()));
  return database;
}

}  // namespace

StoreFiles store_files_in(const fs::path &directory) {
  return {directory / "store.db", directory / "master.key"};
}

StoreFile::StoreFile(const StoreFiles &files) {
  try {
    Database database = open_existing(files.store);
    for (const fs::path &path : {files.master_key, files.next_master_key()}) {
      if (keys_ || !fs::exists(path)) continue;
      master_ = MasterKey::read(path);
      keys_ = read_store_keys(database, *master_);
    }
    if (!keys_)
      throw StartError(
          fmt::format("the master key {} does not belong to the key store {}: restore the master key file "
                      "that was made with this store",
                      files.master_key.string(), files.store.string()));
    sealer_ = std::make_unique<Sealer>(*keys_->values);
    connection_.reset(new StoreConnection{std::move(database), *sealer_, keys_->audit});
  } catch (const DatabaseError &error) {
    throw StartError(fmt::format("cannot use the key store {}: {}", files.store.string(), error.what()));
  }
}

}  // namespace veskd
