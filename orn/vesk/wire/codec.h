// Records to bytes and back, by table.
//
// The two ends differ on purpose. The library appends the request's fields as text, so that a field that was not filled
// shortens the record, and takes replies as they come. The server accepts only requests in full order and writes each
// field of a reply in its place.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "orn/vesk/wire/row.h"
#include "orn/vesk/wire/text.h"

namespace vesk::wire {

// ---- The library's side ----

// A request under construction. It may carry key material, so it is wiped with its owner (see RequestBuffer).
class Appender {
 public:
  explicit Appender(std::span<char> room) : room_(room) {}

  // Adds text up to its first NUL.
  void append(std::string_view text) { append_bytes(text.substr(0, text.find('\0'))); }

  // Adds bytes as they are. The tables are checked to fit; the bound holds whatever they say.
  void append_bytes(std::string_view bytes) {
    bytes = bytes.substr(0, room_.size() - length_);
    std::memcpy(room_.data() + length_, bytes.data(), bytes.size());
    length_ += bytes.size();
  }

  std::size_t length() const { return length_; }

 private:
  std::span<char> room_;
  std::size_t length_ = 0;
};

template <std::size_t kRows>
void append_request(const Table<RequestFields, kRows> &table, RequestFields &fields, Appender &out) {
  for (const Row<RequestFields> &row : table) {
    if (row.kind == RowKind::kLiteral) {
      out.append(row.literal);
    } else {
      const std::span<char> slot = row.slot(fields);
      out.append({slot.data(), row.width});
    }
  }
}

// Copies the fields that arrived into the record, whose other bytes stay as they are: give it a zeroed one.
template <typename Record>
void read_field(const Row<Record> &row, std::string_view received, Record &record) {
  if (row.slot == nullptr || row.offset >= received.size()) return;
  const std::string_view arrived = received.substr(row.offset, row.width);
  std::memcpy(row.slot(record).data(), arrived.data(), arrived.size());
}

template <typename Record, std::size_t kRows>
void read_fields(const Table<Record, kRows> &table, std::string_view received, Record &record) {
  for (const Row<Record> &row : table) read_field(row, received, record);
}

// ---- The server's side ----

// Whether every character is printable. Text need not be ASCII.
inline bool is_printable(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c >= 0x20 && c != 0x7f; });
}

// Whether a received request is exactly what the table describes: its length, its literals, and printable text.
template <std::size_t kRows>
bool is_well_formed(const Table<RequestFields, kRows> &table, std::string_view received) {
  if (received.size() != wire_size(table)) return false;
  for (const Row<RequestFields> &row : table) {
    const std::string_view part = received.substr(row.offset, row.width);
    if (row.kind == RowKind::kLiteral && part != row.literal) return false;
    if (row.kind == RowKind::kText && !is_printable(part)) return false;
  }
  return true;
}

// A record as bytes: every field in its place, text blank-padded.
template <typename Record, std::size_t kRows>
std::string write_record(const Table<Record, kRows> &table, Record &record) {
  std::string bytes(wire_size(table), ' ');
  for (const Row<Record> &row : table) {
    if (row.kind == RowKind::kLiteral) row.literal.copy(bytes.data() + row.offset, row.width);
    if (row.slot == nullptr) continue;
    const std::span<char> slot = row.slot(record);
    const std::size_t length = row.kind == RowKind::kBytes ? row.width : strnlen(slot.data(), row.width);
    std::memcpy(bytes.data() + row.offset, slot.data(), length);
  }
  return bytes;
}

// The reply as bytes, the length digits counted from the table.
template <typename Record, std::size_t kRows>
std::string write_reply(const Table<Record, kRows> &table, Record &record) {
  std::string reply = write_record(table, record);
  char digits[kLengthDigits + 1];
  std::snprintf(digits, sizeof digits, "%05u", static_cast<unsigned>((reply.size() - kLengthDigits) % 100000));
  std::memcpy(reply.data(), digits, kLengthDigits);
  return reply;
}

}  // namespace vesk::wire
