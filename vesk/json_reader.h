// JSON that comes from outside.
#pragma once

#include <string_view>

#include "vesk/json.h"

namespace command {

// Fails on what is no JSON.
Json parse_json(std::string_view text);

}  // namespace command
