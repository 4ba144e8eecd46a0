#include "veskd/key_pairs.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <optional>
#include <stdexcept>
#include <vector>

#include "veskd/errors.h"

namespace veskd {
namespace {

struct BioFree {
  void operator()(BIO *bio) const { BIO_free_all(bio); }
};
using BioPtr = std::unique_ptr<BIO, BioFree>;

struct ContextFree {
  void operator()(EVP_PKEY_CTX *context) const { EVP_PKEY_CTX_free(context); }
};
using ContextPtr = std::unique_ptr<EVP_PKEY_CTX, ContextFree>;

// What parsing leaves behind in OpenSSL's error queue is nobody's: a wrong file is no failure of the server.
struct ErrorsForgotten {
  ErrorsForgotten() = default;
  ErrorsForgotten(const ErrorsForgotten &) = delete;
  ErrorsForgotten &operator=(const ErrorsForgotten &) = delete;
  ~ErrorsForgotten() { ERR_clear_error(); }
};

bool is_pem(std::string_view bytes) {
  return bytes.find("-----BEGIN ") != std::string_view::npos;
}

BioPtr reader_of(std::string_view bytes) {
  return BioPtr(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

const unsigned char *begin_of(std::string_view bytes) {
  return reinterpret_cast<const unsigned char *>(bytes.data());
}

// A block of a PEM file, decoded. It may be a private key where a certificate was expected.
class PemBlock {
 public:
  // False when there is no block, or one that cannot be decoded; at_end tells which.
  bool read(BIO *bio) { return PEM_read_bio(bio, &name_, &header_, &data_, &length_) == 1; }
  static bool at_end() { return ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE; }
  PemBlock() = default;
  PemBlock(const PemBlock &) = delete;
  PemBlock &operator=(const PemBlock &) = delete;
  ~PemBlock() {
    OPENSSL_free(name_);
    OPENSSL_free(header_);
    OPENSSL_clear_free(data_, static_cast<std::size_t>(length_));
  }

  std::string_view name() const { return name_; }
  std::string_view data() const { return {reinterpret_cast<const char *>(data_), static_cast<std::size_t>(length_)}; }

 private:
  char *name_ = nullptr;
  char *header_ = nullptr;
  unsigned char *data_ = nullptr;
  long length_ = 0;
};

CertificatePtr parse_der_certificate(std::string_view bytes) {
  const unsigned char *at = begin_of(bytes);
  CertificatePtr certificate(d2i_X509(nullptr, &at, static_cast<long>(bytes.size())));
  if (at != begin_of(bytes) + bytes.size()) return nullptr;
  return certificate;
}

// One block, which is a certificate.
CertificatePtr parse_pem_certificate(std::string_view bytes) {
  const BioPtr bio = reader_of(bytes);
  PemBlock block;
  if (!bio || !block.read(bio.get()) || block.name() != PEM_STRING_X509) return nullptr;
  PemBlock another;
  if (another.read(bio.get()) || !PemBlock::at_end()) return nullptr;
  return parse_der_certificate(block.data());
}

PrivateKeyPtr parse_pem_private_key(std::string_view bytes, bool &encrypted) {
  const BioPtr bio = reader_of(bytes);
  if (!bio) return nullptr;
  return PrivateKeyPtr(PEM_read_bio_PrivateKey(bio.get(), nullptr, refuse_passphrase, &encrypted));
}

bool is_encrypted_der(std::string_view bytes) {
  const unsigned char *at = begin_of(bytes);
  X509_SIG *envelope = d2i_X509_SIG(nullptr, &at, static_cast<long>(bytes.size()));
  X509_SIG_free(envelope);
  return envelope != nullptr;
}

// Whether the exponent and the modulus of the public key are such that they keep a secret.
bool is_sound(EVP_PKEY *key) {
  const ContextPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
  return context && EVP_PKEY_public_check(context.get()) == 1;
}

// Whether the parts of the key fit together and its primes are prime.
bool is_consistent(EVP_PKEY *key) {
  const ContextPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
  return context && EVP_PKEY_check(context.get()) == 1;
}

}  // namespace

int refuse_passphrase(char *, int, int, void *was_asked) {
  if (was_asked != nullptr) *static_cast<bool *>(was_asked) = true;
  return -1;
}

CertificatePtr parse_certificate(std::string_view bytes) {
  const ErrorsForgotten forgotten;
  ERR_clear_error();
  return is_pem(bytes) ? parse_pem_certificate(bytes) : parse_der_certificate(bytes);
}

ParsedCertificate parse_wrapping_certificate(std::string_view bytes) {
  const ErrorsForgotten forgotten;
  CertificatePtr certificate = parse_certificate(bytes);
  if (!certificate) return {nullptr, RC_CERTIFICATE_INVALID};
  EVP_PKEY *key = X509_get0_pubkey(certificate.get());
  if (!is_wrapping_key(key) || !is_sound(key)) return {nullptr, RC_CERTIFICATE_KEY};
  return {std::move(certificate), RC_SUCCESS};
}

ParsedPrivateKey parse_private_key(std::string_view bytes) {
  const ErrorsForgotten forgotten;
  bool encrypted = false;
  PrivateKeyPtr key = is_pem(bytes) ? parse_pem_private_key(bytes, encrypted) : read_private_key_der(bytes);
  if (encrypted || (!key && is_encrypted_der(bytes))) return {nullptr, RC_PRIVATE_KEY_ENCRYPTED};
  if (!key) return {nullptr, RC_PRIVATE_KEY_INVALID};
  // The kind comes first: it bounds the work of the other check.
  if (!is_wrapping_key(key.get())) return {nullptr, RC_PRIVATE_KEY_KIND};
  if (!is_consistent(key.get())) return {nullptr, RC_PRIVATE_KEY_INVALID};
  return {std::move(key), RC_SUCCESS};
}

WipedText private_key_der(EVP_PKEY *key) {
  const int length = i2d_PrivateKey(key, nullptr);
  if (length <= 0) throw std::runtime_error("a private key could not be encoded: " + openssl_error());
  WipedText der(std::string(static_cast<std::size_t>(length), '\0'));
  auto *at = reinterpret_cast<unsigned char *>(der.text().data());
  i2d_PrivateKey(key, &at);
  return der;
}

PrivateKeyPtr read_private_key_der(std::string_view bytes) {
  const ErrorsForgotten forgotten;
  const unsigned char *at = begin_of(bytes);
  PrivateKeyPtr key(d2i_AutoPrivateKey(nullptr, &at, static_cast<long>(bytes.size())));
  if (at != begin_of(bytes) + bytes.size()) return nullptr;
  return key;
}

bool is_wrapping_key(const EVP_PKEY *key) {
  return key != nullptr && EVP_PKEY_is_a(key, "RSA") && EVP_PKEY_get_bits(key) == kWrappingKeyBits;
}

bool is_same_pair(const EVP_PKEY *one, const EVP_PKEY *other) {
  const ErrorsForgotten forgotten;
  return EVP_PKEY_eq(one, other) == 1;
}

}  // namespace veskd
