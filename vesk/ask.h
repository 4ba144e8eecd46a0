// Questions before something is destroyed.
#pragma once

#include <string>
#include <string_view>

#include "vesk/json.h"
#include "vesk/options.h"
#include "vesk/settings.h"

namespace command {

// What commands can be told that destroy.
struct Consent {
  bool yes = false;
  bool dry_run = false;
};

void add_consent(Command &command, Consent &consent);

// For what is not asked about.
void add_dry_run(Command &command, bool &dry_run);

// Says what would be done. The document is that of what was done, and says that it was not.
void show_dry_run(const Settings &settings, std::string_view sentence, const Members &document);

// Both return when the user agrees, or has agreed beforehand, and fail with kCancelled when not; where nobody can be
// asked, because standard input or standard error is no terminal, they fail and name --yes. done says what has not
// happened, as in "nothing was deleted".
void ask_yes(const Consent &consent, std::string_view question, std::string_view done);
void ask_to_type(const Consent &consent, std::string_view question, const std::string &word, std::string_view done);

}  // namespace command
