// The transactions for whoever looks at bytes and not at records: the tables of orn/vesk/wire with the names of their
// fields in place of the fields, and what stands outside the counted frames.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "orn/vesk/wire/row.h"

namespace command {

struct Field {
  std::size_t offset;
  std::size_t width;
  vesk::wire::RowKind kind;
  std::string_view literal;
  std::string_view name;  // as its record declares it, or in words of its own; empty for what names no field

  constexpr std::size_t end() const { return offset + width; }
};

using Fields = std::span<const Field>;

constexpr std::size_t end_of(Fields fields) {
  return fields.empty() ? 0 : fields.back().end();
}

// What follows a record outside its counted length.
struct Attachment {
  std::string_view count;      // the field of the record that counts its bytes
  std::size_t uncounted = 0;   // without such a field, as many zero bytes
  int overhead = 0;            // what the count has above the bytes
  std::string_view name = {};  // of what it is as a whole
  Fields entry = {};           // of a block of entries
  bool is_secret = false;
};

struct Protocol {
  vesk::wire::Transaction transaction;
  Fields request;  // of a metadata query, whose rest is criteria, the header
  Fields reply;    // of a list: a page of it
  Attachment behind_request = {};
  Attachment behind_reply = {};
  bool has_pages = false;
};

// What every request and reply begins with, known or not.
extern const Fields kHeader;

// The identifier in a record, or as much of it as is there.
std::string_view tran_id_of(std::string_view record);

// Null for what no transaction has.
const Protocol *find_protocol(std::string_view tran_id);
const Protocol *find_protocol_of_function(std::string_view function);

enum class Direction { kSent, kReceived };

// Whether the byte at that place of what was sent or received may be part of a key: values, files of keys, and what
// stands where no field is known. Everything is, of a protocol that is not known (null).
bool is_secret(const Protocol *protocol, Direction direction, std::size_t offset);

}  // namespace command
