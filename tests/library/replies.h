// Every transaction's reply as its table has it, so that tests reach each field of each without knowing any by name.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orn/vesk/wire/row.h"

struct ReplyField {
  std::size_t offset;
  std::size_t width;
  vesk::wire::RowKind kind;
};

struct ReplyShape {
  std::vector<ReplyField> fields;      // the length digits first
  std::optional<ReplyField> key_name;  // which some calls compare with the one that was asked for
  // Of a reply with bytes behind its declared length.
  std::optional<ReplyField> count;
  std::optional<ReplyField> more_flag;
  std::size_t entry_bytes = 0;
  int count_overhead = 0;  // what the count is more than the bytes behind the reply

  std::size_t bytes() const { return fields.back().offset + fields.back().width; }
};

// Throws for a name that no transaction function has.
const ReplyShape &reply_shape(std::string_view function);

// A reply that goes through: with every field full of the filler, two entries behind it if it has such, and no page to
// follow. It is about the key "K1".
std::string whole_reply(const ReplyShape &shape, std::string_view tran_id, char filler);

// Puts a value into a field of a reply, cut or blank-padded to its width.
void put_field(std::string &reply, const ReplyField &field, std::string_view value);
