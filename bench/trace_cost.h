// What the trace costs a call while it is off.
#pragma once

#include "bench/server.h"

namespace bench {

struct TraceCost {
  int lines;                // trace calls in a resumed call
  int dumps;                // those of them that dump bytes
  double line_nanoseconds;  // of one that is off
  double dump_nanoseconds;

  double microseconds() const { return 1e-3 * (lines * line_nanoseconds + dumps * dump_nanoseconds); }
};

TraceCost measure_trace(const Server &server);

}  // namespace bench
