#include "bench/server.h"

#include <cstdio>
#include <cstdlib>

#include "orn/support.h"

namespace bench {

namespace {

const char *from_environment(const char *name) {
  const char *value = std::getenv(name);
  if (value != nullptr) return value;
  std::fprintf(stderr, "bench: %s is not set\n", name);
  std::exit(2);
}

Server read_server() {
  Server server{};
  require_done(SetupCertificates(&server.paths, from_environment("VESK_CERTIFICATES"), "authority.pem", "client.pem",
                                 "client-key.pem"),
               "certificate paths");
  server.host = from_environment("VESK_HOST");
  server.port = static_cast<std::uint16_t>(std::atoi(from_environment("VESK_PORT")));
  return server;
}

}  // namespace

const Server &server() {
  static const Server read = read_server();
  return read;
}

void require_done(int status, const char *what) {
  if (status == 0) return;
  std::fprintf(stderr, "bench: %s: %s %d, %s\n", what, StatusName(status), status, StatusText(status));
  std::exit(1);
}

}  // namespace bench
