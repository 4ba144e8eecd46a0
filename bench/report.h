// What was measured, as a table for people and as JSON for programs (docs/performance.md documents the keys).
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "bench/calls.h"
#include "bench/counts.h"
#include "bench/names.h"
#include "bench/next_keys.h"
#include "bench/store_read.h"
#include "bench/system_calls.h"
#include "bench/trace_cost.h"

namespace bench {

struct Results {
  int rounds;
  NameFigures names;
  std::vector<CallCell> calls;
  CallFigures by_address;    // resumed calls of the library's, to a server whose address is given,
  CallFigures by_host_name;  // and to the same by its name
  std::vector<CallAllocations> allocations;
  std::optional<std::vector<CallSystemCalls>> system_calls;
  TraceCost trace;
  ServerTimes server_times;
  std::vector<NextKeyFigures> next_keys;
};

// A bound that the library is to keep.
struct Goal {
  std::string subject;
  double value;
  double limit;
  bool at_least = false;

  bool is_met() const { return at_least ? value >= limit : value <= limit; }
};

// How a resumed call of the library's compares with the bare client's from files.
Spread part_of_from_files(const Results &results, const CallCell &resumed);

std::vector<Goal> goals_of(const Results &results);

void print_table(const Results &results);
nlohmann::ordered_json to_json(const Results &results);

}  // namespace bench
