// The audit in the store: an entry for each operation that changes a secret or hands one out.
//
// Every entry carries a hash over itself and over the hash of the one before it, keyed with the audit key: who can
// write to the store, but has no master key, cannot make the chain fit again. The head, sealed with the same key, says
// where the chain ends.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "veskd/store.h"

namespace veskd {

// Who did what, and how it ended. Never a key value.
struct AuditEvent {
  std::string caller;       // the subject of the client's certificate
  std::string fingerprint;  // SHA-256 of that certificate; empty for what no client asked for
  std::string peer;         // the address
  std::string tran_id;      // empty for what is no transaction
  std::string function;
  std::string object;  // the name of the key, template, certificate or mirror
  std::int64_t return_code = 0;
};

// What a command does to the store of its own machine.
AuditEvent local_event(const std::string &function, const std::string &object);

using AuditHash = std::array<std::uint8_t, 32>;

struct AuditEntry {
  std::int64_t number = 0;  // from 1
  std::string time;
  AuditEvent event;
  AuditHash previous_hash{};
  AuditHash hash{};
};

struct AuditHead {
  std::int64_t number = 0;  // of the last entry
  AuditHash hash{};
};

// Begins the audit of a fresh store.
void begin_audit(Database &database, const KeyValue &audit_key);

// Adds an entry, in the transaction of what it tells of. Throws DatabaseError, also when the head was tampered with.
void append_audit_entry(StoreConnection &store, const AuditEvent &event);

// Calls the function with each entry from that number on.
void for_each_audit_entry(Database &database, std::int64_t from, const std::function<void(const AuditEntry &)> &take);

// Calls the function with each thing that is wrong, and returns the head. Sees the store as it is at one moment.
AuditHead verify_audit(StoreConnection &store, const std::function<void(const std::string &)> &report);

std::string hexadecimal(const AuditHash &hash);

}  // namespace veskd
