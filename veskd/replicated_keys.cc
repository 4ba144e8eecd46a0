#include "veskd/replicated_keys.h"

#include <fmt/format.h>

#include "veskd/key_records.h"
#include "veskd/metadata_records.h"
#include "veskd/mirror_records.h"
#include "veskd/transaction.h"

namespace veskd {
namespace {

using namespace vesk::wire;
using namespace veskd::wire;

struct QueuedChange {
  std::int64_t number;
  std::string origin;
  std::string key_name;
};

// The next changes for a mirror. Those of one request have one origin.
std::vector<QueuedChange> queued_changes(StoreConnection &store, std::int64_t mirror_id) {
  Query query(store.database,
              "SELECT number, origin, key_name FROM replication_queue WHERE mirror = ?1 ORDER BY number LIMIT ?2",
              mirror_id, static_cast<std::int64_t>(kMaxChanges));
  std::vector<QueuedChange> changes;
  while (query.next() && (changes.empty() || query.text(1) == changes.front().origin))
    changes.push_back({query.number(0), query.text(1), query.text(2)});
  return changes;
}

void put_key(StoreConnection &store, const Key &key, ReplicatedChange &change) {
  KeyValue value;
  read_key_value(store, key, key.current_instance, value);
  std::memcpy(change.caKeyValue, value->data(), value->size());
  put_padded(change.caKind, std::string(1, kKeyKind));
  put_padded(change.caInstance, key.current_instance);
  put_padded(change.caKeySizeBits, fmt::format("{:04}", key.size_bits));
  put_padded(change.caKeyCreationDate, key.creation_date);
  put_padded(change.caActivationDate, key.activation_date);
  put_padded(change.caExpirationDate, key.expiration_date);
  put_padded(change.caRolloverCode, key.rollover_code);
  put_padded(change.caRolloverDays, key.rollover_days);
  put_padded(change.caLastRolledDate, key.last_rollover_date);
  put_padded(change.caDeletable, key.deletable);
  put_padded(change.caRevokedDate, key.revoked_date);
  put_padded(change.caMetadata, read_metadata(store, key));
  Query owner(store.database, "SELECT user_group_flag, user_name, group_name FROM keys WHERE id = ?1", key.id);
  if (!owner.next()) throw DatabaseError("a key is gone while it is read");
  put_padded(change.caUserGroupFlag, owner.text(0));
  put_padded(change.caUser, owner.text(1));
  put_padded(change.caGroup, owner.text(2));
}

// False when there is nothing to tell of the key: it is none that is mirrored.
bool put_change(StoreConnection &store, const QueuedChange &queued, ReplicatedChange &change) {
  put_padded(change.caNumber, fmt::format("{:019}", queued.number));
  put_padded(change.caKeyName, queued.key_name);
  if (const auto key = find_key(store, queued.key_name)) {
    if (key->mirror != "Y") return false;
    put_key(store, *key, change);
    return true;
  }
  Query deleted(store.database, "SELECT instance FROM deleted_keys WHERE name = ?1", queued.key_name);
  if (!deleted.next()) return false;
  put_padded(change.caKind, std::string(1, kDeletionKind));
  put_padded(change.caInstance, deleted.text(0));
  return true;
}

std::string request_header(const std::string &origin, std::int64_t mirror_id, std::size_t total_bytes) {
  return fmt::format("{:05}{}{}-{:010}", total_bytes - kLengthDigits, kReplicateKeys.tran_id, origin, mirror_id);
}

}  // namespace

ReplicationBatch read_batch(StoreConnection &store, std::int64_t mirror_id) {
  const Snapshot snapshot(store.database);
  ReplicationBatch batch;
  const std::vector<QueuedChange> changes = queued_changes(store, mirror_id);
  // Reserved, so that the text does not move while it grows and leave values behind.
  WipedText body;
  body.text().reserve(kMaxReplicateKeysBytes);
  body.text().resize(kChangesOffset);
  for (const QueuedChange &queued : changes) {
    Wiped<ReplicatedChange> change;
    batch.last_number = queued.number;
    try {
      if (!put_change(store, queued, *change)) continue;
    } catch (const DamagedKey &) {
      batch.damaged.push_back(queued.key_name);
      continue;
    }
    const WipedText bytes(write_record(kReplicatedChange, *change));
    body.text() += bytes.text();
    batch.keys.push_back(queued.key_name);
  }
  if (batch.keys.empty()) return batch;
  const std::string header = request_header(changes.front().origin, mirror_id, body.text().size());
  body.text().replace(0, kChangesOffset, header);
  batch.request = std::move(body);
  return batch;
}

void finish_changes(StoreConnection &store, std::int64_t mirror_id, std::int64_t last_number) {
  Query(store.database, "DELETE FROM replication_queue WHERE mirror = ?1 AND number <= ?2", mirror_id, last_number)
      .run();
}

}  // namespace veskd
