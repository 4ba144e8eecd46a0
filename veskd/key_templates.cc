#include "orn/vesk/wire/key_templates.h"

#include <fmt/format.h>

#include <charconv>

#include "orn/vesk/wire/codec.h"
#include "veskd/handlers.h"
#include "veskd/template_fields.h"
#include "veskd/template_records.h"

namespace veskd {

using vesk::wire::kTemplateEntryBytes;
using vesk::wire::ListPage;
using vesk::wire::put_padded;

namespace {

// The template that the request names; nothing, and the reason in code, when there is none.
std::optional<Template> named_template(const Call &call, ReturnCode &code) {
  code = check_template(call.fields);
  if (code != RC_SUCCESS) return std::nullopt;
  std::optional<Template> family = find_template(call.store, constant_of(call.fields));
  if (family && !family->removed) return family;
  code = RC_TEMPLATE_UNKNOWN;
  return std::nullopt;
}

// Nothing for what is not hexadecimal digits alone.
std::optional<std::uint32_t> parse_increment(const std::string &text) {
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// A page of the constants behind the one given. Whether another follows is known by asking for one more.
Reply template_page(StoreConnection &store, std::size_t max_entries, const std::string &behind) {
  std::vector<std::string> constants = list_constants(store, behind, max_entries + 1);
  const bool more = constants.size() > max_entries;
  if (more) constants.pop_back();
  ListPage page{};
  put_padded(page.caTranId, vesk::wire::kGetTemplateList.tran_id);
  put_padded(page.caReturnCode, return_code_text(RC_SUCCESS));
  put_padded(page.caMoreFlag, more ? "Y" : "N");
  put_padded(page.caListCount, fmt::format("{:05}", constants.size() * kTemplateEntryBytes));
  std::string bytes = write_reply(vesk::wire::kListPage, page);
  for (const std::string &constant : constants) bytes += fmt::format("{:<{}}", constant, kTemplateEntryBytes);
  Reply reply;
  reply.bytes = WipedText(std::move(bytes));
  if (more) {
    reply.next_page = [max_entries, last = constants.back()](StoreConnection &reader) {
      return template_page(reader, max_entries, last);
    };
  }
  return reply;
}

}  // namespace

ReturnCode get_template_depth(const Call &call, TemplateDepth &reply) {
  ReturnCode code;
  const auto family = named_template(call, code);
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
  return template_page(call.store, std::max<std::size_t>(call.max_page_bytes / kTemplateEntryBytes, 1), "");
}

ReturnCode remove_template(const Call &call, KeyRecord &) {
  ReturnCode code;
  const auto family = named_template(call, code);
  if (!family) return code;
  if (!is_removable(call.store, *family)) return RC_NOT_DELETABLE;
  remove_template(call.store, *family, call.caller);
  return RC_SUCCESS;
}

// Forward skips keys, which stay where they are. Backward is for keys that were skipped: one that was served, or that
// lies before one, is never served again.
ReturnCode set_next_increment(const Call &call, KeyRecord &) {
  ReturnCode code;
  const auto family = named_template(call, code);
  if (!family) return code;
  const auto increment = parse_increment(trimmed(call.fields.caNextIncrement));
  if (!increment || *increment > family->last_increment()) return RC_INCREMENT_RANGE;
  if (*increment < family->first_unserved) return RC_INCREMENT_SERVED;
  set_next_increment(call.store, *family, *increment);
  return RC_SUCCESS;
}

}  // namespace veskd
