#include "vesk/shell_words.h"

#include <cstdlib>

namespace command {
namespace {

constexpr char kBare = 0;

// What may follow a backslash between double quotes, where it otherwise stands for itself.
constexpr std::string_view kSpecialInDouble = "\\\"$`";

// What needs no backslash in a word without quotes. Bytes above ASCII are left as they are: they are parts of letters.
bool is_plain(char character) {
  constexpr std::string_view kPlain = "%+,-./:=@_";
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x80 || (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
         kPlain.find(character) != kPlain.npos;
}

// Reads a word; returns the quote that is open at its end.
char read_word(std::string_view word, std::string &meaning) {
  char quote = kBare;
  for (std::size_t i = 0; i < word.size(); ++i) {
    const char character = word[i];
    const bool has_next = i + 1 < word.size();
    const bool escapes =
        character == '\\' && has_next &&
        (quote == kBare || (quote == '"' && kSpecialInDouble.find(word[i + 1]) != kSpecialInDouble.npos));
    if (escapes) {
      meaning += word[++i];
    } else if (quote == kBare && (character == '\'' || character == '"')) {
      quote = character;
    } else if (quote != kBare && character == quote) {
      quote = kBare;
    } else if (character != '\\' || quote != kBare) {
      meaning += character;
    }
  }
  return quote;
}

}  // namespace

std::string unquoted(std::string_view word) {
  std::string meaning;
  const char *home = std::getenv("HOME");
  if (word.starts_with("~/") && home) {
    meaning = home;
    word.remove_prefix(1);
  }
  read_word(word, meaning);
  return meaning;
}

std::string quoted_as(std::string_view typed, std::string_view text) {
  std::string ignored;
  const char quote = read_word(typed, ignored);
  std::string quoted;
  for (const char character : text) {
    if (quote == '\'' && character == '\'') {
      quoted += "'\\'";
    } else if (quote == '"' && kSpecialInDouble.find(character) != kSpecialInDouble.npos) {
      quoted += '\\';
    } else if (quote == kBare && !is_plain(character)) {
      quoted += '\\';
    }
    quoted += character;
  }
  return quoted;
}

}  // namespace command
