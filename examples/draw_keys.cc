// Draws keys from a template in several threads and tells the name of each. No key is drawn twice, whoever else draws.
//
// Build: c++ -std=c++20 draw_keys.cc -o draw_keys $(pkg-config --cflags --libs vesk ornsupport libcrypto)
// Run:   ./draw_keys 127.0.0.1 40123 /tmp/keys tape-library-01 20
#include <openssl/crypto.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"

namespace {

struct Work {
  CertificatePaths paths;
  const char *host;
  std::uint32_t port;
  const char *constant;
  std::atomic<long> left;
  std::atomic<int> failure = 0;
};

// Draws until the work is done or a call has failed, here or in another thread. One status is enough to tell why.
void draw(Work &work) {
  while (work.failure == 0 && work.left.fetch_sub(1) > 0) {
    char name[41];
    unsigned char key[32];
    std::uint32_t increment = 0;
    const int status = qGetNextKey(&work.paths, work.host, work.port, work.constant, name, key, &increment);
    if (status == 0) {
      // Here the key would encrypt a tape.
      std::printf("%06X %s\n", increment, name);
    } else {
      int none = 0;
      work.failure.compare_exchange_strong(none, status);
    }
    OPENSSL_cleanse(key, sizeof key);
  }
}

}  // namespace

int main(int argc, char *argv[]) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: %s HOST PORT CERTIFICATES CONSTANT COUNT\n", argv[0]);
    return 2;
  }
  Work work{{},
            argv[1],
            static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 10)),
            argv[4],
            std::strtol(argv[5], nullptr, 10)};
  int status = SetupCertificates(&work.paths, argv[3], "authority.pem", "client.pem", "client-key.pem");
  if (status == 0) {
    // A call waits for the server most of the time, so that there may be more threads than processors.
    std::vector<std::jthread> threads;
    for (long i = 0; i < std::min(8L, work.left.load()); i++) threads.emplace_back(draw, std::ref(work));
    threads.clear();
    status = work.failure;
  }
  if (status != 0) {
    std::fprintf(stderr, "%s: %s (%s)\n", argv[4], StatusText(status), StatusName(status));
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
