#include <openssl/ssl.h>

#include <cstdlib>
#include <memory>

#include "orn/vesk/libvesk/call_frame.h"

using namespace vesk;

namespace {

struct X509Deleter {
  void operator()(X509 *certificate) const { X509_free(certificate); }
};

// Takes the last certificate off a chain and describes it. The stack stays the connection's.
bool describe_last(STACK_OF(X509) * chain, const char *label, CertificateInfo *info) {
  const std::unique_ptr<X509, X509Deleter> certificate(chain == nullptr ? nullptr : sk_X509_pop(chain));
  if (certificate == nullptr) return false;
  X509_get_info(certificate.get(), info);
  logCertInfo(label, info);
  return true;
}

}  // namespace

int GetServerCertificateInfo(const CertificatePaths *paths, const char *host, uint32_t port, CertificateInfo *caInfo,
                             CertificateInfo *commInfo) {
  return with_session({paths, host, port}, [&](Session &session) -> int {
    STACK_OF(X509) *chain = SSL_get_peer_cert_chain(static_cast<SSL *>(session.hTls));
    LIBVESK_TRACE("Certificates in Server Chain: <%i>", chain == nullptr ? 0 : sk_X509_num(chain));
    if (!describe_last(chain, "Server CA Cert", caInfo)) return ERR_NO_CA_CERT;
    if (!describe_last(chain, "Server Comm Cert", commInfo)) return ERR_NO_COMM_CERT;
    return 0;
  });
}

void logCertInfo(const char *label, const CertificateInfo *info) {
  const std::unique_ptr<char, decltype(&std::free)> text(CertificateInfo_to_string(info), std::free);
  LIBVESK_TRACE("%s\n%s", label, text == nullptr ? "" : text.get());
}
