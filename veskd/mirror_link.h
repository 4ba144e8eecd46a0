// One exchange with a mirror: this server is its client, over the clients' own framing.
#pragma once

#include <asio/awaitable.hpp>
#include <asio/ssl/context.hpp>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "veskd/secret.h"

namespace veskd {

// No reply: what failed, as text for the log.
class ExchangeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct MirrorAddress {
  std::string host;
  std::uint16_t port;
};

// Connects, proves both sides' certificates and the mirror's name, sends the request and returns the whole reply. All
// of it may take that long.
asio::awaitable<std::string> exchange(asio::ssl::context &tls, const MirrorAddress &address, const WipedText &request,
                                      std::chrono::milliseconds time);

}  // namespace veskd
