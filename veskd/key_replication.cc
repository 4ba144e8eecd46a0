// The receiver's side of replication.
#include <fmt/format.h>
#include <openssl/crypto.h>

#include <charconv>

#include "orn/vesk/wire/codec.h"
#include "veskd/dates.h"
#include "veskd/fields.h"
#include "veskd/key_records.h"
#include "veskd/metadata_records.h"
#include "veskd/mirror_records.h"
#include "veskd/replicated_keys.h"

namespace veskd {
namespace {

using namespace vesk::wire;
using namespace veskd::wire;

// While it exists, what is changed is not queued for the mirrors of this server. An undone change undoes it as well.
class Receiving {
 public:
  explicit Receiving(StoreConnection &store) : store_(store) { set(1); }
  void end() { set(0); }

 private:
  void set(std::int64_t receiving) { Query(store_.database, "UPDATE replication SET receiving = ?1", receiving).run(); }
  StoreConnection &store_;
};

// Nothing when the number is none of a queue.
std::optional<std::int64_t> number_of(const ReplicatedChange &change) {
  const std::string_view digits = text_in(change.caNumber);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size() || number < 1) return std::nullopt;
  return number;
}

bool has_printable_text(std::string_view bytes) {
  for (const auto &row : kReplicatedChange) {
    if (row.kind == RowKind::kText && !is_printable(bytes.substr(row.offset, row.width))) return false;
  }
  return true;
}

bool is_valid(const ReplicatedChange &change) {
  if (!number_of(change) || !is_name(trimmed(change.caKeyName)) || !is_name(trimmed(change.caInstance))) return false;
  if (change.caKind[0] == kDeletionKind) return true;
  return change.caKind[0] == kKeyKind && trimmed(change.caKeySizeBits) == fmt::format("{:04}", kKeySizeBits) &&
         is_date(trimmed(change.caKeyCreationDate)) && is_date_or_none(trimmed(change.caActivationDate)) &&
         is_date_or_none(trimmed(change.caExpirationDate)) && is_date_or_none(trimmed(change.caLastRolledDate)) &&
         is_date_or_none(trimmed(change.caRevokedDate)) && is_flag(text_in(change.caDeletable)) &&
         text_in(change.caRolloverCode) == "N" && is_all_digits(text_in(change.caRolloverDays));
}

std::string_view change_bytes(std::string_view received, std::size_t index) {
  return received.substr(kChangesOffset + index * kChangeBytes, kChangeBytes);
}

KeyPolicy policy_of(const ReplicatedChange &change) {
  return {.activation_date = trimmed(change.caActivationDate),
          .expiration_date = trimmed(change.caExpirationDate),
          .rollover_code = trimmed(change.caRolloverCode),
          .rollover_days = trimmed(change.caRolloverDays),
          .deletable = trimmed(change.caDeletable),
          .mirror = "Y",
          .user_group_flag = trimmed(change.caUserGroupFlag),
          .user = trimmed(change.caUser),
          .group = trimmed(change.caGroup)};
}

void copy_value(const ReplicatedChange &change, KeyValue &value) {
  std::memcpy(value->data(), change.caKeyValue, value->size());
}

// Whether the stored value is another than the one that arrived, as far as it opens.
bool has_other_value(StoreConnection &store, const Key &key, const ReplicatedChange &change) {
  KeyValue stored;
  try {
    read_key_value(store, key, key.current_instance, stored);
  } catch (const DamagedKey &) {
    return false;
  }
  return CRYPTO_memcmp(stored->data(), change.caKeyValue, stored->size()) != 0;
}

// Whether the receiver has another key of that name, which it keeps: it may have handed it out.
bool is_conflict(StoreConnection &store, const ReplicatedChange &change) {
  const auto key = find_key(store, trimmed(change.caKeyName));
  if (!key) return false;
  if (key->mirror != "Y" || key->current_instance != trimmed(change.caInstance)) return true;
  return change.caKind[0] == kKeyKind && has_other_value(store, *key, change);
}

// A stored value that does not open is replaced by the one that arrived.
void mend_value(StoreConnection &store, const Key &key, const ReplicatedChange &change) {
  KeyValue value;
  try {
    read_key_value(store, key, key.current_instance, value);
  } catch (const DamagedKey &) {
    copy_value(change, value);
    replace_key_value(store, key, key.current_instance, value);
  }
}

void insert_arrived_key(StoreConnection &store, const ReplicatedChange &change) {
  KeyValue value;
  copy_value(change, value);
  insert_key(store, trimmed(change.caKeyName), trimmed(change.caInstance), policy_of(change), value);
}

void write_arrived_metadata(StoreConnection &store, const Key &key, const ReplicatedChange &change) {
  const std::string text = trimmed(change.caMetadata);
  if (text == read_metadata(store, key)) return;
  MetadataFields fields{};
  put_metadata(text, fields);
  write_metadata(store, key, fields);
}

// What is deletable stays so, whatever the other server says.
void update_key(StoreConnection &store, const Key &key, const ReplicatedChange &change) {
  const KeyPolicy policy = policy_of(change);
  Query(store.database,
        "UPDATE keys SET creation_date = ?2, activation_date = ?3, expiration_date = ?4, last_rollover_date = ?5, "
        "revoked_date = ?6, deletable = CASE WHEN deletable = 'Y' THEN 'Y' ELSE ?7 END WHERE id = ?1",
        key.id, trimmed(change.caKeyCreationDate), policy.activation_date, policy.expiration_date,
        trimmed(change.caLastRolledDate), trimmed(change.caRevokedDate), policy.deletable)
      .run();
  write_arrived_metadata(store, key, change);
}

ReturnCode apply_key(StoreConnection &store, const ReplicatedChange &change) {
  const std::string name = trimmed(change.caKeyName);
  if (was_deleted(store, name)) return RC_MIRROR_KEY_DELETED;
  if (!find_key(store, name)) insert_arrived_key(store, change);
  const Key key = find_key(store, name).value();
  mend_value(store, key, change);
  update_key(store, key, change);
  return RC_SUCCESS;
}

// A key that never arrived is remembered as deleted too, so that its name is not given to another.
ReturnCode apply_deletion(StoreConnection &store, const ReplicatedChange &change, const std::string &caller) {
  const std::string name = trimmed(change.caKeyName);
  if (was_deleted(store, name)) return RC_SUCCESS;
  if (const auto key = find_key(store, name)) {
    delete_key(store, *key, caller);
    return RC_SUCCESS;
  }
  Query(store.database, "INSERT INTO deleted_keys VALUES (?1, ?2, ?3, ?4)", name, trimmed(change.caInstance),
        timestamp(), caller)
      .run();
  Query(store.database, "INSERT INTO deleted_mirror_keys VALUES (?1) ON CONFLICT DO NOTHING", name).run();
  return RC_SUCCESS;
}

std::int64_t last_applied(StoreConnection &store, std::string_view origin) {
  Query query(store.database, "SELECT number FROM applied_changes WHERE origin = ?1", origin);
  return query.next() ? query.number(0) : 0;
}

ReturnCode apply(const Call &call, std::string_view origin, const ReplicatedChange &change) {
  const std::int64_t number = number_of(change).value();
  // What conflicts did so when it came before: a name is never given to another key.
  if (is_conflict(call.store, change)) return RC_MIRROR_CONFLICT;
  // It was applied, and the reply did not arrive.
  if (number <= last_applied(call.store, origin)) return RC_SUCCESS;
  const ReturnCode code = change.caKind[0] == kDeletionKind ? apply_deletion(call.store, change, call.caller)
                                                            : apply_key(call.store, change);
  if (code != RC_SUCCESS) return code;
  Query(call.store.database,
        "INSERT INTO applied_changes VALUES (?1, ?2) ON CONFLICT (origin) DO UPDATE SET number = ?2", origin, number)
      .run();
  return code;
}

}  // namespace

