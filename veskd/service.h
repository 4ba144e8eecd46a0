// A server as a process: what it serves, for whom, and how it answers signals and the service manager.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "veskd/log.h"
#include "veskd/ready_file.h"
#include "veskd/server.h"
#include "veskd/store_address.h"
#include "veskd/tls.h"
#include "veskd/watch.h"

namespace veskd {

struct ServiceSettings {
  ServerOptions server;
  StoreAddress store;
  std::filesystem::path master_key;
  std::optional<TlsFiles> mirror_tls;  // none: changes wait for mirrors, and none is sent
  std::optional<WatchOptions> watch;   // none: nobody can watch the server
  std::filesystem::path ready_file;    // none when empty
  LogOptions log;
};

// Called once the server listens, with its ports.
using Announce = std::function<void(const Ports &ports)>;

// The settings as they are now; throws StartError.
using ReadSettings = std::function<ServiceSettings()>;

// Serves until SIGINT or SIGTERM. SIGHUP reads the settings again: new connections get new ones, those that run keep
// theirs; settings that cannot be used change nothing. Throws StartError.
void run_service(const ServiceSettings &settings, Log &log, const Announce &announce,
                 const ReadSettings &read_settings);

}  // namespace veskd
