#include "bench/allocations.h"

#include <openssl/crypto.h>

#include <cstddef>
#include <cstdlib>

#include "bench/server.h"

namespace {

thread_local constinit bench::Allocations counted{};

}  // namespace

// In place of the C library's own, for everything in the process. What they allocate is what the C library allocates,
// and is freed there.
extern "C" {

void *__libc_malloc(std::size_t bytes);
void *__libc_calloc(std::size_t count, std::size_t bytes);
void *__libc_realloc(void *memory, std::size_t bytes);

void *malloc(std::size_t bytes) noexcept {
  ++counted.all;
  return __libc_malloc(bytes);
}

void *calloc(std::size_t count, std::size_t bytes) noexcept {
  ++counted.all;
  return __libc_calloc(count, bytes);
}

void *realloc(void *memory, std::size_t bytes) noexcept {
  ++counted.all;
  return __libc_realloc(memory, bytes);
}

}  // extern "C"

namespace bench {

Allocations allocations() {
  return counted;
}

void count_openssl_allocations() {
  const auto allocate = [](std::size_t bytes, const char *, int) {
    ++counted.of_openssl;
    return std::malloc(bytes);
  };
  const auto reallocate = [](void *memory, std::size_t bytes, const char *, int) {
    ++counted.of_openssl;
    return std::realloc(memory, bytes);
  };
  const auto release = [](void *memory, const char *, int) { std::free(memory); };
  require(CRYPTO_set_mem_functions(allocate, reallocate, release) == 1, "counting OpenSSL's allocations");
}

}  // namespace bench
