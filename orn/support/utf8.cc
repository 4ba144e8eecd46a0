#include "orn/support/utf8.h"

#include <array>
#include <cstdint>

namespace orn {
namespace {

// How many bytes the character at the front of text has, or 0 if it is none. Overlong forms, surrogates and what lies
// above U+10FFFF are none.
std::size_t character_bytes(std::string_view text, std::uint32_t &character) {
  constexpr std::array<std::uint32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
  const auto lead = static_cast<unsigned char>(text.front());
  std::size_t num_bytes = lead < 0x80 ? 1 : lead < 0xc0 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf8 ? 4 : 0;
  if (num_bytes == 0 || num_bytes > text.size()) return 0;
  character = num_bytes == 1 ? lead : lead & (0x7fU >> num_bytes);
  for (std::size_t i = 1; i < num_bytes; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xc0) != 0x80) return 0;
    character = character << 6 | (next & 0x3f);
  }
  bool is_surrogate = character >= 0xd800 && character <= 0xdfff;
  return character < kLeast[num_bytes] || character > 0x10ffff || is_surrogate ? 0 : num_bytes;
}

bool is_harmless(std::uint32_t character) {
  if (character < 0x20 || (character >= 0x7f && character < 0xa0)) return false;
  // Marks and overrides of the writing direction, and line and paragraph separators.
  bool is_direction = character == 0x61c || character == 0x200e || character == 0x200f ||
                      (character >= 0x202a && character <= 0x202e) || (character >= 0x2066 && character <= 0x2069);
  return !is_direction && character != 0x2028 && character != 0x2029;
}

std::string as_bytes(std::string_view bytes) {
  constexpr const char *kDigits = "0123456789ABCDEF";
  std::string text;
  for (unsigned char byte : bytes) {
    text += '\\';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace

std::string escaped_utf8(std::string_view text, std::size_t most_bytes) {
  std::string escaped;
  while (!text.empty()) {
    std::uint32_t character = 0;
    std::size_t num_bytes = character_bytes(text, character);
    bool is_plain = num_bytes > 0 && is_harmless(character);
    std::string_view raw = text.substr(0, num_bytes > 0 ? num_bytes : 1);
    std::string piece = is_plain ? std::string(raw) : as_bytes(raw);
    if (escaped.size() + piece.size() > most_bytes) break;
    escaped += piece;
    text.remove_prefix(raw.size());
  }
  return escaped;
}

}  // namespace orn
