// From a status to what the user reads: what failed, why, and what to do.
#pragma once

#include <string_view>

#include "vesk/failure.h"

namespace command {

class Connection;

// status is not 0; subject is what the call was about, empty for the server itself.
Failure explain(int status, const Connection &connection, std::string_view subject);

}  // namespace command
