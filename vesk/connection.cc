#include "vesk/connection.h"

#include <fmt/format.h>

#include "vesk/explain.h"
#include "vesk/failure.h"
#include "vesk/text.h"

namespace command {
namespace {

constexpr std::uint32_t kLastPort = 65535;
constexpr std::size_t kMaxPathLength = 100;

void require_given(const Settings &settings) {
  std::string missing;
  std::string hint;
  const auto require = [&](const std::string &value, const char *what, const char *how) {
    if (!value.empty()) return;
    missing += fmt::format("{}{}", missing.empty() ? "" : ", ", what);
    hint += fmt::format("{}{}", hint.empty() ? "give " : "; ", how);
  };
  require(settings.host, "the host", "--host HOST (or set VESK_HOST)");
  require(settings.port, "the port", "--port PORT (VESK_PORT)");
  require(settings.certificates, "the certificate directory", "--certificates DIR (VESK_CERTIFICATES)");
  if (!missing.empty()) throw Failure(ExitCode::kUsage, "not given: " + missing, hint);
}

void require_path_length(const Settings &settings) {
  const std::string directory = settings.certificates + (settings.certificates.ends_with('/') ? "" : "/");
  for (const std::string &name : {settings.authority, settings.certificate, settings.key}) {
    if (name.empty()) throw Failure(ExitCode::kUsage, "the name of a certificate file is empty");
    const std::string path = directory + name;
    if (path.size() <= kMaxPathLength) continue;
    throw Failure(ExitCode::kUsage,
                  fmt::format("the certificate path {} is {} bytes long; at most {} are allowed", printable(path),
                              path.size(), kMaxPathLength),
                  "change to a directory nearby and give a relative path, or use a symbolic link");
  }
}

}  // namespace

Connection::Connection(const Settings &settings) : trace_(settings.trace) {
  require_given(settings);
  check_host(settings.host);
  host_ = settings.host;
  port_ = parse_number("port", settings.port, 1, kLastPort, Base16::kNo, "give it with --port PORT or in VESK_PORT");
  require_path_length(settings);
  require(SetupCertificates(&paths_, settings.certificates.c_str(), settings.authority.c_str(),
                            settings.certificate.c_str(), settings.key.c_str()),
          {});
}

void Connection::require(int status, std::string_view subject) const {
  if (status != 0) throw explain(status, *this, subject);
}

std::string Connection::server() const {
  // An IPv6 address has colons of its own.
  const bool is_ipv6 = host_.find(':') != std::string::npos;
  return fmt::format("{}{}{}:{}", is_ipv6 ? "[" : "", printable(host_), is_ipv6 ? "]" : "", port_);
}

}  // namespace command
