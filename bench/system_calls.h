// What a call asks of the system, as strace counts it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "bench/callers.h"

namespace bench {

struct CallSystemCalls {
  Client client;
  Manner manner;
  double in_call;
  std::map<std::string, double> by_name;
};

// Nothing where strace is not there or may not trace. work: a directory for its output.
std::optional<std::vector<CallSystemCalls>> count_system_calls(const Server &server, const std::string &work);

}  // namespace bench
