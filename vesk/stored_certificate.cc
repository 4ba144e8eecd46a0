#include "vesk/stored_certificate.h"

#include <fmt/format.h>

#include <cstdio>
#include <utility>

#include "orn/vesk/wire/certificates.h"
#include "vesk/failure.h"
#include "vesk/hints.h"
#include "vesk/input_file.h"
#include "vesk/memory_file.h"
#include "vesk/text.h"
#include "vesk/validity.h"
#include "veskd/key_pairs.h"

namespace command {

std::string certificate_subject(const std::string &name) {
  return "certificate " + printable(name);
}

std::string fetch_certificate(const Connection &connection, const std::string &name) {
  const MemoryFile file;
  connection.run(certificate_subject(name), qExportCertificate, name.c_str(), kCertificateType, file.path().c_str());
  std::string bytes = file.content();
  // The server keeps nothing else, and the library tells of a last write that failed in its trace alone.
  if (!veskd::parse_certificate(bytes))
    throw Failure(ExitCode::kOther, certificate_subject(name) + " did not arrive whole");
  return bytes;
}

veskd::CertificatePtr wrapping_certificate(const Connection &connection, const std::string &name,
                                           const std::string *file) {
  const std::string bytes = file ? read_input(*file, vesk::wire::kMaxCertificateBytes, "certificate").text()
                                 : fetch_certificate(connection, name);
  const std::string subject = file ? name_of_input(*file) : certificate_subject(name);
  veskd::ParsedCertificate parsed = veskd::parse_wrapping_certificate(bytes);
  const X509 *certificate = parsed.certificate.get();
  if (!certificate) {
    throw Failure(ExitCode::kOther, fmt::format("{}: {}", subject, veskd::find_return_code(parsed.code)->sentence),
                  hint_for(parsed.code));
  }
  if (has_passed(X509_get0_notAfter(certificate)) || !has_passed(X509_get0_notBefore(certificate)))
    throw Failure(ExitCode::kOther,
                  fmt::format("{}: it is valid from {} to {}", subject, date_of(X509_get0_notBefore(certificate)),
                              date_of(X509_get0_notAfter(certificate))));
  warn_of_expiry(certificate, subject);
  return std::move(parsed.certificate);
}

void warn_of_expiry(const X509 *certificate, const std::string &subject) {
  const ASN1_TIME *end = X509_get0_notAfter(certificate);
  if (has_passed(end)) {
    fmt::print(stderr, "warning: {} expired on {}\n", subject, date_of(end));
  } else if (const int days = days_until(end); days < kWarningDays) {
    const std::string left = days == 0 ? "within a day" : "in " + days_text(days);
    fmt::print(stderr, "warning: {} expires on {}, {}\n", subject, date_of(end), left);
  }
}

}  // namespace command
