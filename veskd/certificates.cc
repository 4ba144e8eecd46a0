#include "veskd/certificates.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <array>
#include <asio/ip/address.hpp>

#include "veskd/errors.h"
#include "veskd/files.h"
#include "veskd/key_pairs.h"

namespace veskd {
namespace {

constexpr const char *kFailed = "a certificate could not be made";
constexpr std::size_t kSerialBytes = 16;
// Peers' clocks may be behind ours.
constexpr long kBackdatedSeconds = -300;

struct BioFree {
  void operator()(BIO *bio) const { BIO_free_all(bio); }
};
using BioPtr = std::unique_ptr<BIO, BioFree>;

bool is_address(const std::string &name) {
  asio::error_code error;
  asio::ip::make_address(name, error);
  return !error;
}

void set_serial_number(X509 *certificate) {
  std::array<unsigned char, kSerialBytes> bytes;
  require_openssl(RAND_bytes(bytes.data(), bytes.size()) == 1, kFailed);
  bytes[0] = static_cast<unsigned char>((bytes[0] & 0x3f) | 0x40);  // positive, and always of full length
  const std::unique_ptr<BIGNUM, void (*)(BIGNUM *)> number(BN_bin2bn(bytes.data(), bytes.size(), nullptr), BN_free);
  require_openssl(number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr, kFailed);
}

void set_subject(X509 *certificate, const std::string &common_name) {
  X509_NAME *name = X509_get_subject_name(certificate);
  const auto add = [&](const char *field, const std::string &text) {
    require_openssl(X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                               reinterpret_cast<const unsigned char *>(text.c_str()), -1, -1, 0) == 1,
                    kFailed);
  };
  add("O", "veskd dev");
  add("CN", common_name);
}

void add_extension(X509 *certificate, X509 *issuer, int type, const std::string &value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const std::unique_ptr<X509_EXTENSION, void (*)(X509_EXTENSION *)> extension(
      X509V3_EXT_conf_nid(nullptr, &context, type, value.c_str()), X509_EXTENSION_free);
  require_openssl(extension && X509_add_ext(certificate, extension.get(), -1) == 1, kFailed);
}

std::string alternative_names(const LeafRequest &request) {
  std::string text = request.is_mirror ? fmt::format("URI:{}", kMirrorRole) : "";
  for (const std::string &name : request.names)
    text += fmt::format("{}{}:{}", text.empty() ? "" : ",", is_address(name) ? "IP" : "DNS", name);
  return text;
}

// A certificate of a new key, without issuer, extensions and signature.
Identity new_identity(const std::string &common_name, Days validity) {
  Identity identity{CertificatePtr(X509_new()), PrivateKeyPtr(EVP_EC_gen("P-256"))};
  X509 *certificate = identity.certificate.get();
  require_openssl(certificate != nullptr && identity.key != nullptr, kFailed);
  set_serial_number(certificate);
  set_subject(certificate, common_name);
  require_openssl(X509_set_version(certificate, X509_VERSION_3) == 1 &&
                      X509_gmtime_adj(X509_getm_notBefore(certificate), kBackdatedSeconds) != nullptr &&
                      X509_time_adj_ex(X509_getm_notAfter(certificate), validity.count(), 0, nullptr) != nullptr &&
                      X509_set_pubkey(certificate, identity.key.get()) == 1,
                  kFailed);
  return identity;
}

void sign(X509 *certificate, X509 *issuer, EVP_PKEY *issuer_key) {
  require_openssl(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1 &&
                      X509_sign(certificate, issuer_key, EVP_sha256()) > 0,
                  kFailed);
}

std::string content_of(BIO *bio) {
  char *bytes = nullptr;
  const long length = BIO_get_mem_data(bio, &bytes);
  return std::string(bytes, static_cast<std::size_t>(length));
}

}  // namespace

