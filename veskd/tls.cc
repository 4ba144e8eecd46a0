#include "veskd/tls.h"

#include <fmt/format.h>
#include <openssl/ssl.h>

#include "veskd/errors.h"
#include "veskd/key_pairs.h"

namespace veskd {
namespace {

constexpr const char *kFailed = "TLS could not be set up";
constexpr int kSecurityLevel = 2;
constexpr int kMaxChainDepth = 4;
constexpr unsigned char kSessionContext[] = "veskd";

void check_file(int result, std::string_view what, const std::filesystem::path &path) {
  if (result != 1) throw FileError(path, fmt::format("cannot use the {} {}: {}", what, path.string(), openssl_error()));
}

void set_versions_and_ciphers(SSL_CTX *tls) {
  SSL_CTX_set_security_level(tls, kSecurityLevel);
  require_openssl(SSL_CTX_set_min_proto_version(tls, TLS1_2_VERSION) == 1 &&
                      SSL_CTX_set_max_proto_version(tls, 0) == 1 &&
                      SSL_CTX_set_cipher_list(tls, "ECDHE+AESGCM:ECDHE+CHACHA20") == 1 &&
                      SSL_CTX_set1_groups_list(tls, "X25519:P-256:P-384:P-521") == 1,
                  kFailed);
}

void load_key(SSL_CTX *tls, const std::filesystem::path &path) {
  bool is_encrypted = false;
  SSL_CTX_set_default_passwd_cb_userdata(tls, &is_encrypted);
  const int result = SSL_CTX_use_PrivateKey_file(tls, path.c_str(), SSL_FILETYPE_PEM);
  SSL_CTX_set_default_passwd_cb_userdata(tls, nullptr);
  if (is_encrypted) {
    openssl_error();
    throw FileError(path, fmt::format("cannot use the server key {}: it is encrypted, and nobody is asked for its "
                                      "passphrase: type  openssl pkey -in {} -out NEW-FILE",
                                      path.string(), path.string()));
  }
  check_file(result, "server key", path);
}

void load_files(SSL_CTX *tls, const TlsFiles &files) {
  SSL_CTX_set_default_passwd_cb(tls, refuse_passphrase);
  check_file(SSL_CTX_use_certificate_chain_file(tls, files.certificate_chain.c_str()), "server certificate",
             files.certificate_chain);
  load_key(tls, files.private_key);
  check_file(SSL_CTX_load_verify_file(tls, files.authority.c_str()), "trusted authority", files.authority);
  SSL_CTX_set_verify_depth(tls, kMaxChainDepth);
}

}  // namespace

void check_authority(const std::filesystem::path &file) {
  asio::ssl::context context(asio::ssl::context::tls_server);
  check_file(SSL_CTX_load_verify_file(context.native_handle(), file.c_str()), "trusted authority", file);
}

asio::ssl::context make_tls_context(const TlsFiles &files, const TicketOptions &tickets) {
  asio::ssl::context context(asio::ssl::context::tls_server);
  SSL_CTX *tls = context.native_handle();
  set_versions_and_ciphers(tls);
  require_openssl(SSL_CTX_set_session_id_context(tls, kSessionContext, sizeof kSessionContext - 1) == 1, kFailed);
  SSL_CTX_set_options(tls, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_CIPHER_SERVER_PREFERENCE |
                               SSL_OP_CLEANSE_PLAINTEXT);
  SSL_CTX_set_session_cache_mode(tls, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_mode(tls, SSL_MODE_RELEASE_BUFFERS);
  load_files(tls, files);
  tickets.enabled ? issue_tickets(tls, tickets, files.authority) : issue_no_tickets(tls);
  STACK_OF(X509_NAME) *names = SSL_load_client_CA_file(files.authority.c_str());
  check_file(names != nullptr ? 1 : 0, "trusted authority", files.authority);
  SSL_CTX_set_client_CA_list(tls, names);
  SSL_CTX_set_verify(tls, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  return context;
}

asio::ssl::context make_mirror_tls_context(const TlsFiles &files) {
  asio::ssl::context context(asio::ssl::context::tls_client);
  SSL_CTX *tls = context.native_handle();
  set_versions_and_ciphers(tls);
  SSL_CTX_set_options(tls, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_CLEANSE_PLAINTEXT);
  SSL_CTX_set_session_cache_mode(tls, SSL_SESS_CACHE_OFF);
  load_files(tls, files);
  SSL_CTX_set_verify(tls, SSL_VERIFY_PEER, nullptr);
  return context;
}

}  // namespace veskd
