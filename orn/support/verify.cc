#include "orn/support/verify.h"

#include <memory>

#include "orn/support/tracing.h"

namespace orn {
namespace {

struct OpensslStringFree {
  void operator()(char *text) const { OPENSSL_free(text); }
};

void trace_names(X509_STORE_CTX *store, const CertificateInfo &info) {
  X509_VERIFY_PARAM *settings = X509_STORE_CTX_get0_param(store);
  const char *name = X509_VERIFY_PARAM_get0_host(settings, 0);
  const std::unique_ptr<char, OpensslStringFree> address(name ? nullptr : X509_VERIFY_PARAM_get1_ip_asc(settings));
  ORN_TRACE("wanted <%s>, the certificate is for <%s>", name ? name : address ? address.get() : "", info.names);
}

// OpenSSL calls this for every certificate; it only tells what was wrong and changes no verdict. Nothing here throws,
// which would end in OpenSSL.
int trace_verdict(int accepted, X509_STORE_CTX *store) {
  if (accepted || !trace_is_on.load(std::memory_order_relaxed)) return accepted;
  int error = X509_STORE_CTX_get_error(store);
  CertificateInfo info;
  X509_get_info(X509_STORE_CTX_get_current_cert(store), &info);
  ORN_TRACE("the server's certificate chain is refused at depth %d: %s", X509_STORE_CTX_get_error_depth(store),
            X509_verify_cert_error_string(error));
  ORN_TRACE("certificate <%s> of <%s>, valid from %s until %s, %s", info.subject, info.issuer, info.notBefore,
            info.notAfter, info.key);
  if (error == X509_V_ERR_HOSTNAME_MISMATCH || error == X509_V_ERR_IP_ADDRESS_MISMATCH) {
    trace_names(store, info);
  }
  return accepted;
}

}  // namespace

void require_verified_peer(SSL_CTX *context, int security_level) {
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, trace_verdict);
  X509_VERIFY_PARAM *settings = SSL_CTX_get0_param(context);
  X509_VERIFY_PARAM_set_purpose(settings, X509_PURPOSE_SSL_SERVER);
  X509_VERIFY_PARAM_set_auth_level(settings, security_level);
  X509_VERIFY_PARAM_set_flags(settings, X509_V_FLAG_TRUSTED_FIRST | X509_V_FLAG_PARTIAL_CHAIN);
}

bool require_peer_name(SSL *ssl, const PeerName &peer) {
  X509_VERIFY_PARAM *settings = SSL_get0_param(ssl);
  if (!peer.octets.empty()) {
    return X509_VERIFY_PARAM_set1_ip(settings, reinterpret_cast<const unsigned char *>(peer.octets.data()),
                                     peer.octets.size()) == 1;
  }
  X509_VERIFY_PARAM_set_hostflags(settings, X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  return X509_VERIFY_PARAM_set1_host(settings, peer.name.data(), peer.name.size()) == 1 &&
         SSL_set_tlsext_host_name(ssl, peer.name.c_str()) == 1;
}

int status_of_verification(long result) {
  switch (result) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return CONN_ERR_PEER_EXPIRED;
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return CONN_ERR_PEER_NOT_YET_VALID;
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      return CONN_ERR_PEER_NAME;
    case X509_V_ERR_INVALID_PURPOSE:
    case X509_V_ERR_INVALID_CA:
    case X509_V_ERR_KEYUSAGE_NO_CERTSIGN:
      return CONN_ERR_PEER_PURPOSE;
    case X509_V_ERR_EE_KEY_TOO_SMALL:
    case X509_V_ERR_CA_KEY_TOO_SMALL:
    case X509_V_ERR_CA_MD_TOO_WEAK:
      return CONN_ERR_PEER_WEAK;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    // Signed with another key: an authority that only bears the trusted one's name.
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
    case X509_V_ERR_CERT_UNTRUSTED:
    case X509_V_ERR_CERT_REJECTED:
      return CONN_ERR_PEER_NOT_TRUSTED;
    case X509_V_ERR_OUT_OF_MEM:
      return CONN_ERR_RESOURCES;
    default:
      return CONN_ERR_PEER_CERTIFICATE;
  }
}

}  // namespace orn
