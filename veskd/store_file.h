// The files of a store, and the store as the administrator's commands open it, beside a server that may have it open.
#pragma once

#include <filesystem>
#include <memory>

#include "veskd/store.h"

namespace veskd {

struct StoreFiles {
  std::filesystem::path store;
  std::filesystem::path master_key;

  // The new master key, until it has taken the place of the old one.
  std::filesystem::path next_master_key() const { return master_key.string() + ".next"; }
};

StoreFiles store_files_in(const std::filesystem::path &directory);

class StoreFile {
 public:
  // Throws StartError: there is no store, it is of another version than this veskd, or the master key is not its own.
  // One whose master key is just being changed opens under the key that is its own at this moment.
  explicit StoreFile(const StoreFiles &files);

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
