// Certificates of the server's store, as the commands use them.
#pragma once

#include <string>

#include "vesk/connection.h"
#include "veskd/certificates.h"

namespace command {

// The only type of certificate that there is.
inline constexpr char kCertificateType = 'C';

std::string certificate_subject(const std::string &name);

// The bytes as they were imported, which are a certificate.
std::string fetch_certificate(const Connection &connection, const std::string &name);

// The certificate of the server, or of the file if one is given. It can be wrapped under, or this fails.
veskd::CertificatePtr wrapping_certificate(const Connection &connection, const std::string &name,
                                           const std::string *file);

// Warns on standard error of a certificate that has run out or will within 30 days. subject is what it is, as in
// "certificate head-office".
void warn_of_expiry(const X509 *certificate, const std::string &subject);

}  // namespace command