bool parse_replicate_keys(std::string_view received, RequestFields &fields) {
  if (received.size() <= kChangesOffset || (received.size() - kChangesOffset) % kChangeBytes != 0) return false;
  const std::size_t num_changes = (received.size() - kChangesOffset) / kChangeBytes;
  if (num_changes > kMaxChanges || !is_name(received.substr(0, kChangesOffset))) return false;
  for (std::size_t i = 0; i < num_changes; ++i) {
    Wiped<ReplicatedChange> change;
    read_fields(kReplicatedChange, change_bytes(received, i), *change);
    if (!has_printable_text(change_bytes(received, i)) || !is_valid(*change)) return false;
  }
  put_padded(fields.caTranId, kReplicateKeys.tran_id);
  return true;
}

Reply replicate_keys(const Call &call) {
  const std::string_view origin = call.text.substr(kOriginOffset, kOriginBytes);
  const std::size_t num_changes = (call.text.size() - kChangesOffset) / kChangeBytes;
  Receiving receiving(call.store);
  Reply reply;
  std::string codes;
  for (std::size_t i = 0; i < num_changes; ++i) {
    Wiped<ReplicatedChange> change;
    read_fields(kReplicatedChange, change_bytes(call.text, i), *change);
    const ReturnCode code = apply(call, origin, *change);
    codes += return_code_text(code);
    reply.outcomes.push_back({trimmed(change->caKeyName), code});
  }
  receiving.end();
  reply.bytes = WipedText(fmt::format("{:05}{}{}{}", kChangeCodesOffset - kLengthDigits + codes.size(),
                                      kReplicateKeys.tran_id, return_code_text(RC_SUCCESS), codes));
  return reply;
}

ReturnCode compare_keys(const Call &call, CompareKeysReply &reply) {
  const MirrorDigest digest = digest_of_mirror_keys(call.store);
  put_padded(reply.caDigest, digest.hexadecimal);
  put_padded(reply.caNumKeys, fmt::format("{:010}", digest.num_keys));
  return RC_SUCCESS;
}

}  // namespace veskd
