// Fetches a key into an object that wipes it when it goes, and tells its SHA-256 digest, by which two holders of the
// key can see that they have the same.
//
// Build: c++ -std=c++20 fetch_key.cc -o fetch_key $(pkg-config --cflags --libs vesk ornsupport libcrypto)
// Run:   ./fetch_key 127.0.0.1 40123 /tmp/keys backup-2026
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <span>
#include <stdexcept>
#include <string>

#include "orn/support.h"
#include "orn/vesk.h"

namespace {

void check(int status, const std::string &what) {
  if (status != 0) throw std::runtime_error(what + ": " + StatusText(status) + " (" + StatusName(status) + ")");
}

struct Server {
  CertificatePaths paths;
  std::string host;
  std::uint32_t port;
};

// A key as it was fetched. It stays where it is: a copy would be one more to wipe.
class Key {
 public:
  Key(const Server &server, const std::string &name) {
    try {
      check(qRetrieveKey(&server.paths, server.host.c_str(), server.port, name.c_str(), "", &record_), name);
      size_ = std::strtoul(record_.caKeySizeBits, nullptr, 10) / 8;
      if (size_ == 0 || size_ > 256) throw std::runtime_error(name + ": the server tells a size that no key has");
    } catch (...) {
      wipe();
      throw;
    }
  }
  ~Key() { wipe(); }
  Key(const Key &) = delete;
  Key &operator=(const Key &) = delete;

  std::span<const char> value() const { return {record_.caKeyValue, size_}; }

 private:
  void wipe() { OPENSSL_cleanse(&record_, sizeof record_); }

  KeyRecord record_{};
  std::size_t size_ = 0;
};

std::string digest_of(std::span<const char> bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("the digest could not be computed");
  }
  std::string text;
  for (unsigned char byte : std::span(digest, size)) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", byte);
    text += digits;
  }
  return text;
}

}  // namespace

int main(int argc, char *argv[]) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: %s HOST PORT CERTIFICATES NAME\n", argv[0]);
    return 2;
  }
  try {
    Server server{{}, argv[1], static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 10))};
    check(SetupCertificates(&server.paths, argv[3], "authority.pem", "client.pem", "client-key.pem"), "certificates");
    const Key key(server, argv[4]);
    std::printf("%s  %s\n", digest_of(key.value()).c_str(), argv[4]);
    return EXIT_SUCCESS;
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return EXIT_FAILURE;
  }
}
