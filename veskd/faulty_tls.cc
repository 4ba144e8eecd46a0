#include "veskd/faulty_tls.h"

#include <openssl/ssl.h>

namespace veskd {
namespace {

constexpr Days kWrongNameValidity{1};

int fault_index() {
  static const int index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
  return index;
}

bool shows_ticket(SSL *tls) {
  const unsigned char *bytes = nullptr;
  std::size_t length = 0;
  return SSL_client_hello_get0_ext(tls, TLSEXT_TYPE_psk, &bytes, &length) == 1;
}

int issue_good_tickets(SSL *tls, void *) {
  SSL_clear_options(tls, SSL_OP_NO_TICKET);
  return 1;
}

// Tickets are not looked at while the option is set. Once the client's certificate is due, it is not needed any more.
int demand_full_handshake(SSL *tls) {
  const bool had_tickets = (SSL_get_options(tls) & SSL_OP_NO_TICKET) == 0;
  SSL_set_options(tls, SSL_OP_NO_TICKET);
  if (had_tickets) SSL_set_cert_cb(tls, issue_good_tickets, nullptr);
  return SSL_CLIENT_HELLO_SUCCESS;
}

// A resumed connection shows no certificate.
int show(X509 *certificate, EVP_PKEY *key, SSL *tls) {
  if (SSL_use_certificate(tls, certificate) != 1 || SSL_use_PrivateKey(tls, key) != 1) return SSL_CLIENT_HELLO_ERROR;
  return demand_full_handshake(tls);
}

}  // namespace

FaultyTls::FaultyTls(SSL_CTX *tls, Faults &faults, const Identity &authority)
    : faults_(faults),
      expired_(make_expired(SSL_CTX_get0_certificate(tls), authority)),
      wrong_name_(make_leaf(authority, {"veskd", Purpose::kServer, {"elsewhere.invalid"}}, kWrongNameValidity)) {
  SSL_CTX_set_client_hello_cb(tls, answer_client_hello, this);
}

const Fault *FaultyTls::played_on(const SSL *tls) {
  return static_cast<const Fault *>(SSL_get_ex_data(tls, fault_index()));
}

int FaultyTls::answer_client_hello(SSL *tls, int *alert, void *self) {
  const auto &faulty = *static_cast<FaultyTls *>(self);
  const Fault *fault = faulty.faults_.next_handshake(shows_ticket(tls));
  if (fault == nullptr) return SSL_CLIENT_HELLO_SUCCESS;
  SSL_set_ex_data(tls, fault_index(), const_cast<Fault *>(fault));
  return faulty.play(fault->deviation, tls, alert);
}

int FaultyTls::play(Deviation deviation, SSL *tls, int *alert) const {
  switch (deviation) {
    case Deviation::kExpiredCertificate:
      return show(expired_.get(), SSL_get_privatekey(tls), tls);
    case Deviation::kWrongName:
      return show(wrong_name_.certificate.get(), wrong_name_.key.get(), tls);
    case Deviation::kAlertOnTicket:
      *alert = SSL_AD_UNKNOWN_PSK_IDENTITY;
      return SSL_CLIENT_HELLO_ERROR;
    default:
      return demand_full_handshake(tls);
  }
}

}  // namespace veskd
