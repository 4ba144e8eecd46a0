// What a call asks of the allocator.
#pragma once

#include <vector>

#include "bench/callers.h"

namespace bench {

struct CallAllocations {
  Client client;
  Manner manner;
  double in_call;
  double in_call_own;  // what OpenSSL's functions allocate not counted
  double in_exchange;  // between the handshake and the good-bye
  double in_exchange_own;
};

std::vector<CallAllocations> count_allocations(const Server &server);

}  // namespace bench
