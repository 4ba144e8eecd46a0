// Changing the master key.
//
// The new key lies beside the old one until the store's keys are sealed under it, which is one transaction; then it
// takes the old one's place. A rotation that is cut off at any moment leaves a key that opens the store, and is
// finished, or forgotten, by the next start of the server or the next rotation.
#pragma once

#include <memory>

#include "veskd/store_file.h"

namespace veskd {

// Seals the store's keys under a new master key. A server that has the store open goes on: it needs the master key at
// its start alone. Throws StartError, or DatabaseError.
void rotate_master_key(const StoreFiles &files);

// The same, and seals every value under a new key of the store's, which is in a file. No server may have the directory.
void rotate_all_keys(const StoreFiles &files);

// The master key of a store that is to be served, when a rotation that was cut off has been finished; a new key when
// neither it nor a store that needs it is there. Throws StartError.
std::unique_ptr<MasterKey> open_master_key(const StoreFiles &files);

}  // namespace veskd
