#include "vesk/connection.h"

#include <fmt/format.h>

#include "vesk/explain.h"
#include "vesk/failure.h"
#include "vesk/secret_file.h"
#include "vesk/target.h"
#include "vesk/text.h"

namespace command {
namespace {

Target checked_target(const Settings &settings) {
  Target target = target_of(settings);
  check_target(target);
  return target;
}

template <typename Check>
bool passes(Check check) {
  try {
    check();
    return true;
  } catch (const Failure &) {
    return false;
  }
}

}  // namespace

Connection::Connection(const std::string &trace, const Target &target) : trace_(trace) {
  if (passes([&] { check_host(target.host.text); })) host_ = target.host.text;
  if (passes([&] { port_of(target); })) port_ = port_of(target);
  // Leaves the paths alone when they are too long.
  if (!target.certificates.text.empty())
    SetupCertificates(&paths_, target.certificates.text.c_str(), target.authority.text.c_str(),
                      target.certificate.text.c_str(), target.key.text.c_str());
}

Connection::Connection(const Settings &settings) : Connection(settings.trace, checked_target(settings)) {
  warn_of_readers(file(3));
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
