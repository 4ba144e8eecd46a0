// The state of something that a monitor watches: a table with colours on a terminal, a document, and the exit code.
#pragma once

#include <string>
#include <vector>

#include "vesk/output.h"
#include "vesk/settings.h"

namespace command {

enum class Health { kPlain, kGood, kUnknown, kFault };

struct HealthFact {
  const char *label;
  const char *member;
  Json value;
  Health health = Health::kPlain;
  std::string note = {};  // what the table says behind the value
};

void show_health(const Settings &settings, const std::vector<HealthFact> &facts);

// Ends the command with the exit code of a health fault.
[[noreturn]] void report_fault(const std::string &message, const std::string &hint = {});

}  // namespace command
