#include "tests/connection/certificates.h"

#include <openssl/pem.h>
#include <openssl/rand.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace tests {
namespace {

void require(bool done, const char *what) {
  if (!done) throw std::runtime_error(what);
}

void add_extension(X509 *certificate, const Identity *issuer, int nid, const std::string &value) {
  if (value.empty()) return;
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer ? issuer->certificate.get() : certificate, certificate, nullptr, nullptr, 0);
  X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
  require(extension != nullptr, value.c_str());
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

void set_serial(X509 *certificate) {
  std::uint64_t number = 0;
  RAND_bytes(reinterpret_cast<unsigned char *>(&number), sizeof number);
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), number >> 1);
}

std::chrono::nanoseconds file_time_tick() {
  timespec tick{};
  clock_getres(CLOCK_REALTIME_COARSE, &tick);
  return std::chrono::seconds(tick.tv_sec) + std::chrono::nanoseconds(tick.tv_nsec);
}

std::string written(const orn::BioPtr &bio) {
  char *data = nullptr;
  long length = BIO_get_mem_data(bio.get(), &data);
  return {data, static_cast<std::size_t>(length)};
}

}  // namespace

orn::KeyPtr make_key(int rsa_bits) {
  orn::KeyPtr key(rsa_bits > 0 ? EVP_RSA_gen(static_cast<unsigned int>(rsa_bits)) : EVP_EC_gen("P-256"));
  require(key != nullptr, "key");
  return key;
}

Identity issue(const CertificateSpec &spec, const Identity *issuer) {
  Identity made{orn::X509Ptr(X509_new()), make_key(spec.rsa_bits)};
  X509 *certificate = made.certificate.get();
  X509_set_version(certificate, X509_VERSION_3);
  set_serial(certificate);
  X509_time_adj_ex(X509_getm_notBefore(certificate), spec.first_day, 0, nullptr);
  X509_time_adj_ex(X509_getm_notAfter(certificate), spec.last_day, spec.last_second, nullptr);
  X509_set_pubkey(certificate, made.key.get());
  X509_NAME_add_entry_by_NID(X509_get_subject_name(certificate), NID_commonName, MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char *>(spec.common_name.data()),
                             static_cast<int>(spec.common_name.size()), -1, 0);
  X509_set_issuer_name(certificate, X509_get_subject_name(issuer ? issuer->certificate.get() : certificate));
  add_extension(certificate, issuer, NID_basic_constraints, spec.basic_constraints);
  add_extension(certificate, issuer, NID_ext_key_usage, spec.extended_key_usage);
  add_extension(certificate, issuer, NID_subject_alt_name, spec.alternative_names);
  require(X509_sign(certificate, issuer ? issuer->key.get() : made.key.get(), spec.digest()) > 0, "signature");
  return made;
}

Identity make_authority(const std::string &name, const Identity *issuer) {
  return issue({.common_name = name,
                .alternative_names = "",
                .extended_key_usage = "",
                .basic_constraints = "critical, CA:TRUE"},
               issuer);
}

Identity make_client(const Identity &issuer, const std::string &name) {
  return issue({.common_name = name, .alternative_names = "", .extended_key_usage = "clientAuth"}, &issuer);
}

std::string pem_of(const X509 *certificate) {
  orn::BioPtr bio(BIO_new(BIO_s_mem()));
  PEM_write_bio_X509(bio.get(), certificate);
  return written(bio);
}

std::string pem_of(const EVP_PKEY *key, const char *passphrase) {
  orn::BioPtr bio(BIO_new(BIO_s_mem()));
  PEM_write_bio_PKCS8PrivateKey(bio.get(), key, passphrase ? EVP_aes_128_cbc() : nullptr, passphrase,
                                passphrase ? static_cast<int>(std::char_traits<char>::length(passphrase)) : 0, nullptr,
                                nullptr);
  return written(bio);
}

TemporaryFolder::TemporaryFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "connection-XXXXXX").string();
  require(mkdtemp(name.data()) != nullptr, "temporary folder");
  folder_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

std::string TemporaryFolder::write(const std::string &name, const std::string &contents) const {
  std::ofstream(folder_ / name, std::ios::binary) << contents;
  return path(name);
}

std::string TemporaryFolder::write_old(const std::string &name, const std::string &contents) const {
  std::string path = write(name, contents);
  std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) - std::chrono::hours(1));
  std::this_thread::sleep_for(2 * file_time_tick());
  return path;
}

std::string contents_of(const std::string &path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

}  // namespace tests
