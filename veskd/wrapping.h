// Wrapping: a 256-bit key encrypted under the RSA key of a certificate, so that only the holder of the private key can
// read it.
#pragma once

#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "veskd/secret.h"

namespace veskd {

inline constexpr std::size_t kWrappedBytes = 256;
using WrappedKey = std::array<std::uint8_t, kWrappedBytes>;

enum class Padding {
  kPkcs1,  // PKCS#1 v1.5
  kOaep,   // OAEP with SHA-256, and MGF1 with SHA-256
};

// By the protocol's padding mode; nothing for a character that is none.
std::optional<Padding> padding_of(std::string_view mode);

// Throws std::runtime_error. The key must be one that keys can be wrapped with (is_wrapping_key).
WrappedKey wrap(EVP_PKEY *public_key, Padding padding, const KeyValue &value);

// False, and value random, unless wrapped is a 256-bit key wrapped for that key in that way.
//
// Who sends wrong values and can tell what was wrong with them, be it by the time that the answer took, learns to read
// right ones. So the same is done with every value: one decryption, one check that looks at all of it, one selection
// without a branch. The caller goes on with the random value as with any other, and refuses at the end.
bool unwrap(EVP_PKEY *private_key, Padding padding, std::span<const std::uint8_t, kWrappedBytes> wrapped,
            KeyValue &value);

}  // namespace veskd
