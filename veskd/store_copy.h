// Copies of a store in a file: taken while a server changes it, and put back in its place.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "veskd/store_file.h"

namespace veskd {

struct BackupRequest {
  StoreFiles store;
  std::filesystem::path to;
  std::filesystem::path master_key_to;  // empty: the master key is not copied
  bool replace = false;                 // a file that is there already
};

// Makes one private file of the store as it is at one moment. It is in place only when all of it was read back and
// every value opened. Throws StartError, or DatabaseError.
void back_up(const BackupRequest &request);

struct RestoreRequest {
  std::filesystem::path from;
  StoreFiles store;
  std::filesystem::path master_key;             // that the backup is sealed under; empty: the store's own
  std::optional<std::int64_t> skip_increments;  // of each template; none: all that were generated
  bool replace = false;                         // a store that is there already
};

// Makes a store that no server has out of a backup. Throws StartError, or DatabaseError.
void restore(const RestoreRequest &request);

}  // namespace veskd
