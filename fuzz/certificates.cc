// Certificates and private keys that come from outside, as PEM or DER. The first character says as what they are read.
#include <cstdlib>

#include "fuzz/target.h"
#include "orn/support.h"
#include "orn/support/credentials.h"
#include "veskd/certificates.h"
#include "veskd/key_pairs.h"
#include "veskd/roles.h"

namespace {

// Everything that is told of a certificate, by the server and by the library.
void tell(X509 *certificate) {
  CertificateInfo info;
  X509_get_info(certificate, &info);
  std::free(CertificateInfo_to_string(&info));
  veskd::marks_of(certificate);
  veskd::subject_of(certificate);
  veskd::fingerprint_of(certificate);
  veskd::end_of(certificate);
  veskd::days_left(certificate);
  veskd::is_valid_now(certificate);
  veskd::is_for_host(certificate, "kms.example");
  veskd::is_for_host(certificate, "127.0.0.1");
  veskd::development_roles().permissions_of(certificate);
}

void read_certificate(std::string_view bytes) {
  const veskd::CertificatePtr certificate = veskd::parse_certificate(bytes);
  if (!certificate) return;
  tell(certificate.get());
  veskd::parse_wrapping_certificate(bytes);
  const std::string pem = veskd::certificate_pem(certificate.get());
  fuzz::require(veskd::parse_certificate(pem) != nullptr, "a certificate survives being written");
}

void read_private_key(std::string_view bytes) {
  const veskd::ParsedPrivateKey parsed = veskd::parse_private_key(bytes);
  fuzz::require((parsed.code == veskd::RC_SUCCESS) == (parsed.key != nullptr), "a key is a success");
  if (!parsed.key) return;
  const veskd::WipedText der = veskd::private_key_der(parsed.key.get());
  const veskd::PrivateKeyPtr again = veskd::read_private_key_der(der.text());
  fuzz::require(veskd::is_same_pair(parsed.key.get(), again.get()), "a key survives being written");
}

// A client's files, all three in one.
void read_files(std::string_view bytes) {
  const std::string file = fuzz::scratch().write("credentials.pem", bytes);
  orn::Credentials credentials;
  if (orn::load_credentials({file.c_str(), file.c_str(), file.c_str()}, credentials) != 0) return;
  for (const orn::X509Ptr &certificate : credentials.chain) tell(certificate.get());
}

}  // namespace

FUZZ_TARGET(input) {
  switch (fuzz::take_kind(input)) {
    case 'c':
      read_certificate(input);
      break;
    case 'k':
      read_private_key(input);
      break;
    case 'f':
      read_files(input);
      break;
    default:
      return -1;
  }
  return 0;
}
