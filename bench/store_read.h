// How long the server takes to read a key from its store.
#pragma once

#include "bench/clocks.h"
#include "bench/server.h"

namespace bench {

// Microseconds between the arrival of a request and the departure of its reply, as the server's log says.
struct ServerTimes {
  Spread noop;          // a request that touches no store
  Spread retrieve_key;  // one that reads a key

  double store_read() const { return retrieve_key.median - noop.median; }
};

ServerTimes measure_store_reads(const Server &server);

}  // namespace bench
