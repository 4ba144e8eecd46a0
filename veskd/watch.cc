#include "veskd/watch.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <exception>
#include <functional>
#include <memory>
#include <utility>

#include "veskd/appliance.h"
#include "veskd/metrics.h"
#include "veskd/status_page.h"

namespace veskd {
namespace {

using namespace std::chrono_literals;

constexpr auto kWritePatience = 2s;
constexpr auto kWritePause = 1s;

std::string time_text() {
  return fmt::format("{:%Y-%m-%d %H:%M:%S} UTC",
                     fmt::gmtime(std::chrono::system_clock::to_time_t(std::chrono::system_clock::now())));
}

// What the action throws, empty when it does not.
std::string fault_of(const std::function<void()> &action) {
  try {
    action();
    return {};
  } catch (const std::exception &error) {
    return error.what();
  }
}

// One line for each check; what asks looks at the status alone.
WebPage page_of(const std::vector<Check> &checks) {
  WebPage page;
  page.status = all_hold(checks) ? 200 : 503;
  for (const Check &check : checks)
    page.content += fmt::format("{}: {}\n", check.name, check.holds() ? "in order" : check.fault);
  return page;
}

}  // namespace

std::string watch_url(const std::string &address, std::uint16_t port) {
  const bool is_v6 = address.find(':') != std::string::npos;
  return fmt::format(fmt::runtime(is_v6 ? "http://[{}]:{}/" : "http://{}:{}/"), address, port);
}

bool WriteProbe::passes() {
  const bool is_over = !latest_.valid() || latest_.wait_for(0s) == std::future_status::ready;
  if (is_over && (!latest_.valid() || Clock::now() - begun_ > kWritePause)) begin();
  return latest_.wait_for(kWritePatience) == std::future_status::ready && latest_.get();
}

// A change that changes nothing, and is written all the same.
void WriteProbe::begin() {
  const auto outcome = std::make_shared<std::promise<bool>>();
  latest_ = outcome->get_future();
  begun_ = Clock::now();
  store_.change({.apply =
                     [](StoreConnection &store) {
                       Query(store.database, "UPDATE replication SET origin = origin").run();
                       return true;
                     },
                 .done = [outcome](ChangeOutcome known) { outcome->set_value(known == ChangeOutcome::kDone); }});
}

Watch::Watch(const WatchOptions &options, const ServerOptions &served, const Server &server, Store &store,
             std::vector<NamedCertificate> certificates, const Log &log)
    : server_(server),
      store_(store),
      machine_(served.machine),
      address_(fmt::format("{} port {}", served.address, server.port())),
      write_probe_(store),
      certificates_(std::move(certificates)),
      web_server_(options.address, options.port,
                  {{"/", [this] { return status(); }},
                   {"/metrics", [this] { return metrics(); }},
                   {"/healthz", [this] { return health(); }},
                   {"/readyz", [this] { return readiness(); }}},
                  log) {}

void Watch::use(std::vector<NamedCertificate> certificates) {
  const std::lock_guard lock(mutex_);
  certificates_ = std::move(certificates);
}

// They are told as far as they go when the store cannot be read.
WebPage Watch::metrics() {
  std::vector<MirrorStatus> mirrors;
  const std::string fault = fault_of([&] {
    Store::Reader reader(store_);
    mirrors = mirrors_in(*reader);
  });
  const Store::Load load = store_.load();
  std::vector<Measurement> measurements = {{kWaitingChanges, static_cast<double>(load.num_waiting_changes), ""},
                                           {kLists, static_cast<double>(load.num_lists), ""},
                                           {kStoreReadable, fault.empty() ? 1.0 : 0.0, ""}};
  for (const auto &[mirror, num_waiting] : mirrors) {
    measurements.push_back({kMirrorQueue, static_cast<double>(num_waiting), mirror.name});
    measurements.push_back({kMirrorUp, mirror.status == kUp ? 1.0 : 0.0, mirror.name});
  }
  for (const CertificateStatus &certificate : certificate_status())
    measurements.push_back({kCertificateDaysLeft, certificate.days_left, certificate.name});
  WebPage page;
  page.content_type = "text/plain; version=0.0.4; charset=utf-8";
  page.content = server_.metrics().text(measurements);
  return page;
}

WebPage Watch::health() {
  return page_of({readable()});
}

WebPage Watch::readiness() {
  return page_of(readiness_checks());
}

WebPage Watch::status() {
  ServerStatus status;
  status.time = time_text();
  status.address = address_;
  status.checks = readiness_checks();
  status.certificates = certificate_status();
  status.load = store_.load();
  // The checks tell when it cannot be read.
  fault_of([&] {
    Store::Reader reader(store_);
    status.store = status_of(*reader);
    status.readings = read_appliance(machine_, *reader);
  });
  return {.content_type = "text/html; charset=utf-8",
          .content = status_page(status),
          .security_policy = status_page_policy()};
}

std::vector<Check> Watch::readiness_checks() {
  std::vector<Check> checks;
  checks.push_back({"accepts connections", server_.is_accepting() ? "" : "the server is stopping"});
  checks.push_back(readable());
  checks.push_back({"store can be changed", write_probe_.passes() ? "" : "a change did not become durable in time"});
  const std::lock_guard lock(mutex_);
  for (const NamedCertificate &named : certificates_) {
    if (!named.serves_clients) continue;
    const bool is_valid = is_valid_now(named.certificate.get());
    checks.push_back({fmt::format("{} certificate is valid", named.name), is_valid ? "" : "it is not valid now"});
  }
  return checks;
}

Check Watch::readable() {
  return {"store can be read", fault_of([this] {
            Store::Reader reader(store_);
            Query((*reader).database, "SELECT origin FROM replication").run();
          })};
}

std::vector<CertificateStatus> Watch::certificate_status() {
  const std::lock_guard lock(mutex_);
  return status_of(certificates_);
}

}  // namespace veskd
