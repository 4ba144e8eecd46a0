// What calls cost in each manner, with each kind of certificate and number of threads.
#pragma once

#include <string>
#include <vector>

#include "bench/callers.h"
#include "bench/clocks.h"

namespace bench {

// Of one client, a value for each round.
struct CallFigures {
  std::vector<double> microseconds;  // of the client's processor time for one call
  std::vector<double> per_second;    // calls
};

// One manner of calling.
struct CallCell {
  const Server *server;
  Manner manner;
  int threads;
  CallFigures library;
  CallFigures bare;
};

// Has several make calls by turns, in short slices of time so that what disturbs the machine meets all, and adds what a
// call has cost each.
struct Side {
  const Callers &callers;
  CallFigures &figures;
};
void measure_side_by_side(const std::vector<Side> &sides, int threads);

// All cells, round by round.
std::vector<CallCell> measure_all_calls(const std::vector<Server> &servers, int rounds);

// The cell of the same server and threads in another manner.
const CallCell &cell_in(const std::vector<CallCell> &cells, const CallCell &cell, Manner manner);

}  // namespace bench
