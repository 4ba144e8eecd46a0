// Has the command vesk keep a server under a name, which is its own business.
#pragma once

#include <string>
#include <vector>

namespace veskd {

// Runs the command, whose first word is that of a program beside this one or else on the path. Returns whether it was
// done; the program itself says what was wrong.
bool run_beside(std::vector<std::string> words);

}  // namespace veskd
