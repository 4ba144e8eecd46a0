// Names that there are at this moment: contexts, and what the server keeps.
#pragma once

#include <string>
#include <vector>

#include "vesk/settings.h"

namespace command {

// The names of that kind that begin so; empty for a kind that has none. Of too many to choose from none: what a shell
// takes for all of them decides what it goes on with. Fails as commands do.
std::vector<std::string> live_names(const Settings &settings, Kind kind, const std::string &beginning);

}  // namespace command
