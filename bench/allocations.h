// How often this thread has allocated memory.
#pragma once

#include <cstdint>

namespace bench {

struct Allocations {
  std::int64_t all;
  std::int64_t of_openssl;  // those of them that OpenSSL's functions made

  Allocations operator-(const Allocations &before) const { return {all - before.all, of_openssl - before.of_openssl}; }
  Allocations &operator+=(const Allocations &more) {
    all += more.all;
    of_openssl += more.of_openssl;
    return *this;
  }
};

Allocations allocations();

// Tells OpenSSL's from the others from now on. The first thing that a process does.
void count_openssl_allocations();

}  // namespace bench
