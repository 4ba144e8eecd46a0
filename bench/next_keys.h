// How many keys of a template a server hands out in a second, and what that takes the time of its clients.
#pragma once

#include <vector>

#include "bench/calls.h"

namespace bench {

struct NextKeyFigures {
  int clients;
  // A value for each round.
  CallFigures next_key;     // the library's call
  CallFigures answer;       // the library's call that the server answers without a look at its store
  CallFigures bare_answer;  // the bare client's such call
  double answering;         // microseconds of the latter from request to reply, as the server's log says
};

// What parts of a client's time for a key go to what. They add up to 1 in each round.
struct TimeShares {
  Spread tls;    // connection, handshake and records, at both ends
  Spread store;  // finding the key, moving on, opening the value, and waiting until that is on the disk
  Spread own;    // the library and the rest of the server
};
TimeShares shares_of(const NextKeyFigures &figures);

// With 1, 8 and 64 clients, on a template that is made for it.
std::vector<NextKeyFigures> measure_next_keys(const Server &server, int rounds);

}  // namespace bench
