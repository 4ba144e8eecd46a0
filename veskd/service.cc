#include "veskd/service.h"

#include <fmt/format.h>
#include <sys/resource.h>
#include <systemd/sd-daemon.h>
#include <time.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "veskd/certificates.h"
#include "veskd/master_key_rotation.h"
#include "veskd/mirror_records.h"
#include "veskd/replicator.h"
#include "veskd/store.h"

namespace veskd {
namespace {

// What the process opens besides its connections: the database's files for each reader and list, logs, mirrors.
constexpr rlim_t kOtherDescriptors = 256;

// To the service manager, if there is one.
void notify(const std::string &state) {
  ::sd_notify(0, state.c_str());
}

void notify_reloading() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  notify(fmt::format("RELOADING=1\nMONOTONIC_USEC={}", now.tv_sec * 1000000LL + now.tv_nsec / 1000));
}

// A login allows fewer descriptors than a server may need; how many it may have is the hard limit.
void allow_connections(std::size_t max_connections, const Log &log) {
  const rlim_t wanted = max_connections + kOtherDescriptors;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= wanted) return;
  limit.rlim_cur = std::min(wanted, limit.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_cur < wanted)
    log.warning(fmt::format("{} connections need {} descriptors, but the process may have {}: raise its limit",
                            max_connections, wanted, limit.rlim_cur));
}

std::vector<NamedCertificate> certificates_of(const ServiceSettings &settings) {
  std::vector<NamedCertificate> certificates;
  const TlsFiles &files = settings.server.tls;
  certificates.push_back({"server", true, read_certificate(files.certificate_chain)});
  certificates.push_back({"client authority", true, read_certificate(files.authority)});
  if (settings.mirror_tls)
    certificates.push_back({"mirror", false, read_certificate(settings.mirror_tls->certificate_chain)});
  return certificates;
}

class Service {
 public:
  Service(const ServiceSettings &settings, Log &log, const ReadSettings &read_settings)
      : settings_(settings),
        log_(log),
        read_settings_(read_settings),
        ready_file_(settings.ready_file),
        store_(settings.store, *open_master_key({settings.store, settings.master_key}), log),
        server_(settings.server, store_, log) {
    if (settings.mirror_tls) {
      replicator_ = std::make_unique<Replicator>(*settings.mirror_tls, store_, log);
    } else {
      warn_of_mirrors();
    }
    if (settings.watch)
      watch_ =
          std::make_unique<Watch>(*settings.watch, settings.server, server_, store_, certificates_of(settings), log);
    server_.on_signals({SIGINT, SIGTERM}, [this] { stop(); });
    server_.on_signals({SIGHUP}, [this] { reload(); });
    prepare(settings.server);
  }

  void run(const Announce &announce) {
    const Ports ports{server_.port(), watch_ ? std::optional(watch_->port()) : std::nullopt};
    ready_file_.write(settings_.server.address, ports, settings_.server.machine.store_directory);
    announce(ports);
    notify("READY=1");
    server_.run();
    log_.info("stopped");
  }

 private:
  void stop() {
    notify("STOPPING=1");
    server_.stop();
  }

  void reload() {
    notify_reloading();
    try {
      use(read_settings_());
      log_.info("read the settings and certificates again");
    } catch (const std::exception &error) {
      log_.error(fmt::format("the settings stay as they were: {}", error.what()));
    }
    notify("READY=1");
  }

  // What can fail comes first, so that all is used or nothing.
  void use(const ServiceSettings &settings) {
    std::shared_ptr<Terms> terms = make_terms(settings.server);
    std::vector<NamedCertificate> certificates = certificates_of(settings);
    if (replicator_ && settings.mirror_tls) replicator_->use(*settings.mirror_tls);
    server_.use(std::move(terms));
    if (watch_) watch_->use(std::move(certificates));
    log_.use(settings.log);
    prepare(settings.server);
    tell_what_needs_a_restart(settings);
  }

  void prepare(const ServerOptions &options) const {
    allow_connections(options.limits.max_connections, log_);
    if (options.roles.are_none()) log_.warning("no client has a role: every request will be refused");
  }

  void warn_of_mirrors() {
    Store::Reader reader(store_);
    if (!list_mirrors(*reader).empty())
      log_.warning("there are mirrors and no mirror certificate: what is for them waits");
  }

  void tell_what_needs_a_restart(const ServiceSettings &settings) const {
    const auto tell = [&](bool differs, std::string_view what) {
      if (differs) log_.warning(fmt::format("{} is another now: restart the server to use it", what));
    };
    const ServerOptions &before = settings_.server;
    const ServerOptions &now = settings.server;
    tell(now.address != before.address || now.port != before.port, "the address to listen on");
    tell(settings.store != settings_.store, "the store");
    tell(settings.master_key != settings_.master_key, "the master key");
    tell(settings.mirror_tls.has_value() != settings_.mirror_tls.has_value(), "whether there is a mirror certificate");
    tell(settings.watch != settings_.watch, "the address to watch at");
    tell(settings.ready_file != settings_.ready_file, "the ready file");
    tell(now.machine.sensor_file != before.machine.sensor_file, "the sensor file");
    tell(now.limits.num_threads != before.limits.num_threads, "the number of threads");
  }

  const ServiceSettings settings_;  // of the start
  Log &log_;
  const ReadSettings &read_settings_;
  const ReadyFile ready_file_;
  Store store_;
  Server server_;
  std::unique_ptr<Replicator> replicator_;
  std::unique_ptr<Watch> watch_;
};

}  // namespace

void run_service(const ServiceSettings &settings, Log &log, const Announce &announce,
                 const ReadSettings &read_settings) {
  // A reader of the log or of standard output that goes away must not take the server with it.
  std::signal(SIGPIPE, SIG_IGN);
  Service(settings, log, read_settings).run(announce);
}

}  // namespace veskd
