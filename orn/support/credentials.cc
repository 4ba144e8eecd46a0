#include "orn/support/credentials.h"

#include <openssl/pem.h>

#include <cerrno>
#include <system_error>

#include "orn/support/failure.h"
#include "orn/support/file_bytes.h"
#include "orn/support/tracing.h"

namespace orn {
namespace {

// A file's role and what its failures are called.
struct FileRole {
  const char *name;
  int missing;
  int unreadable;
  int not_pem;
};

constexpr FileRole kAuthority = {"file 1 (trusted authority)", CONN_ERR_AUTHORITY_MISSING,
                                 CONN_ERR_AUTHORITY_UNREADABLE, CONN_ERR_AUTHORITY_NOT_PEM};
constexpr FileRole kChain = {"file 2 (client certificates)", CONN_ERR_CERTIFICATE_MISSING,
                             CONN_ERR_CERTIFICATE_UNREADABLE, CONN_ERR_CERTIFICATE_NOT_PEM};
constexpr FileRole kKey = {"file 3 (client key)", CONN_ERR_KEY_MISSING, CONN_ERR_KEY_UNREADABLE, CONN_ERR_KEY_NOT_PEM};

int read_file(const FileRole &role, const char *path, FileBytes &bytes) {
  int error = bytes.read(path);
  if (error == 0) return 0;
  ORN_TRACE("%s, %s: %s", role.name, path, std::generic_category().message(error).c_str());
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return role.missing;
    case EMFILE:
    case ENFILE:
    case ENOMEM:
      return CONN_ERR_RESOURCES;
    default:
      return role.unreadable;
  }
}

int not_pem(const FileRole &role, const char *path) {
  ORN_TRACE("%s, %s: %s", role.name, path, openssl_reason().c_str());
  return took_out_of_memory() ? CONN_ERR_RESOURCES : role.not_pem;
}

// OpenSSL asks here for a passphrase instead of at the terminal, and never gets one.
int refuse_passphrase(char *, int, int, void *was_asked) {
  *static_cast<bool *>(was_asked) = true;
  return -1;
}

bool is_end_of_pem(unsigned long error) {
  return ERR_GET_LIB(error) == ERR_LIB_PEM && ERR_GET_REASON(error) == PEM_R_NO_START_LINE;
}

int read_certificates(const FileRole &role, const char *path, std::vector<X509Ptr> &certificates,
                      FileIdentity &identity) {
  FileBytes bytes;
  if (int status = read_file(role, path, bytes)) return status;
  identity = bytes.identity();
  BioPtr bio = bytes.new_bio();
  if (!bio) return CONN_ERR_RESOURCES;
  for (;;) {
    ERR_clear_error();
    bool was_asked = false;
    X509Ptr certificate(PEM_read_bio_X509(bio.get(), nullptr, refuse_passphrase, &was_asked));
    if (!certificate) break;
    certificates.push_back(std::move(certificate));
  }
  // A damaged certificate behind good ones must not go unnoticed.
  if (certificates.empty() || !is_end_of_pem(ERR_peek_last_error())) return not_pem(role, path);
  return 0;
}

int read_key(const char *path, KeyPtr &key, FileIdentity &identity) {
  FileBytes bytes;
  if (int status = read_file(kKey, path, bytes)) return status;
  identity = bytes.identity();
  BioPtr bio = bytes.new_bio();
  if (!bio) return CONN_ERR_RESOURCES;
  bool was_asked = false;
  key.reset(PEM_read_bio_PrivateKey(bio.get(), nullptr, refuse_passphrase, &was_asked));
  if (key) return 0;
  if (!was_asked) return not_pem(kKey, path);
  ORN_TRACE("%s, %s: the key is encrypted", kKey.name, path);
  return CONN_ERR_KEY_ENCRYPTED;
}

}  // namespace

int load_authorities(const char *path, Credentials &credentials) {
  return read_certificates(kAuthority, path, credentials.authorities, credentials.identities[0]);
}

int load_chain(const char *path, Credentials &credentials) {
  return read_certificates(kChain, path, credentials.chain, credentials.identities[1]);
}

int load_key(const char *path, Credentials &credentials) {
  return read_key(path, credentials.key, credentials.identities[2]);
}

int check_pair(const CertificateFiles &files, const Credentials &credentials) {
  if (X509_check_private_key(credentials.chain.front().get(), credentials.key.get()) == 1) return 0;
  ORN_TRACE("%s and %s do not belong together: %s", files.certificates, files.key, openssl_reason().c_str());
  return CONN_ERR_KEY_MISMATCH;
}

int load_credentials(const CertificateFiles &files, Credentials &credentials) {
  if (int status = load_authorities(files.authority, credentials)) return status;
  if (int status = load_chain(files.certificates, credentials)) return status;
  if (int status = load_key(files.key, credentials)) return status;
  return check_pair(files, credentials);
}

}  // namespace orn
