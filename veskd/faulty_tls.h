// What goes wrong on purpose in handshakes: certificates that a client must refuse, and tickets that are refused to it.
#pragma once

#include <openssl/types.h>

#include "veskd/certificates.h"
#include "veskd/faults.h"

namespace veskd {

class FaultyTls {
 public:
  // Has every handshake of the server's context ask the faults; both must outlive the context. The certificates are
  // issued by the server's own authority. Throws StartError.
  FaultyTls(SSL_CTX *tls, Faults &faults, const Identity &authority);
  FaultyTls(const FaultyTls &) = delete;
  FaultyTls &operator=(const FaultyTls &) = delete;
  ~FaultyTls() = default;

  // What went wrong on purpose in a connection's handshake; null for nothing.
  static const Fault *played_on(const SSL *tls);

 private:
  static int answer_client_hello(SSL *tls, int *alert, void *self);
  int play(Deviation deviation, SSL *tls, int *alert) const;

  Faults &faults_;
  const CertificatePtr expired_;  // in all else the server's own
  const Identity wrong_name_;
};

}  // namespace veskd
