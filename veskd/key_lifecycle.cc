#include <fmt/format.h>

#include "orn/vesk/wire/key_lifecycle.h"
#include "orn/vesk/wire/text.h"
#include "veskd/dates.h"
#include "veskd/fields.h"
#include "veskd/handlers.h"
#include "veskd/key_policy.h"
#include "veskd/key_records.h"
#include "veskd/template_fields.h"
#include "veskd/template_records.h"

namespace veskd {

using vesk::wire::put_padded;

ReturnCode create_sym_key(const Call &call, KeyRecord &reply) {
  const std::string name = trimmed(call.fields.caKeyName);
  if (!is_name(name)) return RC_KEY_NAME_INVALID;
  const KeyPolicy policy = policy_of(call.fields);
  if (const ReturnCode code = check_policy(call.fields, policy); code != RC_SUCCESS) return code;
  if (find_key(call.store, name)) return RC_KEY_EXISTS;
  if (was_deleted(call.store, name)) return RC_KEY_NAME_USED;
  const std::string instance = create_key(call.store, name, policy);
  put_padded(reply.caKeyName, name);
  put_padded(reply.caInstance, instance);
  return RC_SUCCESS;
}

namespace {

// Mode I begins a template; mode A goes on with one.
ReturnCode check_generation(const std::string &mode, const std::optional<Template> &family) {
  if (mode == "I") {
    if (!family) return RC_SUCCESS;
    return family->removed ? RC_TEMPLATE_USED : RC_TEMPLATE_EXISTS;
  }
  if (mode != "A") return RC_GENERATION_MODE;
  return family && !family->removed ? RC_SUCCESS : RC_TEMPLATE_UNKNOWN;
}

}  // namespace

ReturnCode auto_gen_keys(const Call &call, KeyRecord &) {
  if (const ReturnCode code = check_template(call.fields); code != RC_SUCCESS) return code;
  const KeyPolicy policy = policy_of(call.fields);
  if (const ReturnCode code = check_policy(call.fields, policy); code != RC_SUCCESS) return code;
  const std::string digits = trimmed(call.fields.caKeyCount);
  const int count = vesk::wire::to_int(digits);
  if (!is_all_digits(digits) || count == 0) return RC_KEY_COUNT;
  auto family = find_template(call.store, constant_of(call.fields));
  if (const ReturnCode code = check_generation(trimmed(call.fields.caGenMode), family); code != RC_SUCCESS) return code;
  if (!family) family = create_template(call.store, constant_of(call.fields));
  if (family->num_generated + count > kMaxIncrements) return RC_TEMPLATE_FULL;
  if (has_collision(call.store, *family, count)) return RC_KEY_COLLISION;
  generate_keys(call.store, *family, count, policy);
  return RC_SUCCESS;
}

// The store is there from the server's start; asking for it again never touches what it holds.
ReturnCode create_db(const Call &, KeyRecord &) {
  return RC_SUCCESS;
}

ReturnCode delete_key(const Call &call, vesk::wire::DeleteKeyReply &reply) {
  const auto key = find_key(call.store, trimmed(call.fields.caKeyName));
  if (!key) return RC_KEY_UNKNOWN;
  if (key->deletable != "Y") return RC_NOT_DELETABLE;
  delete_key(call.store, *key, call.caller);
  put_padded(reply.caKeyName, key->name);
  put_padded(reply.caDeletedDate, today());
  return RC_SUCCESS;
}

// Made deletable, never the reverse.
ReturnCode change_deletable(const Call &call, KeyRecord &) {
  if (trimmed(call.fields.caDeletable) != "Y") return RC_POLICY_INVALID;
  const auto key = find_key(call.store, trimmed(call.fields.caKeyName));
  if (!key) return RC_KEY_UNKNOWN;
  const std::string instance = trimmed(call.fields.caInstance);
  if (!instance.empty() && !has_instance(call.store, *key, instance)) return RC_INSTANCE_UNKNOWN;
  make_deletable(call.store, *key);
  return RC_SUCCESS;
}

}  // namespace veskd
