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

struct Reading {
  std::string meaning;
  char quote = kBare;  // the one that is open at the end
  std::size_t behind_last_quote = 0;
};

Reading read_word(std::string_view word) {
  Reading reading;
  char &quote = reading.quote;
  for (std::size_t i = 0; i < word.size(); ++i) {
    const char character = word[i];
    const bool opens = quote == kBare && (character == '\'' || character == '"');
    const bool closes = quote != kBare && character == quote;
    const bool can_escape = character == '\\' && quote != '\'' && i + 1 < word.size();
    if (opens || closes) {
      quote = opens ? character : kBare;
      reading.behind_last_quote = i + 1;
    } else if (can_escape && (quote == kBare || kSpecialInDouble.find(word[i + 1]) != kSpecialInDouble.npos)) {
      reading.meaning += word[++i];
    } else if (character != '\\' || quote != kBare) {
      reading.meaning += character;
    }
  }
  return reading;
}

}  // namespace

std::string unquoted(std::string_view word) {
  const char *home = std::getenv("HOME");
  if (word.starts_with("~/") && home) return home + read_word(word.substr(1)).meaning;
  return read_word(word).meaning;
}

std::size_t behind_last_quote(std::string_view word) {
  return read_word(word).behind_last_quote;
}

std::string quoted_as(std::string_view typed, std::string_view text) {
  const char quote = read_word(typed).quote;
  std::string quoted;
  for (const char character : text) {
    const bool is_special = quote == kBare ? !is_plain(character)
                                           : quote == '"' && kSpecialInDouble.find(character) != kSpecialInDouble.npos;
    if (is_special) quoted += '\\';
    // Between single quotes nothing can be escaped: they are left for a moment.
    if (quote == '\'' && character == quote) quoted += "'\\'";
    quoted += character;
  }
  return quoted;
}

}  // namespace command
