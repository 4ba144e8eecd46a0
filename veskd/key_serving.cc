#include "orn/vesk/wire/key_serving.h"

#include <fmt/format.h>

#include "orn/vesk/wire/text.h"
#include "veskd/fields.h"
#include "veskd/handlers.h"
#include "veskd/key_records.h"
#include "veskd/metadata_records.h"
#include "veskd/template_fields.h"
#include "veskd/template_records.h"
#include "veskd/transaction.h"

namespace veskd {

using vesk::wire::put_padded;

namespace {

constexpr std::string_view kBinaryFormat = "BIN";

// The value's bytes open the field; the rest of it stays zero.
template <std::size_t kSize>
void put_value(char (&field)[kSize], const KeyValue &value) {
  static_assert(kSize >= kKeyBytes);
  std::memcpy(field, value->data(), value->size());
}

std::string size_text(const Key &key) {
  return fmt::format("{:04}", key.size_bits);
}

}  // namespace

ReturnCode retrieve_key(const Call &call, KeyRecord &reply) {
  if (trimmed(call.fields.caKeyFormat) != kBinaryFormat) return RC_KEY_FORMAT;
  const Snapshot snapshot(call.store.database);
  const auto key = find_key(call.store, trimmed(call.fields.caKeyName));
  if (!key) return RC_KEY_UNKNOWN;
  const std::string instance = find_instance(call.store, *key, trimmed(call.fields.caInstance));
  if (instance.empty()) return RC_INSTANCE_UNKNOWN;
  KeyValue value;
  read_key_value(call.store, *key, instance, value);
  put_padded(reply.caKeyName, key->name);
  put_padded(reply.caInstance, instance);
  put_padded(reply.caLastRolledDate, key->last_rollover_date);
  put_padded(reply.caExpirationDate, key->expiration_date);
  put_padded(reply.caKeySizeBits, size_text(*key));
  put_padded(reply.caKeyFormat, kBinaryFormat);
  put_value(reply.caKeyValue, value);
  return RC_SUCCESS;
}

// Finding the key and moving on are one change of the store, so no increment is served twice. One that was moved past
// before its reply arrived is lost to its caller, never served again.
ReturnCode get_next_key(const Call &call, NextKeyBlock &reply) {
  ReturnCode code;
  const auto family = named_template(call.store, call.fields, code);
  if (!family) return code;
  if (trimmed(call.fields.caKeyFormat) != kBinaryFormat) return RC_KEY_FORMAT;
  const auto next = find_next_key(call.store, *family);
  if (!next) return RC_TEMPLATE_EXHAUSTED;
  mark_served(call.store, *family, next->increment);
  const Key key = find_key(call.store, next->name).value();
  KeyValue value;
  read_key_value(call.store, key, key.current_instance, value);
  put_padded(reply.caKeyName, key.name);
  put_padded(reply.caInstance, key.current_instance);
  put_padded(reply.caLastRolloverDate, key.last_rollover_date);
  put_padded(reply.caExpirationDate, key.expiration_date);
  put_padded(reply.caKeySizeBits, size_text(key));
  put_padded(reply.caKeyFormat, kBinaryFormat);
  put_value(reply.caKeyValue, value);
  put_padded(reply.caLastIncrement, increment_text(next->increment));
  return RC_SUCCESS;
}

ReturnCode display_sym_key_policy(const Call &call, KeyRecord &reply) {
  const Snapshot snapshot(call.store.database);
  const auto key = find_key(call.store, trimmed(call.fields.caKeyName));
  if (!key) return RC_KEY_UNKNOWN;
  const std::string instance = find_instance(call.store, *key, trimmed(call.fields.caInstance));
  if (instance.empty()) return RC_INSTANCE_UNKNOWN;
  put_padded(reply.caKeyName, key->name);
  put_padded(reply.caInstance, instance);
  put_padded(reply.caCurrent, instance == key->current_instance ? "Y" : "N");
  put_padded(reply.caKeySizeBits, size_text(*key));
  put_padded(reply.caKeyCreationDate, key->creation_date);
  put_padded(reply.caActivationDate, key->activation_date);
  put_padded(reply.caExpirationDate, key->expiration_date);
  put_padded(reply.caRolloverCode, key->rollover_code);
  put_padded(reply.caRolloverDays, key->rollover_days);
  put_padded(reply.caLastRolledDate, key->last_rollover_date);
  put_padded(reply.caDeletable, key->deletable);
  put_padded(reply.caRevokedDate, key->revoked_date);
  put_padded(reply.caMirrorKey, key->mirror);
  put_metadata(read_metadata(call.store, *key), reply.md);
  return RC_SUCCESS;
}

}  // namespace veskd
