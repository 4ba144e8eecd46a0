#include "veskd/wrapping.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "veskd/errors.h"

namespace veskd {
namespace {

struct Free {
  void operator()(EVP_PKEY_CTX *context) const { EVP_PKEY_CTX_free(context); }
  void operator()(BIGNUM *number) const { BN_free(number); }
};
using ContextPtr = std::unique_ptr<EVP_PKEY_CTX, Free>;
using NumberPtr = std::unique_ptr<BIGNUM, Free>;
using Block = Wiped<WrappedKey>;

void require(bool condition, const char *what) {
  if (!condition) throw std::runtime_error(std::string(what) + ": " + openssl_error());
}

bool set_padding(EVP_PKEY_CTX *context, Padding padding) {
  if (padding == Padding::kPkcs1) return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) == 1;
  return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_OAEP_PADDING) == 1 &&
         EVP_PKEY_CTX_set_rsa_oaep_md(context, EVP_sha256()) == 1 &&
         EVP_PKEY_CTX_set_rsa_mgf1_md(context, EVP_sha256()) == 1;
}

ContextPtr decryption(EVP_PKEY *key) {
  ContextPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
  require(context && EVP_PKEY_decrypt_init(context.get()) == 1, "RSA is not available");
  return context;
}

// Both results are 1 or 0, of arguments below 2^31, and come about without a branch.
unsigned is_zero(unsigned number) {
  return (number - 1U) >> 31;
}

unsigned is_equal(std::size_t one, std::size_t other) {
  return is_zero(static_cast<unsigned>((one ^ other) & 0x7fffffff));
}

// No wrapping gives a number that is not below the modulus, and nothing can be decrypted from it. It is replaced by one
// that can, for the time that takes. Both numbers are public.
unsigned make_decryptable(EVP_PKEY *key, WrappedKey &wrapped) {
  BIGNUM *modulus = nullptr;
  require(EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &modulus) == 1, "the modulus cannot be read");
  const NumberPtr owner(modulus);
  const NumberPtr number(BN_bin2bn(wrapped.data(), static_cast<int>(wrapped.size()), nullptr));
  require(number != nullptr, "no memory for a number");
  if (BN_ucmp(number.get(), modulus) < 0) return 1;
  wrapped[0] &= 0x7f;
  return 0;
}

// OpenSSL's check of OAEP looks at all of the block and does not branch on what it finds.
unsigned decrypt_oaep(EVP_PKEY *key, const WrappedKey &wrapped, WrappedKey &value) {
  const ContextPtr context = decryption(key);
  require(set_padding(context.get(), Padding::kOaep), "OAEP is not available");
  std::size_t length = value.size();
  const int done = EVP_PKEY_decrypt(context.get(), value.data(), &length, wrapped.data(), wrapped.size());
  return is_equal(static_cast<std::size_t>(done), 1) & is_equal(length, kKeyBytes);
}

// 00 02, bytes that are not zero, 00, value: as the value's length is known, each of them has its place, and there is
// nothing to be searched for.
unsigned decrypt_pkcs1(EVP_PKEY *key, const WrappedKey &wrapped, WrappedKey &value) {
  constexpr std::size_t kValueAt = kWrappedBytes - kKeyBytes;
  const ContextPtr context = decryption(key);
  require(EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_NO_PADDING) == 1, "RSA is not available");
  Block block;
  std::size_t length = block->size();
  require(EVP_PKEY_decrypt(context.get(), block->data(), &length, wrapped.data(), wrapped.size()) == 1,
          "a value could not be decrypted");
  unsigned wrong = (*block)[0] | ((*block)[1] ^ 2U) | (*block)[kValueAt - 1];
  for (std::size_t i = 2; i < kValueAt - 1; ++i) wrong |= is_zero((*block)[i]);
  std::copy(block->begin() + kValueAt, block->end(), value.begin());
  return is_zero(wrong);
}

}  // namespace

std::optional<Padding> padding_of(std::string_view mode) {
  if (mode == "1") return Padding::kPkcs1;
  if (mode == "2") return Padding::kOaep;
  return std::nullopt;
}

WrappedKey wrap(EVP_PKEY *public_key, Padding padding, const KeyValue &value) {
  WrappedKey wrapped{};
  std::size_t length = wrapped.size();
  const ContextPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, public_key, nullptr));
  require(context && EVP_PKEY_encrypt_init(context.get()) == 1 && set_padding(context.get(), padding) &&
              EVP_PKEY_encrypt(context.get(), wrapped.data(), &length, value->data(), value->size()) == 1 &&
              length == wrapped.size(),
          "a key could not be wrapped");
  return wrapped;
}

bool unwrap(EVP_PKEY *private_key, Padding padding, std::span<const std::uint8_t, kWrappedBytes> wrapped,
            KeyValue &value) {
  WrappedKey number;
  std::copy(wrapped.begin(), wrapped.end(), number.begin());
  require(RAND_priv_bytes(value->data(), static_cast<int>(value->size())) == 1, "no random bytes");
  unsigned good = make_decryptable(private_key, number);
  Block plain;
  good &= padding == Padding::kOaep ? decrypt_oaep(private_key, number, *plain)
                                    : decrypt_pkcs1(private_key, number, *plain);
  const auto mask = static_cast<std::uint8_t>(0U - good);
  for (std::size_t i = 0; i < kKeyBytes; ++i)
    (*value)[i] = static_cast<std::uint8_t>(((*plain)[i] & mask) | ((*value)[i] & ~mask));
  ERR_clear_error();
  return good == 1;
}

}  // namespace veskd
