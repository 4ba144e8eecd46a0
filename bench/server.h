// The server that is measured, from the environment that run.sh sets.
#pragma once

#include <cstdint>
#include <string>

#include "orn/vesk.h"

namespace bench {

struct Server {
  CertificatePaths paths;
  std::string host;
  std::uint16_t port;
};

// VESK_CERTIFICATES, VESK_HOST, VESK_PORT; ends the process when one is missing.
const Server &server();

// Ends the process with a status's name when it is not 0.
void require_done(int status, const char *what);

}  // namespace bench
