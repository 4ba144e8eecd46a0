// What the values of fields mean, where that is known.
#pragma once

#include <string>
#include <string_view>

namespace command {

struct Meaning {
  std::string text = {};
  std::string fault = {};  // what is wrong with the value
};

// field is the field's name in its record, value what it holds without its padding.
Meaning meaning_of(std::string_view field, std::string_view value);

// A status of a call, with its name.
std::string status_text(int status);

}  // namespace command
