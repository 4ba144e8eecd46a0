// What the states mean that the server tells of mirrors and of its machine.
#pragma once

#include <string_view>

#include "vesk/output.h"

namespace command {

struct State {
  const char *word;
  Health health;
};

State mirror_state(char state);
State mirror_data(char data);  // whether the mirror holds the same keys

// A state field of the machine, without its padding.
State machine_state(std::string_view field);

}  // namespace command
