// Fixed-width text: padding it, and reading numbers from it.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <system_error>

namespace vesk::wire {

// What a C caller gave, a null pointer being empty text.
constexpr const char *text_or_empty(const char *text) {
  return text == nullptr ? "" : text;
}
constexpr std::string_view text_of(const char *text) {
  return text_or_empty(text);
}

// The text in a field of a record, which ends at its first NUL.
template <std::size_t kSize>
std::string_view text_in(const char (&field)[kSize]) {
  return {field, strnlen(field, kSize)};
}

// Fills a field to its full width: left-justified, blank-padded, cut, terminated.
template <std::size_t kSize>
void put_padded(char (&field)[kSize], std::string_view text) {
  const std::size_t kept = std::min(text.size(), kSize - 1);
  std::memcpy(field, text.data(), kept);
  std::memset(field + kept, ' ', kSize - 1 - kept);
  field[kSize - 1] = '\0';
}

template <std::size_t kSize>
void put_padded(char (&field)[kSize], const char *text) {
  put_padded(field, text_of(text));
}

// Copies text to a field that is not padded; what does not fit with a terminator is cut.
template <std::size_t kSize>
void put_text(char (&field)[kSize], const char *text) {
  const std::string_view kept = text_of(text).substr(0, kSize - 1);
  std::memset(field, 0, kSize);
  std::memcpy(field, kept.data(), kept.size());
}

// Copies a field to another of the same width.
template <std::size_t kSize>
void copy_field(const char (&from)[kSize], char (&to)[kSize]) {
  std::memcpy(to, from, kSize);
}

// Decimal digits as C's atoi reads them (leading white space, a sign, digits up to the first other character, else 0),
// saturating where atoi would overflow.
constexpr int to_int(std::string_view text) {
  constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
  const std::size_t start = text.find_first_not_of(kWhiteSpace);
  if (start == std::string_view::npos) return 0;
  text.remove_prefix(start);
  const bool negative = text.front() == '-';
  if (negative || text.front() == '+') text.remove_prefix(1);
  long long value = 0;
  for (const char digit : text) {
    if (digit < '0' || digit > '9') break;
    value = std::min<long long>(value * 10 + (digit - '0'), 1LL + std::numeric_limits<int>::max());
  }
  if (negative) return static_cast<int>(-value);
  return static_cast<int>(std::min<long long>(value, std::numeric_limits<int>::max()));
}

// A number as text, by one of the protocol's formats ("%05u", "%06X"), then as text is put.
template <std::size_t kSize>
void put_number(char (&field)[kSize], const char *format, std::uint32_t number) {
  char digits[16];
  std::snprintf(digits, sizeof digits, format, number);
  put_padded(field, digits);
}

// Hexadecimal digits as C's strtoul reads them, cut to 32 bits.
template <std::size_t kSize>
std::uint32_t to_hex(const char (&field)[kSize]) {
  // Digits and nothing else, which names of a long listing mostly have, are read without its detours.
  std::uint32_t number = 0;
  const char *const end = field + std::min<std::size_t>(kSize - 1, 8);
  const auto [rest, error] = std::from_chars(field, end, number, 16);
  if (error == std::errc() && *rest == '\0') return number;
  return static_cast<std::uint32_t>(std::strtoul(field, nullptr, 16));
}

}  // namespace vesk::wire
