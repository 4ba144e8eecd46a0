#include "vesk/connection.h"

#include <fmt/format.h>

#include "vesk/explain.h"
#include "vesk/failure.h"
#include "vesk/secret_file.h"
#include "vesk/target.h"
#include "vesk/text.h"

namespace command {
Connection::Connection(const Settings &settings) : trace_(settings.trace) {
  const Target target = target_of(settings);
  check_target(target);
  host_ = target.host.text;
  port_ = port_of(target);
  require(SetupCertificates(&paths_, target.certificates.text.c_str(), target.authority.text.c_str(),
                            target.certificate.text.c_str(), target.key.text.c_str()),
          {});
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
