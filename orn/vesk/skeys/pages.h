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
// keeps its More Flag and List Count in the session. Returns what arrived, or nothing when iStatus says why.
std::optional<std::string_view> receive_page(Session &session, const Transaction &transaction, wire::ListPage &page);

// Reads the block of block_length bytes behind a page of page_length bytes and hands each whole entry to
// use(std::string_view); what is left over at its end is read and dropped. A block that fits behind the page is one
// read of exactly its size; a larger one comes in pieces that end on whole entries. A block_length of 0 or less is a
// read of 0 bytes. Returns whether the whole block was read.
template <typename Use>
bool read_entries(Session &session, std::size_t page_length, int block_length, std::size_t entry_bytes, Use use) {
  std::span<char> room = std::span(session.caRspBuf).subspan(page_length);
  std::size_t left = static_cast<std::size_t>(std::max(block_length, 0));
  if (left > room.size()) room = std::span(session.caRspBuf).first(sizeof session.caRspBuf / entry_bytes * entry_bytes);
  do {
    const std::span<char> piece = room.first(std::min(left, room.size()));
    if (!read_bytes(session, piece, wire::kReadTimeoutSeconds)) return false;
    for (std::size_t at = 0; at + entry_bytes <= piece.size(); at += entry_bytes)
      use(std::string_view(piece.data() + at, entry_bytes));
    left -= piece.size();
  } while (left > 0);
  return true;
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
