// A server that is measured.
#pragma once

#include <cstdint>
#include <string>

#include "orn/vesk.h"

namespace bench {

struct Server {
  std::string certificates;  // the kind of its keys and of its clients'
  std::string directory;     // of the files that its clients need
  std::string host;
  std::uint32_t port;
  CertificatePaths paths;
};

// The server that `veskd dev` runs in a directory.
Server server_in(const std::string &directory, const std::string &certificates);

// The same paths, spelled so that nothing else in the process goes by the same names. Below 64.
CertificatePaths spelled_paths(const Server &server, int spelling);

// Ends the process with a status's name when it is not 0.
void require_done(int status, const char *what);

// Ends the process when a condition does not hold.
void require(bool condition, const char *what);

}  // namespace bench
