// Paged replies: one request, then page after page on the same connection, each followed by a block of fixed-width
// entries outside its counted length.
#pragma once

#include <algorithm>
#include <cstring>
#include <vector>

#include "orn/vesk.h"
#include "orn/vesk/skeys/exchange.h"
#include "orn/vesk/wire/list_page.h"

namespace vesk::skeys {

// Reads a page into caRspBuf, which is cleared first so that a page cut short shows nothing of the one before it, and
// keeps what the session holds of a page. Returns what arrived, or nothing when iStatus says why.
template <typename Page, std::size_t kRows>
std::optional<std::string_view> receive_page(Session &session, const Transaction &transaction,
                                             const wire::Table<Page, kRows> &table, Page &page) {
  std::memset(session.caRspBuf, 0, sizeof session.caRspBuf);
  page = {};
  const std::optional<std::string_view> received = receive(session, transaction);
  if (!received) return std::nullopt;
  parse(table, *received, page);
  wire::copy_field(page.caMoreFlag, session.caMoreFlag);
  if constexpr (requires { page.caListCount; }) wire::copy_field(page.caListCount, session.caListCount);
  return received;
}

// Cuts the block of block_length bytes that follows on the connection into pieces, in caRspBuf behind the page_bytes
// that are to stay, and hands each to use(std::span<char>), which reads it and says whether to go on. A block that fits
// is one piece of exactly its size; a larger one takes the whole buffer in pieces that end on whole entries. A
// block_length of 0 or less is a piece of 0 bytes. Returns whether use went through to the end.
template <typename Use>
bool in_pieces(Session &session, std::size_t page_bytes, int block_length, std::size_t entry_bytes, Use use) {
  std::span<char> room = std::span(session.caRspBuf).subspan(page_bytes);
  std::size_t left = static_cast<std::size_t>(std::max(block_length, 0));
  if (left > room.size()) room = std::span(session.caRspBuf).first(sizeof session.caRspBuf / entry_bytes * entry_bytes);
  do {
    const std::span<char> piece = room.first(std::min(left, room.size()));
    if (!use(piece)) return false;
    left -= piece.size();
  } while (left > 0);
  return true;
}

// Reads a piece of a block that holds no secrets, and shows it in the trace.
inline bool read_and_dump(Session &session, std::span<char> piece) {
  if (!read_bytes(session, piece, wire::kReadTimeoutSeconds)) return false;
  const int count = static_cast<int>(piece.size());
  SKEYS_TRACE("iBytesRead <%d>", count);
  DumpBuffer(0, SKEYS_PATH, __LINE__, piece.data(), count, "Response buffer");
  return true;
}

// Hands each whole entry of a piece to use(std::string_view), which says whether to go on. What is left over is
// dropped.
template <typename Use>
bool for_each_entry(std::span<const char> piece, std::size_t entry_bytes, Use use) {
  for (std::size_t at = 0; at + entry_bytes <= piece.size(); at += entry_bytes) {
    if (!use(std::string_view(piece.data() + at, entry_bytes))) return false;
  }
  return true;
}

// Reads the block behind a page of page_bytes and hands over its entries. Returns false when a read failed, with
// iStatus set, or when use stopped.
template <typename Use>
bool read_entries(Session &session, std::size_t page_bytes, int block_length, std::size_t entry_bytes, Use use) {
  return in_pieces(session, page_bytes, block_length, entry_bytes, [&](std::span<char> piece) {
    return read_bytes(session, piece, wire::kReadTimeoutSeconds) && for_each_entry(piece, entry_bytes, use);
  });
}

// The names of a listing on their way into a caller's list, whose elements may be shorter or longer than a name: what
// does not fit with a terminator is cut.
class ListName {
 public:
  // list may be null, which is no list.
  ListName(LinkedList *list, std::size_t name_bytes) : list_(list), length_(name_bytes) {
    const std::size_t element_bytes = list == nullptr ? name_bytes : ll_get_element_size(list);
    if (element_bytes < name_bytes) length_ = std::max<std::size_t>(element_bytes, 1) - 1;
    // ll_append copies the list's element size; trimming touches one byte more than the name.
    element_.resize(std::max(element_bytes, name_bytes + 2));
  }

  // Takes a name as received, cut and trimmed. Returns its text, valid until the next one.
  const char *take(std::string_view received) {
    std::fill(element_.begin(), element_.end(), '\0');
    received.copy(element_.data(), length_);
    return strip_with_length(element_.data(), element_.data(), length_);
  }

  // Appends the name taken last.
  void append() const {
    if (list_ != nullptr) ll_append(list_, element_.data());
  }

 private:
  LinkedList *list_;
  std::size_t length_;
  std::vector<char> element_;
};

}  // namespace vesk::skeys