Identity make_authority(const std::string &common_name, Days validity) {
  Identity authority = new_identity(common_name, validity);
  X509 *certificate = authority.certificate.get();
  add_extension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
  add_extension(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
  add_extension(certificate, certificate, NID_subject_key_identifier, "hash");
  sign(certificate, certificate, authority.key.get());
  return authority;
}

Identity make_leaf(const Identity &authority, const LeafRequest &request, Days validity) {
  Identity leaf = new_identity(request.common_name, validity);
  X509 *certificate = leaf.certificate.get();
  X509 *issuer = authority.certificate.get();
  add_extension(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE");
  add_extension(certificate, issuer, NID_key_usage, "critical,digitalSignature");
  add_extension(certificate, issuer, NID_ext_key_usage,
                request.purpose == Purpose::kServer ? "serverAuth" : "clientAuth");
  add_extension(certificate, issuer, NID_subject_key_identifier, "hash");
  add_extension(certificate, issuer, NID_authority_key_identifier, "keyid:always");
  if (const std::string names = alternative_names(request); !names.empty())
    add_extension(certificate, issuer, NID_subject_alt_name, names);
  sign(certificate, issuer, authority.key.get());
  return leaf;
}

CertificatePtr make_expired(X509 *certificate, const Identity &authority) {
  CertificatePtr expired(X509_dup(certificate));
  require_openssl(expired && X509_time_adj_ex(X509_getm_notBefore(expired.get()), -2, 0, nullptr) != nullptr &&
                      X509_time_adj_ex(X509_getm_notAfter(expired.get()), -1, 0, nullptr) != nullptr,
                  kFailed);
  sign(expired.get(), authority.certificate.get(), authority.key.get());
  return expired;
}

std::string certificate_pem(X509 *certificate) {
  const BioPtr bio(BIO_new(BIO_s_mem()));
  require_openssl(bio && PEM_write_bio_X509(bio.get(), certificate) == 1, kFailed);
  return content_of(bio.get());
}

WipedText private_key_pem(EVP_PKEY *key) {
  const BioPtr bio(BIO_new(BIO_s_secmem()));
  require_openssl(bio && PEM_write_bio_PKCS8PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1,
                  kFailed);
  return WipedText(content_of(bio.get()));
}

CertificatePtr read_certificate(const std::filesystem::path &path) {
  const std::string text = read_file(path);
  const BioPtr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  CertificatePtr certificate(PEM_read_bio_X509(bio.get(), nullptr, refuse_passphrase, nullptr));
  require_openssl(certificate != nullptr, fmt::format("{} holds no PEM certificate", path.string()));
  return certificate;
}

Identity read_identity(const std::filesystem::path &certificate, const std::filesystem::path &key) {
  require_private(key);
  const WipedText key_text(read_file(key));
  const BioPtr key_bio(BIO_new_mem_buf(key_text.text().data(), static_cast<int>(key_text.text().size())));
  Identity identity{read_certificate(certificate),
                    PrivateKeyPtr(PEM_read_bio_PrivateKey(key_bio.get(), nullptr, refuse_passphrase, nullptr))};
  require_openssl(identity.key != nullptr, fmt::format("{} holds no PEM private key", key.string()));
  if (X509_check_private_key(identity.certificate.get(), identity.key.get()) != 1)
    throw StartError(fmt::format("the key {} does not belong to the certificate {}: remove both, and new ones are made",
                                 key.string(), certificate.string()));
  return identity;
}

std::string end_of(X509 *certificate) {
  std::tm time{};
  if (ASN1_TIME_to_tm(X509_get0_notAfter(certificate), &time) != 1) return {};
  return fmt::format("{:%Y-%m-%d %H:%M:%S} UTC", time);
}

double days_left(X509 *certificate) {
  constexpr double kSecondsPerDay = 86400;
  int days = 0;
  int seconds = 0;
  ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(certificate));
  return days + seconds / kSecondsPerDay;
}

bool is_valid_now(X509 *certificate) {
  return X509_cmp_current_time(X509_get0_notBefore(certificate)) < 0 &&
         X509_cmp_current_time(X509_get0_notAfter(certificate)) > 0;
}

bool is_issued_by(X509 *certificate, X509 *authority) {
  const bool issued = X509_check_issued(authority, certificate) == X509_V_OK &&
                      X509_verify(certificate, X509_get0_pubkey(authority)) == 1;
  if (!issued) openssl_error();
  return issued;
}

std::string fingerprint_of(const X509 *certificate) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
  unsigned int length = 0;
  require_openssl(X509_digest(certificate, EVP_sha256(), digest.data(), &length) == 1, "no digest of a certificate");
  return fmt::format("{:02x}", fmt::join(digest.begin(), digest.begin() + length, ""));
}

bool is_for_host(X509 *certificate, const std::string &name) {
  if (is_address(name)) return X509_check_ip_asc(certificate, name.c_str(), 0) == 1;
  return X509_check_host(certificate, name.c_str(), name.size(), 0, nullptr) == 1;
}

std::string subject_of(X509 *certificate) {
  const BioPtr text(BIO_new(BIO_s_mem()));
  if (!text) return {};
  X509_NAME_print_ex(text.get(), X509_get_subject_name(certificate), 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
  return content_of(text.get());
}

}  // namespace veskd
