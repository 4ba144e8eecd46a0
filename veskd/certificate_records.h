// Certificates and private keys in the store. Both are sealed: a private key because it is secret, a certificate so
// that nobody who can write to the database has keys wrapped under a certificate of theirs.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "veskd/certificates.h"
#include "veskd/store.h"

namespace veskd {

// A name stands for a certificate, a private key, or one of each, which then belong together.
enum class EntryKind { kCertificate, kPrivateKey };

bool has_entry(StoreConnection &store, EntryKind kind, std::string_view name);

// The certificate as it was imported. Reading throws when what is stored was tampered with.
std::optional<std::string> find_certificate(StoreConnection &store, std::string_view name);
PrivateKeyPtr find_private_key(StoreConnection &store, std::string_view name);

// Replaces what has the name.
void put_certificate(StoreConnection &store, std::string_view name, std::string_view bytes);
void put_private_key(StoreConnection &store, std::string_view name, EVP_PKEY *key);

// Calls the function with the kind and name of every entry that does not open.
void for_each_damaged_entry(StoreConnection &store, const std::function<void(const std::string &)> &take);

// Seals every entry anew. What does not open stays as it is.
void reseal_entries(Database &database, const Sealer &from, const Sealer &to);

void delete_entry(StoreConnection &store, EntryKind kind, std::string_view name);

// At most count names behind the one given, in order.
std::vector<std::string> list_names(StoreConnection &store, EntryKind kind, std::string_view behind, std::size_t count);

}  // namespace veskd
