// Watching the server: metrics, health, readiness and a status page, on a port apart from that of the keys.
#pragma once

#include <chrono>
#include <cstdint>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "veskd/log.h"
#include "veskd/sensors.h"
#include "veskd/server.h"
#include "veskd/server_status.h"
#include "veskd/store.h"
#include "veskd/web_server.h"

namespace veskd {

struct WatchOptions {
  std::string address = "127.0.0.1";
  std::uint16_t port = 0;  // 0: a free one

  bool operator==(const WatchOptions &) const = default;
};

std::string watch_url(const std::string &address, std::uint16_t port);

// Whether changes of the store become durable. One is tried at a time, and one a second at most, however often it is
// asked.
class WriteProbe {
 public:
  explicit WriteProbe(Store &store) : store_(store) {}

  // On one thread at a time.
  bool passes();

 private:
  using Clock = std::chrono::steady_clock;

  void begin();

  Store &store_;
  std::shared_future<bool> latest_;
  Clock::time_point begun_;
};

class Watch {
 public:
  // Answers from now on. Throws StartError. The server, the store and the log must outlive it.
  Watch(const WatchOptions &options, const ServerOptions &served, const Server &server, Store &store,
        std::vector<NamedCertificate> certificates, const Log &log);

  std::uint16_t port() const { return web_server_.port(); }

  // The certificates are these now.
  void use(std::vector<NamedCertificate> certificates);

 private:
  WebPage metrics();
  WebPage health();
  WebPage readiness();
  WebPage status();

  std::vector<Check> readiness_checks();
  Check readable();
  std::vector<CertificateStatus> certificate_status();

  const Server &server_;
  Store &store_;
  const Machine machine_;
  const std::string address_;  // where keys are served
  WriteProbe write_probe_;
  std::mutex mutex_;
  std::vector<NamedCertificate> certificates_;
  WebServer web_server_;  // the last member: its thread uses the others
};

}  // namespace veskd
