// Words as they stand in a line of a shell, of which the last may be unfinished.
#pragma once

#include <string>
#include <string_view>

namespace command {

// What a word means to the shell: without its quotes and backslashes, a leading ~/ for the home directory. Nothing is
// expanded or run.
std::string unquoted(std::string_view word);

// Where what stands behind the last quote of a word begins, whether that quote opens or closes; 0 when it has none.
std::size_t behind_last_quote(std::string_view word);

// A text for the place behind what has been typed of a word, in the quotes that are open there, which stay open.
std::string quoted_as(std::string_view typed, std::string_view text);

}  // namespace command
