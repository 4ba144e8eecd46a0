// Questions before something is destroyed.
#pragma once

#include <string>
#include <string_view>

namespace command {

// Both return when the user agrees and fail with kCancelled when not; where nobody can be asked, because standard input
// or standard error is no terminal, they fail and name --yes. done says what has not happened, as in "nothing was
// deleted".
void ask_yes(std::string_view question, std::string_view done);
void ask_to_type(std::string_view question, const std::string &word, std::string_view done);

}  // namespace command
