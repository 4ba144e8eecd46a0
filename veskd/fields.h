// What the handlers read from requests and write to replies.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "orn/vesk/wire/text.h"

namespace veskd {

constexpr std::string_view without_trailing_blanks(std::string_view text) {
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

// The text of a blank-padded field: blanks at its end are not significant.
template <std::size_t kSize>
std::string trimmed(const char (&field)[kSize]) {
  return std::string(without_trailing_blanks(vesk::wire::text_in(field)));
}

// Whether the text can name something: printable ASCII, and at least one character.
inline bool is_name(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c <= 0x7e; });
}

inline bool is_flag(std::string_view text) {
  return text == "Y" || text == "N";
}

inline bool is_all_digits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace veskd
