#include "veskd/paged_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "orn/vesk/wire/codec.h"
#include "orn/vesk/wire/list_page.h"

namespace veskd {
namespace {

// Rows that are looked at before others get their turn, though they make up no page.
constexpr int kMaxRowsAtOnce = 2000;

// Nothing for a name that the client may not use.
std::optional<std::string> name_entry(const Scope &scope, const std::string &name, std::size_t entry_bytes) {
  if (!scope.has(name)) return std::nullopt;
  return fmt::format("{:<{}}", name, entry_bytes);
}

class PagedList : public std::enable_shared_from_this<PagedList> {
 public:
  PagedList(std::unique_ptr<Store::ListReader> reader, std::string_view sql, ListForm form, std::size_t max_page_bytes)
      : reader_(std::move(reader)),
        rows_(Query::streamed((**reader_).database, sql)),
        form_(std::move(form)),
        page_entry_bytes_(whole_entries(std::min(max_page_bytes, form_.max_block_bytes))) {}

  // The next page, or a reply without bytes when there is more to look at before there is one. That a page is the last
  // is known when no row is left for another.
  Reply go_on() {
    for (int looked_at = 0; looked_at < kMaxRowsAtOnce; ++looked_at) {
      if (!rows_.next()) return page(false);
      std::optional<std::string> entry = form_.entry(rows_);
      if (!entry) continue;
      if (entries_.size() == page_entry_bytes_) {
        Reply full = page(true);
        entries_ = std::move(*entry);
        return full;
      }
      entries_ += *entry;
    }
    return to_be_continued();
  }

 private:
  std::size_t whole_entries(std::size_t bytes) const {
    return std::max<std::size_t>(bytes / form_.entry_bytes, 1) * form_.entry_bytes;
  }

  Reply page(bool more) {
    Reply reply = more ? to_be_continued() : Reply();
    reply.bytes = WipedText(form_.header(entries_.size(), more) + entries_);
    return reply;
  }

  Reply to_be_continued() {
    Reply reply;
    reply.next_page = [self = shared_from_this()](StoreConnection &) { return self->go_on(); };
    return reply;
  }

  const std::unique_ptr<Store::ListReader> reader_;
  Query rows_;  // as long as it is not done, its first step holds the store as it was then
  const ListForm form_;
  const std::size_t page_entry_bytes_;
  std::string entries_;  // of the page under way
};

}  // namespace

std::string list_page(std::string_view tran_id, ReturnCode code, std::size_t block_bytes, bool more) {
  vesk::wire::ListPage page{};
  vesk::wire::put_padded(page.caTranId, tran_id);
  vesk::wire::put_padded(page.caReturnCode, return_code_text(code));
  vesk::wire::put_padded(page.caMoreFlag, more ? "Y" : "N");
  vesk::wire::put_padded(page.caListCount, fmt::format("{:05}", block_bytes));
  return write_reply(vesk::wire::kListPage, page);
}

Reply start_name_list(const Call &call, const char *tran_id, std::string_view sql, std::size_t entry_bytes) {
  return start_list(
      call, sql,
      {.tran_id = tran_id,
       .entry_bytes = entry_bytes,
       .max_block_bytes = kMaxListCount,
       .entry = [=, scope = call.scope](const Query &row) { return name_entry(scope, row.text(0), entry_bytes); },
       .header = [=](std::size_t block_bytes,
                     bool more) { return list_page(tran_id, RC_SUCCESS, block_bytes, more); }});
}

Reply start_list(const Call &call, std::string_view sql, ListForm form) {
  auto reader = Store::ListReader::take(call.lists);
  if (!reader) return refusal(form.tran_id, RC_TOO_MANY_LISTS);
  return std::make_shared<PagedList>(std::move(reader), sql, std::move(form), call.max_page_bytes)->go_on();
}

}  // namespace veskd
