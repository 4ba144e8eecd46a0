#include "bench/server.h"

#include <fmt/format.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

#include "orn/support.h"

namespace bench {

Server server_in(const std::string &directory, const std::string &certificates) {
  std::ifstream file(directory + "/ready.json");
  const nlohmann::json ready = nlohmann::json::parse(file);
  Server server{certificates, directory, ready.at("host"), ready.at("port"), {}};
  server.paths = spelled_paths(server, 0);
  return server;
}

CertificatePaths spelled_paths(const Server &server, int spelling) {
  const std::string slashes(static_cast<std::size_t>(spelling) + 1, '/');
  CertificatePaths paths{};
  int i = 1;
  for (const char *name : {"authority.pem", "client.pem", "client-key.pem"})
    fmt::format_to_n(paths.caPath[i++], sizeof paths.caPath[0] - 1, "{}{}{}", server.directory, slashes, name);
  return paths;
}

void require_done(int status, const char *what) {
  if (status == 0) return;
  fmt::print(stderr, "bench: {}: {} {}, {}\n", what, StatusName(status), status, StatusText(status));
  std::exit(EXIT_FAILURE);
}

void require(bool condition, const char *what) {
  if (condition) return;
  fmt::print(stderr, "bench: {} failed\n", what);
  std::exit(EXIT_FAILURE);
}

}  // namespace bench
