// The store's own keys. They are made with the store and lie in it, sealed under the master key: a new master key seals
// them anew and leaves what they seal as it is.
#pragma once

#include <memory>

#include "veskd/database.h"
#include "veskd/sealing.h"
#include "veskd/secret.h"

namespace veskd {

struct StoreKeys {
  KeyValue values;  // what key values, certificates and private keys are sealed under
  KeyValue audit;   // what the entries of the audit are chained under
};

// Fresh random keys.
std::unique_ptr<StoreKeys> make_store_keys();

// Null when they do not open: the master key is another store's.
std::unique_ptr<StoreKeys> read_store_keys(Database &database, const MasterKey &master);

// Seals the keys under the master key, in the place of what was there.
void write_store_keys(Database &database, const MasterKey &master, const StoreKeys &keys);

// Reads the keys. If the store has none yet, makes them and begins the audit; what a store of before there were such
// keys has sealed under the master key itself is sealed anew. Within a transaction.
std::unique_ptr<StoreKeys> open_store_keys(Database &database, const MasterKey &master);

// Seals every value of the store anew. What does not open stays as it is. Within a transaction.
void reseal_values(Database &database, const Sealer &from, const Sealer &to);

}  // namespace veskd
