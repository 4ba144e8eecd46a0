// Certificates and private keys that come from outside: bytes that anyone may have made, until they have been parsed.
#pragma once

#include <string_view>

#include "veskd/certificates.h"
#include "veskd/return_codes.h"

namespace veskd {

// Keys are wrapped under RSA keys of this size; a wrapped value is as long as its modulus.
inline constexpr int kWrappingKeyBits = 2048;

// The certificate that the bytes hold, as PEM or DER, and that alone; null for anything else. A file with a private key
// beside its certificate is refused with the rest: certificates are handed out as they came in.
CertificatePtr parse_certificate(std::string_view bytes);

struct ParsedCertificate {
  CertificatePtr certificate;  // null unless the code is RC_SUCCESS
  ReturnCode code;
};

// The same, and keys can be wrapped under it that nobody reads but who has its private key: with an exponent of 1, or a
// modulus that is prime or has a small factor, everybody would.
ParsedCertificate parse_wrapping_certificate(std::string_view bytes);

struct ParsedPrivateKey {
  PrivateKeyPtr key;  // null unless the code is RC_SUCCESS
  ReturnCode code;
};

// The first private key that the bytes hold, as PEM or DER. Its parts fit together, and it unwraps keys.
ParsedPrivateKey parse_private_key(std::string_view bytes);

// The key as DER and back. Reading gives null for bytes that are none.
WipedText private_key_der(EVP_PKEY *key);
PrivateKeyPtr read_private_key_der(std::string_view bytes);

// Whether keys can be wrapped with it. Takes null, a certificate whose key is of an unknown kind has none.
bool is_wrapping_key(const EVP_PKEY *key);

// Whether the two belong to the same key pair.
bool is_same_pair(const EVP_PKEY *one, const EVP_PKEY *other);

}  // namespace veskd
