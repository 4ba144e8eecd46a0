// Making certificates for a development environment: an authority and the leaves that it issues, EC P-256, PEM.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "veskd/secret.h"

namespace veskd {

struct FreeOpenssl {
  void operator()(X509 *certificate) const { X509_free(certificate); }
  void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
};
using CertificatePtr = std::unique_ptr<X509, FreeOpenssl>;
using PrivateKeyPtr = std::unique_ptr<EVP_PKEY, FreeOpenssl>;

struct Identity {
  CertificatePtr certificate;
  PrivateKeyPtr key;
};

enum class Purpose { kServer, kClient };

// Who a leaf is for. Names that are numeric addresses become IP entries, the others DNS entries.
struct LeafRequest {
  std::string common_name;
  Purpose purpose;
  std::vector<std::string> names;
  bool is_mirror = false;  // carries the role that lets a server replicate to another
};

using Days = std::chrono::duration<int, std::ratio<86400>>;

Identity make_authority(const std::string &common_name, Days validity);
Identity make_leaf(const Identity &authority, const LeafRequest &request, Days validity);

// The same certificate, but that it was valid for a day and expired a day ago.
CertificatePtr make_expired(X509 *certificate, const Identity &authority);

// PEM texts and back. Reading throws StartError that names the file.
std::string certificate_pem(X509 *certificate);
WipedText private_key_pem(EVP_PKEY *key);
Identity read_identity(const std::filesystem::path &certificate, const std::filesystem::path &key);

// Whether the certificate is valid now, and whether the authority issued it.
bool is_valid_now(X509 *certificate);
bool is_issued_by(X509 *certificate, X509 *authority);

// SHA-256 of the certificate, hexadecimal.
std::string fingerprint_of(const X509 *certificate);

// Whether the certificate is good for that host name or numeric address.
bool is_for_host(X509 *certificate, const std::string &name);

// RFC 2253 form, control characters escaped.
std::string subject_of(X509 *certificate);

// The certificate that a server shows to its mirrors has this URI among its subject alternative names.
inline constexpr const char *kMirrorRole = "urn:veskd:mirror";

}  // namespace veskd
