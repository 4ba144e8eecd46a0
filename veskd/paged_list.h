// A list that is told page by page: the rows of one query, stepped through on a reader of its own. It tells the store
// as it was when the list began, takes the memory of one page whatever its length, and leaves the other readers alone.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "veskd/handlers.h"

namespace veskd {

// What is special about a list.
struct ListForm {
  std::string_view tran_id;
  std::size_t entry_bytes;
  std::size_t max_block_bytes;  // what the page's count can tell
  // The entry that a row makes; nothing when the row is not on the list.
  std::function<std::optional<std::string>(const Query &row)> entry;
  // The page that stands before a block of that many bytes.
  std::function<std::string(std::size_t block_bytes, bool more)> header;
};

// What the five digits of a List Count can tell.
inline constexpr std::size_t kMaxListCount = 99999;

// The common page of a list, as it stands before a block of that many bytes.
std::string list_page(std::string_view tran_id, ReturnCode code, std::size_t block_bytes, bool more);

// The first page. sql is a string literal without parameters, and orders its rows by an index, so that none of them
// wait in memory.
Reply start_list(const Call &call, std::string_view sql, ListForm form);

// The same for a list of the names that the rows begin with, those in the client's scope, padded to entry_bytes each,
// on common pages.
Reply start_name_list(const Call &call, const char *tran_id, std::string_view sql, std::size_t entry_bytes);

}  // namespace veskd
