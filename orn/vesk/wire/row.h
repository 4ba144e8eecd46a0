// The protocol as data: a record on the wire is a table of rows, each with its offset, its width and the field that it
// carries. Tables are written in the protocol's order and checked by the compiler: offsets follow widths, widths fit
// their fields, and a request's rows add up to the length that its first five digits declare.
//
// The library writes requests and reads replies with these tables; the server reads requests and writes replies.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "orn/skeys.h"
#include "orn/vesk/wire/transactions.h"

namespace vesk::wire {

enum class RowKind {
  kLiteral,  // fixed text
  kText,     // a text field, NUL-terminated in the record, without terminator on the wire
  kBytes,    // binary: copied as it is, never traced
  kSkipped,  // on the wire, in no record
};

template <typename Record>
struct Row {
  std::size_t offset;
  std::size_t width;
  RowKind kind;
  std::string_view literal;
  std::span<char> (*slot)(Record &);
  const char *label;      // opens the field's trace; none when it is not traced
  std::string_view name;  // the field's, as its record declares it; none for rows that name no field
};

template <typename Record, std::size_t kRows>
using Table = std::array<Row<Record>, kRows>;

// Rows that name no field fit every record's table.
struct PlainRow {
  std::size_t offset;
  std::size_t width;
  RowKind kind;
  std::string_view literal;

  template <typename Record>
  constexpr operator Row<Record>() const {
    return {offset, width, kind, literal, nullptr, nullptr, {}};
  }
};

constexpr PlainRow lit(std::size_t offset, std::string_view text) {
  return {offset, text.size(), RowKind::kLiteral, text};
}

constexpr PlainRow skipped(std::size_t offset, std::size_t width) {
  return {offset, width, RowKind::kSkipped, {}};
}

namespace internal {

template <typename>
struct MemberOf;
template <typename Record, std::size_t kSize>
struct MemberOf<char (Record::*)[kSize]> {
  using Type = Record;
  static constexpr std::size_t kBytes = kSize;
};
template <typename Record, std::size_t kCount, std::size_t kSize>
struct MemberOf<char (Record::*)[kCount][kSize]> {
  using Type = Record;
  static constexpr std::size_t kBytes = kSize;
};

// The compiler spells a member in the signature, behind its record's name and before what else it tells.
template <auto kMember>
constexpr std::string_view spelled_member() {
  std::string_view name = __PRETTY_FUNCTION__;
  name.remove_prefix(name.find("kMember = "));
  name = name.substr(0, name.find_first_of(";]"));
  return name.substr(name.rfind(':') + 1);
}

// The name alone: programs need not hold the signatures.
template <auto kMember>
inline constexpr auto kMemberName = [] {
  std::array<char, spelled_member<kMember>().size()> name{};
  spelled_member<kMember>().copy(name.data(), name.size());
  return name;
}();

}  // namespace internal

// The name of a record's field, as in "caKeyName".
template <auto kMember>
constexpr std::string_view member_name() {
  return {internal::kMemberName<kMember>.data(), internal::kMemberName<kMember>.size()};
}

template <auto kMember>
constexpr auto field(std::size_t offset, std::size_t width, const char *label = nullptr) {
  using Member = internal::MemberOf<decltype(kMember)>;
  using Record = typename Member::Type;
  if (width >= Member::kBytes) throw "the field has no room for this width and a terminator";
  return Row<Record>{
      offset,
      width,
      RowKind::kText,
      {},
      [](Record &record) { return std::span<char>(record.*kMember); },
      label,
      member_name<kMember>()};
}

// A field of a record's array of fields, as in the sixteen metadata fields, which has a name of its own.
template <auto kMember, std::size_t kIndex>
constexpr auto element(std::size_t offset, std::size_t width, std::string_view name, const char *label = nullptr) {
  using Member = internal::MemberOf<decltype(kMember)>;
  using Record = typename Member::Type;
  if (width >= Member::kBytes) throw "the field has no room for this width and a terminator";
  return Row<Record>{
      offset,
      width,
      RowKind::kText,
      {},
      [](Record &record) { return std::span<char>((record.*kMember)[kIndex]); },
      label,
      name};
}

template <auto kMember>
constexpr auto bytes(std::size_t offset, std::size_t width) {
  using Member = internal::MemberOf<decltype(kMember)>;
  using Record = typename Member::Type;
  if (width > Member::kBytes) throw "the field has no room for this width";
  return Row<Record>{
      offset,
      width,
      RowKind::kBytes,
      {},
      [](Record &record) { return std::span<char>(record.*kMember); },
      nullptr,
      member_name<kMember>()};
}

inline constexpr std::size_t kLengthDigits = 5;

template <typename Record, std::size_t kRows>
constexpr std::size_t wire_size(const Table<Record, kRows> &table) {
  return table.back().offset + table.back().width;
}

// Throwing is what makes a wrong table a compile error.
template <typename Record, std::size_t kRows>
constexpr Table<Record, kRows> checked(const Table<Record, kRows> &table) {
  for (std::size_t i = 1; i < kRows; ++i) {
    if (table[i].offset != table[i - 1].offset + table[i - 1].width)
      throw "a row does not begin where the last one ends";
  }
  return table;
}

// A record whose rows are all its own.
template <typename Record, typename... Rows>
constexpr auto record(Rows... rows) {
  return checked(Table<Record, sizeof...(rows)>{Row<Record>(rows)...});
}

// Tables one behind another.
template <typename Record, std::size_t... kRows>
constexpr auto joined(const Table<Record, kRows> &...tables) {
  Table<Record, (kRows + ...)> all{};
  auto *next = all.begin();
  ((next = std::copy(tables.begin(), tables.end(), next)), ...);
  return checked(all);
}

// A table but its last row.
template <typename Record, std::size_t kRows>
consteval auto without_last(const Table<Record, kRows> &table) {
  Table<Record, kRows - 1> rest{};
  std::copy_n(table.begin(), kRows - 1, rest.begin());
  return rest;
}

// The longest request text: a metadata query with all its criteria.
inline constexpr std::size_t kMaxRequestBytes = 1214;

// A request: the transaction's length digits and identifier, then its own rows.
template <std::size_t kRows>
constexpr auto request(const Transaction &transaction, const Table<RequestFields, kRows> &rows) {
  const auto header = record<RequestFields>(lit(0, transaction.length), field<&RequestFields::caTranId>(5, 4));
  const auto table = joined(header, rows);
  if (wire_size(table) != kLengthDigits + transaction.declared_length()) throw "the rows do not add up to the length";
  if (wire_size(table) > kMaxRequestBytes) throw "the request is too long";
  return table;
}

template <typename... Rows>
constexpr auto request(const Transaction &transaction, Rows... rows) {
  return request(transaction, record<RequestFields>(rows...));
}

// A reply, or the page of a list: the common header, then its own rows.
template <typename Record, typename... Rows>
constexpr auto reply(Rows... rows) {
  return record<Record>(
      field<&Record::caTranLen>(0, 5, "Tran Len"),
      field<&Record::caTranId>(5, 4, "Tran Id"),
      field<&Record::caReturnCode>(9, 4, "Return Code"),
      rows...);
}

}  // namespace vesk::wire
