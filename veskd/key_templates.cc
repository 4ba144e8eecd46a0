#include "orn/vesk/wire/key_templates.h"

#include <charconv>

#include "orn/vesk/wire/codec.h"
#include "veskd/handlers.h"
#include "veskd/paged_list.h"
#include "veskd/template_fields.h"
#include "veskd/template_records.h"
#include "veskd/transaction.h"

namespace veskd {

using vesk::wire::put_padded;

namespace {

// Nothing for what is not hexadecimal digits alone.
std::optional<std::uint32_t> parse_increment(const std::string &text) {
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

ReturnCode get_template_depth(const Call &call, TemplateDepth &reply) {
  const Snapshot snapshot(call.store.database);
  ReturnCode code;
  const auto family = named_template(call.store, call.fields, code);
  if (!family) return code;
  const auto next = find_next_key(call.store, *family);
  put_padded(reply.caIncrementLen, "06");
  put_padded(reply.caIncrementCode, "H");
  // The caller adds one to the next increment of a full template: it is the last one then.
  put_padded(reply.caNextIncrement, increment_text(next ? next->increment : family->last_increment()));
  put_padded(reply.caLastIncrement, increment_text(family->last_increment()));
  put_padded(reply.caKeyServed, family->first_unserved > 0 ? "Y" : "N");
  put_padded(reply.caTemplateFull, next ? "N" : "Y");
  return RC_SUCCESS;
}

Reply get_template_list(const Call &call) {
  return start_name_list(call, vesk::wire::kGetTemplateList.tran_id,
                         "SELECT constant FROM templates WHERE removed_date IS NULL ORDER BY constant",
                         vesk::wire::kTemplateEntryBytes);
}

ReturnCode remove_template(const Call &call, KeyRecord &) {
  ReturnCode code;
  const auto family = named_template(call.store, call.fields, code);
  if (!family) return code;
  if (!is_removable(call.store, *family)) return RC_NOT_DELETABLE;
  remove_template(call.store, *family, call.caller);
  return RC_SUCCESS;
}

// Forward skips keys, which stay where they are. Backward is for keys that were skipped: one that was served, or that
// lies before one, is never served again.
ReturnCode set_next_increment(const Call &call, KeyRecord &) {
  ReturnCode code;
  const auto family = named_template(call.store, call.fields, code);
  if (!family) return code;
  const auto increment = parse_increment(trimmed(call.fields.caNextIncrement));
  if (!increment || *increment > family->last_increment()) return RC_INCREMENT_RANGE;
  if (*increment < family->first_unserved) return RC_INCREMENT_SERVED;
  set_next_increment(call.store, *family, *increment);
  return RC_SUCCESS;
}

}  // namespace veskd
