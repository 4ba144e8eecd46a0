// What the user gives: a file that may hold secrets, or standard input.
#pragma once

#include <string>

#include "veskd/secret.h"

namespace command {

// As messages have it: "standard input", or the path.
std::string name_of_input(const std::string &path);

// All of the file, "-" being standard input. Refuses one that cannot be read or has more bytes than that; what names it
// in messages, as in "certificate".
veskd::WipedText read_input(const std::string &path, std::size_t max_bytes, const char *what);

// The same for what is no secret and may be long.
std::string read_text(const std::string &path, std::size_t max_bytes, const char *what);

}  // namespace command
