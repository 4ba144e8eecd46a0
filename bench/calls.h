// What calls cost in each manner, with each kind of certificate and number of threads.
#pragma once

#include <string>
#include <vector>

#include "bench/callers.h"
#include "bench/clocks.h"

namespace bench {

// A round of one client.
struct CallFigures {
  std::vector<double> microseconds;  // of the client's processor time for one call
  std::vector<double> per_second;    // calls
};

// One manner of calling. The values of a round were measured one right after the other.
struct CallCell {
  const Server *server;
  Manner manner;
  int threads;
  CallFigures library;
  CallFigures bare;

  CallFigures &of(Client client) { return client == Client::kLibrary ? library : bare; }
};

// Makes calls for a fifth of a second and adds what they cost.
void measure_calls(Client client, Manner manner, const Server &server, int threads, CallFigures &figures);

// All cells, round by round, so that what disturbs the machine meets all of them.
std::vector<CallCell> measure_all_calls(const std::vector<Server> &servers, int rounds);

// The cell of the same server and threads in another manner.
const CallCell &cell_in(const std::vector<CallCell> &cells, const CallCell &cell, Manner manner);

}  // namespace bench
