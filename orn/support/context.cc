#include "orn/support/context.h"

#include "orn/support/connection.h"
#include "orn/support/failure.h"
#include "orn/support/tracing.h"
#include "orn/support/verify.h"

namespace orn {
namespace {

constexpr int kSecurityLevel = 2;
// With forward secrecy and authenticated encryption; each suite more costs every connection, of TLS 1.3 too.
constexpr const char *kTls12Ciphers = "ECDHE+AESGCM:ECDHE+CHACHA20:DHE+AESGCM:DHE+CHACHA20";
// The cheapest first: it is the one whose share a client offers.
constexpr const char *kGroups = "X25519:P-256:P-384:X448:P-521";
// Those that OpenSSL takes by itself, with digests of 256 bits at least.
constexpr const char *kSignatures =
    "ECDSA+SHA256:ECDSA+SHA384:ECDSA+SHA512:ed25519:ed448:RSA-PSS+SHA256:RSA-PSS+SHA384:RSA-PSS+SHA512:"
    "rsa_pss_pss_sha256:rsa_pss_pss_sha384:rsa_pss_pss_sha512:RSA+SHA256:RSA+SHA384:RSA+SHA512";
constexpr const char *kTls13Ciphers = "TLS_AES_256_GCM_SHA384:TLS_CHACHA20_POLY1305_SHA256:TLS_AES_128_GCM_SHA256";

// Everything is stated: a new context may already carry settings of OpenSSL's configuration file.
bool set_protocol(SSL_CTX *context) {
  SSL_CTX_clear_options(context, SSL_CTX_get_options(context));
  // SSL_OP_NO_TICKET is about TLS 1.2, whose sessions are not resumed: they have no fresh key exchange.
  // Without SSL_OP_CLEANSE_PLAINTEXT what was received stays in OpenSSL's buffers, and in the heap after them.
  SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_NO_TICKET |
                                   SSL_OP_ENABLE_MIDDLEBOX_COMPAT | SSL_OP_CLEANSE_PLAINTEXT);
  SSL_CTX_set_security_level(context, kSecurityLevel);
  // OpenSSL only tells of sessions; which of them is offered to whom is decided in Sessions.
  SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
  SSL_CTX_sess_set_new_cb(context, Connection::note_session);
  // The client's chain is what file 2 holds; nothing from file 1 is added to it.
  SSL_CTX_set_mode(context, SSL_MODE_NO_AUTO_CHAIN);
  SSL_CTX_set_read_ahead(context, 1);
  return SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) == 1 &&
         SSL_CTX_set_max_proto_version(context, TLS1_3_VERSION) == 1 &&
         SSL_CTX_set1_groups_list(context, kGroups) == 1 && SSL_CTX_set1_sigalgs_list(context, kSignatures) == 1 &&
         SSL_CTX_set1_client_sigalgs_list(context, kSignatures) == 1 &&
         SSL_CTX_set_cipher_list(context, kTls12Ciphers) == 1 && SSL_CTX_set_ciphersuites(context, kTls13Ciphers) == 1;
}

bool set_authorities(SSL_CTX *context, const std::vector<X509Ptr> &authorities) {
  X509StorePtr store(X509_STORE_new());
  if (!store) return false;
  for (const X509Ptr &authority : authorities) {
    if (X509_STORE_add_cert(store.get(), authority.get()) != 1) return false;
  }
  require_verified_peer(context, kSecurityLevel);
  return SSL_CTX_set1_verify_cert_store(context, store.get()) == 1;
}

bool is_too_weak(unsigned long error) {
  if (ERR_GET_LIB(error) != ERR_LIB_SSL) return false;
  int reason = ERR_GET_REASON(error);
  return reason == SSL_R_EE_KEY_TOO_SMALL || reason == SSL_R_CA_KEY_TOO_SMALL || reason == SSL_R_CA_MD_TOO_WEAK;
}

bool set_client_chain(SSL_CTX *context, const std::vector<X509Ptr> &chain) {
  if (SSL_CTX_use_certificate(context, chain.front().get()) != 1) return false;
  for (std::size_t i = 1; i < chain.size(); ++i) {
    if (SSL_CTX_add1_chain_cert(context, chain[i].get()) != 1) return false;
  }
  return true;
}

int set_up_failure(const char *what) {
  unsigned long error = ERR_peek_last_error();
  ORN_TRACE("%s: %s", what, openssl_reason().c_str());
  if (is_too_weak(error)) return CONN_ERR_CERTIFICATE_WEAK;
  return ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE ? CONN_ERR_RESOURCES : CONN_ERR_TLS_SETUP;
}

}  // namespace

int make_context(const Credentials &credentials, SslContextPtr &made) {
  SslContextPtr context(SSL_CTX_new(TLS_client_method()));
  if (!context || !set_protocol(context.get())) return set_up_failure("TLS settings");
  if (!set_authorities(context.get(), credentials.authorities)) return set_up_failure("trusted authority");
  if (!credentials.chain.empty()) {
    if (!set_client_chain(context.get(), credentials.chain)) return set_up_failure("client certificate chain");
    if (SSL_CTX_use_PrivateKey(context.get(), credentials.key.get()) != 1) return set_up_failure("client key");
  }
  made = std::move(context);
  return 0;
}

}  // namespace orn
