#include "orn/vesk/wire/key_names.h"

#include <fmt/format.h>

#include "orn/vesk/wire/codec.h"
#include "veskd/handlers.h"
#include "veskd/paged_list.h"

namespace veskd {
namespace {

using namespace vesk::wire;

constexpr std::size_t kMaxListCount = 99999;

std::string page_header(std::size_t block_bytes, bool more) {
  ListPage page{};
  put_padded(page.caTranId, kDisplayKeyNameList.tran_id);
  put_padded(page.caReturnCode, return_code_text(RC_SUCCESS));
  put_padded(page.caMoreFlag, more ? "Y" : "N");
  put_padded(page.caListCount, fmt::format("{:05}", block_bytes));
  return write_reply(kListPage, page);
}

}  // namespace

Reply display_key_name_list(const Call &call) {
  return start_list(call, "SELECT name FROM keys ORDER BY name",
                    {.tran_id = kDisplayKeyNameList.tran_id,
                     .entry_bytes = kKeyNameBytes,
                     .max_block_bytes = kMaxListCount,
                     .entry = [](const Query &row) { return fmt::format("{:<{}}", row.text(0), kKeyNameBytes); },
                     .header = page_header});
}

}  // namespace veskd
