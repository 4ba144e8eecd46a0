// How a failure is told.
#pragma once

#include <string>

#include "vesk/failure.h"

namespace command {

// Writes it to standard error, behind the words of the command; returns the exit code.
int report(const std::string &words, const Failure &failure);

}  // namespace command
