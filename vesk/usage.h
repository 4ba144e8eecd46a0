// What is wrong with a command line, and what was probably meant.
#pragma once

#include "vesk/failure.h"
#include "vesk/options.h"

namespace command {

// The command that tells how a command is used.
std::string help_hint(const CommandPath &path);

// There is no command of that name in the group, or no such option of the command.
Failure unknown_command(const CommandPath &group, const std::string &given);
Failure unknown_option(const CommandPath &path, const std::string &given);

// Refuses values that are none of their options' choices.
void check_choices(const CommandPath &path);

}  // namespace command
