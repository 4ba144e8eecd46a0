// What a command line that is being typed can go on with.
#pragma once

#include <string>
#include <vector>

#include "vesk/settings.h"

namespace command {

struct Offer {
  std::string text;   // the whole word
  std::string about;  // may be empty
};

// Files and directories the shell knows better.
struct Offers {
  enum class Kind { kWords, kFiles, kDirectories } kind = Kind::kWords;
  std::vector<Offer> words = {};
};

// For the last of the words behind the root's name; the others have been typed already. What they say of the server
// goes into the settings, whose options are the root's, because that server is asked for names.
Offers offers_for(const Command &root, const Settings &settings, const std::vector<std::string> &words);

}  // namespace command
