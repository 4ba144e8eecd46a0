#include "bench/store_read.h"

#include <memory>

#include "bench/callers.h"
#include "bench/server_log.h"

namespace bench {

namespace {

constexpr int kCalls = 300;

}  // namespace

ServerTimes measure_store_reads(const Server &server) {
  const std::unique_ptr<Callers> made = callers(Client::kLibrary, Manner::kResumed, server);
  const std::unique_ptr<Caller> caller = made->make(0);
  const ServerLog log(server);
  for (int i = 0; i < kCalls; ++i) {
    require_done(qAdminNoop(&server.paths, server.host.c_str(), server.port), "qAdminNoop");
    caller->call();
  }
  return {spread_of(log.durations_of("AdminNoop")), spread_of(log.durations_of("RetrieveKey"))};
}

}  // namespace bench
