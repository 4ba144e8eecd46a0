// What ends a command early: the message for the user and the exit code.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "vesk/exit_code.h"

namespace command {

class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string &message, std::string hint = {}, std::vector<std::string> details = {})
      : std::runtime_error(message), code_(code), hint_(std::move(hint)), details_(std::move(details)) {}

  ExitCode code() const { return code_; }
  const std::string &hint() const { return hint_; }
  const std::vector<std::string> &details() const { return details_; }

 private:
  ExitCode code_;
  std::string hint_;  // what to do about it; may be empty
  std::vector<std::string> details_;
};

// The reader of standard output has gone away: nobody is left to tell.
struct ReaderGone {};

}  // namespace command
