#include "veskd/process_memory.h"

#include <malloc.h>
#include <openssl/crypto.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace veskd {
namespace {

// What OpenSSL's own do for a size of 0 is done here as well.
void *allocate(std::size_t size, const char *, int) {
  return size == 0 ? nullptr : std::malloc(size);
}

void wipe_and_free(void *memory, const char *, int) {
  if (memory == nullptr) return;
  OPENSSL_cleanse(memory, malloc_usable_size(memory));
  std::free(memory);
}

// The system's own would leave what it moved.
void *move(void *memory, std::size_t size, const char *file, int line) {
  void *moved = allocate(size, file, line);
  if (memory == nullptr || (moved == nullptr && size != 0)) return moved;
  if (size != 0) std::memcpy(moved, memory, std::min(size, malloc_usable_size(memory)));
  wipe_and_free(memory, file, line);
  return moved;
}

}  // namespace

void protect_process_memory() {
  // The limit alone does not hold for dumps that the system pipes to a program.
  constexpr rlimit kNone = {0, 0};
  setrlimit(RLIMIT_CORE, &kNone);
  prctl(PR_SET_DUMPABLE, 0);
  wipe_what_openssl_frees();
}

bool wipe_what_openssl_frees() {
  return CRYPTO_set_mem_functions(allocate, move, wipe_and_free) == 1;
}

}  // namespace veskd
