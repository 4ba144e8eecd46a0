// Certificates and private keys that come from outside: bytes that anyone may have made, until they have been parsed.
#pragma once

#include <string_view>

#include "veskd/certificates.h"

namespace veskd {

// Keys are wrapped under RSA keys of this size; a wrapped value is as long as its modulus.
inline constexpr int kWrappingKeyBits = 2048;

// The certificate that the bytes hold, as PEM or DER, and that alone; null for anything else. A file with a private key
// beside its certificate is refused with the rest: certificates are handed out as they came in.
CertificatePtr parse_certificate(std::string_view bytes);

enum class KeyFault {
  kNone,
  kInvalid,    // no private key, or one whose parts do not fit together
  kEncrypted,  // nobody is there to ask for a passphrase
  kKind,       // nothing can be wrapped with a key of that kind
};

struct ParsedPrivateKey {
  PrivateKeyPtr key;  // null unless there is no fault
  KeyFault fault;
};

// The first private key that the bytes hold, as PEM or DER.
ParsedPrivateKey parse_private_key(std::string_view bytes);

// The key as DER and back. Reading gives null for bytes that are none.
WipedText private_key_der(EVP_PKEY *key);
PrivateKeyPtr read_private_key_der(std::string_view bytes);

// Whether keys can be wrapped with it. Takes null, a certificate whose key is of an unknown kind has none.
bool is_wrapping_key(const EVP_PKEY *key);

// Whether the two belong to the same key pair.
bool is_same_pair(const EVP_PKEY *one, const EVP_PKEY *other);

// For OpenSSL to call when something is encrypted. Nobody is asked for a passphrase, on a terminal that may not be
// there; the bool that it was given, if any, becomes true.
int refuse_passphrase(char *, int, int, void *was_asked);

}  // namespace veskd
