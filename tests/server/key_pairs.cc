#include "tests/server/key_pairs.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <utility>

namespace veskd::test {
namespace {

using BioPtr = std::unique_ptr<BIO, decltype(&BIO_free)>;

std::string content_of(const BioPtr &bio) {
  char *bytes = nullptr;
  const long length = BIO_get_mem_data(bio.get(), &bytes);
  return {bytes, static_cast<std::size_t>(length)};
}

BioPtr new_text() {
  return {BIO_new(BIO_s_mem()), BIO_free};
}

}  // namespace

EVP_PKEY *rsa_key(int number, unsigned bits) {
  static std::map<std::pair<int, unsigned>, PrivateKeyPtr> keys;
  PrivateKeyPtr &key = keys[{number, bits}];
  if (!key) key.reset(EVP_RSA_gen(bits));
  if (!key) throw std::runtime_error("no RSA key");
  return key.get();
}

EVP_PKEY *ec_key() {
  static const PrivateKeyPtr key(EVP_EC_gen("P-256"));
  return key.get();
}

CertificatePtr certificate_of(EVP_PKEY *key, int days_before, int days_behind) {
  constexpr long kDay = 86400;
  CertificatePtr certificate(X509_new());
  X509_NAME *name = X509_get_subject_name(certificate.get());
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char *>("a key pair"), -1, -1,
                             0);
  X509_set_version(certificate.get(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -days_before * kDay);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), days_behind * kDay);
  X509_set_issuer_name(certificate.get(), name);
  X509_set_pubkey(certificate.get(), key);
  if (X509_sign(certificate.get(), key, EVP_sha256()) == 0) throw std::runtime_error("no certificate");
  return certificate;
}

std::string pem_of(X509 *certificate) {
  const BioPtr text = new_text();
  PEM_write_bio_X509(text.get(), certificate);
  return content_of(text);
}

std::string der_of(X509 *certificate) {
  const BioPtr text = new_text();
  i2d_X509_bio(text.get(), certificate);
  return content_of(text);
}

std::string pem_of(EVP_PKEY *key) {
  const BioPtr text = new_text();
  PEM_write_bio_PrivateKey(text.get(), key, nullptr, nullptr, 0, nullptr, nullptr);
  return content_of(text);
}

std::string der_of(EVP_PKEY *key) {
  const BioPtr text = new_text();
  i2d_PrivateKey_bio(text.get(), key);
  return content_of(text);
}

std::string encrypted_pem_of(EVP_PKEY *key) {
  const BioPtr text = new_text();
  PEM_write_bio_PrivateKey(text.get(), key, EVP_aes_256_cbc(), reinterpret_cast<const unsigned char *>("passphrase"),
                           10, nullptr, nullptr);
  return content_of(text);
}

}  // namespace veskd::test
