#include "orn/support/failure.h"

#include <array>
#include <cerrno>
#include <system_error>

#include "orn/support/tracing.h"
#include "orn/support/verify.h"

namespace orn {
namespace {

std::string words(unsigned long error) {
  if (error == 0) return "no reason given";
  std::array<char, 256> text{};
  ERR_error_string_n(error, text.data(), text.size());
  return text.data();
}

struct Reasons {
  int tls = 0;  // the first that is about TLS itself; entries of lower layers may stand before it
  bool out_of_memory = false;
};

Reasons take_reasons() {
  Reasons reasons;
  while (unsigned long error = ERR_get_error()) {
    ORN_TRACE("OpenSSL: %s", words(error).c_str());
    if (ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE) reasons.out_of_memory = true;
    if (ERR_GET_LIB(error) == ERR_LIB_SSL && reasons.tls == 0) reasons.tls = ERR_GET_REASON(error);
  }
  return reasons;
}

// OpenSSL's reasons that all its libraries share are numbers far above those of alerts.
bool is_alert(int reason) {
  constexpr int kMostAlert = 255;
  return reason > SSL_AD_REASON_OFFSET && reason <= SSL_AD_REASON_OFFSET + kMostAlert;
}

int status_of_alert(int alert, bool client_certificate_asked) {
  switch (alert) {
    case SSL_AD_BAD_CERTIFICATE:
    case SSL_AD_UNSUPPORTED_CERTIFICATE:
    case SSL_AD_CERTIFICATE_REVOKED:
    case SSL_AD_CERTIFICATE_EXPIRED:
    case SSL_AD_CERTIFICATE_UNKNOWN:
    case SSL_AD_UNKNOWN_CA:
    case SSL_AD_ACCESS_DENIED:
    case SSL_AD_CERTIFICATE_REQUIRED:
      return CONN_ERR_CLIENT_REFUSED;
    case SSL_AD_HANDSHAKE_FAILURE:
      return client_certificate_asked ? CONN_ERR_CLIENT_REFUSED : CONN_ERR_ALERT;
    case SSL_AD_PROTOCOL_VERSION:
      return CONN_ERR_PROTOCOL_VERSION;
    default:
      return CONN_ERR_ALERT;
  }
}

// A reason of OpenSSL's own, which is no alert of the peer's.
int status_of_reason(int reason) {
  switch (reason) {
    case SSL_R_UNSUPPORTED_PROTOCOL:
    case SSL_R_VERSION_TOO_LOW:
    case SSL_R_WRONG_SSL_VERSION:
      return CONN_ERR_PROTOCOL_VERSION;
    case SSL_R_UNEXPECTED_EOF_WHILE_READING:
      return CONN_ERR_CLOSED;
    default:
      return CONN_ERR_PROTOCOL;
  }
}

}  // namespace

std::string openssl_reason() {
  return words(ERR_peek_last_error());
}

bool took_out_of_memory() {
  bool out_of_memory = false;
  while (const unsigned long error = ERR_get_error()) {
    if (ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE) out_of_memory = true;
  }
  return out_of_memory;
}

int status_of_failure(const FailedOperation &operation, const SSL *ssl, int ssl_error, const Channel &channel) {
  const Reasons reasons = take_reasons();
  if (channel.is_not_tls()) {
    ORN_TRACE("%s: the answer does not begin like TLS", operation.name);
    return CONN_ERR_NOT_TLS;
  }
  if (is_alert(reasons.tls)) {
    return status_of_alert(reasons.tls - SSL_AD_REASON_OFFSET, operation.client_certificate_asked);
  }
  // Also where a certificate could not be checked for want of memory.
  if (reasons.out_of_memory) return CONN_ERR_RESOURCES;
  if (reasons.tls == SSL_R_CERTIFICATE_VERIFY_FAILED) return status_of_verification(SSL_get_verify_result(ssl));
  if (int error = channel.error()) {
    ORN_TRACE("%s: %s", operation.name, std::generic_category().message(error).c_str());
    return error == ETIMEDOUT ? operation.timed_out : status_of_errno(error);
  }
  if (ssl_error == SSL_ERROR_ZERO_RETURN || channel.at_end()) {
    ORN_TRACE("%s: the server closed the connection", operation.name);
    return CONN_ERR_CLOSED;
  }
  return status_of_reason(reasons.tls);
}

}  // namespace orn
