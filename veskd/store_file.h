// Where a store and its master key are, and the store as the administrator's commands open it, beside a server that may
// have it open.
#pragma once

#include <filesystem>
#include <memory>

#include "veskd/store.h"

namespace veskd {

struct StoreFiles {
  StoreAddress store;
  std::filesystem::path master_key;

  // What a server locks.
  std::filesystem::path lock() const { return master_key.parent_path() / "veskd.lock"; }

  // The new master key, until it has taken the place of the old one.
  std::filesystem::path next_master_key() const { return master_key.string() + ".next"; }
};

StoreFiles store_files_in(const std::filesystem::path &directory);

// Whether there is a store, of whatever content. Makes none. Throws StartError.
bool store_exists(const StoreAddress &store);

class StoreFile {
 public:
  // Throws StartError: there is no store, it is of another version than this veskd, or the master key is not its own.
  // One whose master key is just being changed opens under the key that is its own at this moment.
  explicit StoreFile(const StoreFiles &files, DatabaseUse use = DatabaseUse::kChanges);

  StoreConnection &operator*() { return *connection_; }
  const MasterKey &master_key() const { return *master_; }
  const StoreKeys &keys() const { return *keys_; }

 private:
  std::unique_ptr<MasterKey> master_;
  std::unique_ptr<StoreKeys> keys_;
  std::unique_ptr<Sealer> sealer_;
  std::unique_ptr<StoreConnection> connection_;
};

}  // namespace veskd
