// Certificates and keys of every kind, made as the tests need them.
#ifndef TESTS_CONNECTION_CERTIFICATES_H
#define TESTS_CONNECTION_CERTIFICATES_H

#include <filesystem>
#include <string>
#include <vector>

#include "orn/support/openssl_ptr.h"

namespace tests {

struct Identity {
  orn::X509Ptr certificate;
  orn::KeyPtr key;
};

// What a certificate says. The defaults make a server certificate for localhost and 127.0.0.1, valid today.
struct CertificateSpec {
  std::string common_name = "server";
  std::string alternative_names = "DNS:localhost, IP:127.0.0.1";  // empty: no extension
  std::string extended_key_usage = "serverAuth";                  // empty: no extension
  std::string basic_constraints = "critical, CA:FALSE";
  int first_day = -1;  // from today
  int last_day = 30;
  long last_second = 0;  // of the last day, from now
  int rsa_bits = 0;      // 0: an EC key on P-256
  const EVP_MD *(*digest)() = EVP_sha256;
};

orn::KeyPtr make_key(int rsa_bits = 0);

// A certificate for a key of its own, signed by the issuer, or by itself if that is null.
Identity issue(const CertificateSpec &spec, const Identity *issuer);

Identity make_authority(const std::string &name, const Identity *issuer = nullptr);
Identity make_client(const Identity &issuer, const std::string &name = "client");

std::string pem_of(const X509 *certificate);
std::string pem_of(const EVP_PKEY *key, const char *passphrase = nullptr);

// A folder that goes with its contents when the test ends.
class TemporaryFolder {
 public:
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder &) = delete;
  TemporaryFolder &operator=(const TemporaryFolder &) = delete;
  ~TemporaryFolder();

  std::string path(const std::string &name) const { return (folder_ / name).string(); }
  std::string write(const std::string &name, const std::string &contents) const;
  // The same, and the file is as old as one that nobody touches: one that was just written is read at every call.
  // Waits until its last change is past.
  std::string write_old(const std::string &name, const std::string &contents) const;

 private:
  std::filesystem::path folder_;
};

std::string contents_of(const std::string &path);

}  // namespace tests

#endif
