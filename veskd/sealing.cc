#include "veskd/sealing.h"

#include <fmt/format.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>

#include "veskd/errors.h"
#include "veskd/files.h"

namespace veskd {
namespace {

constexpr std::size_t kNonceBytes = 12;
constexpr std::size_t kTagBytes = 16;
static_assert(kNonceBytes + kTagBytes == kSealingBytes);
constexpr std::size_t kKeyFileBytes = 2 * kKeyBytes + 1;

struct ContextFree {
  void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_CIPHER_CTX, ContextFree>;

const std::uint8_t *bytes_of(std::string_view text) {
  return reinterpret_cast<const std::uint8_t *>(text.data());
}

// -1 for what is no hexadecimal digit.
int digit_value(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  return -1;
}

bool parse_hexadecimal(std::string_view digits, std::span<std::uint8_t> bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const int high = digit_value(digits[2 * i]);
    const int low = digit_value(digits[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
  }
  return true;
}

}  // namespace

void read_key_file(const std::filesystem::path &path, KeyValue &value, std::string_view advice) {
  require_private(path);
  const WipedText content(read_file(path));
  if (content.text().size() != kKeyFileBytes || content.text().back() != '\n' ||
      !parse_hexadecimal(content.text(), *value))
    throw StartError(fmt::format("{} does not hold 64 hexadecimal digits and a line end: {}", path.string(), advice));
}

std::unique_ptr<MasterKey> MasterKey::read(const std::filesystem::path &path) {
  auto master = std::make_unique<MasterKey>();
  read_key_file(path, master->key_, "restore the master key from a backup; without it no key of the store can be read");
  return master;
}

// A store without its master key cannot be read; a new key in its place would only hide that.
std::unique_ptr<MasterKey> MasterKey::create(const std::filesystem::path &path) {
  auto master = std::make_unique<MasterKey>();
  fill_with_secret_random(*master->key_);
  master->write(path);
  return master;
}

void MasterKey::write(const std::filesystem::path &path) const {
  std::string digits(kKeyFileBytes, '\n');
  constexpr std::string_view kDigits = "0123456789abcdef";
  for (std::size_t i = 0; i < kKeyBytes; ++i) {
    digits[2 * i] = kDigits[(*key_)[i] >> 4];
    digits[2 * i + 1] = kDigits[(*key_)[i] & 15];
  }
  const WipedText content(std::move(digits));
  create_file(path, content.text(), kPrivateMode);
}

void fill_with_secret_random(std::span<std::uint8_t> bytes) {
  if (RAND_priv_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1)
    throw std::runtime_error("no random bytes: " + openssl_error());
}

Sealer::Sealer(std::span<const std::uint8_t, kKeyBytes> key)
    : cipher_(EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr)) {
  require_openssl(cipher_ != nullptr, "AES-256-GCM is not available");
  std::copy(key.begin(), key.end(), key_->begin());
}

Sealer::~Sealer() {
  EVP_CIPHER_free(cipher_);
}

std::vector<std::uint8_t> Sealer::seal(std::span<const std::uint8_t> value, std::string_view context) const {
  std::vector<std::uint8_t> sealed(kNonceBytes + value.size() + kTagBytes);
  std::uint8_t *ciphertext = sealed.data() + kNonceBytes;
  int length = 0;
  const Context cipher(EVP_CIPHER_CTX_new());
  const bool done =
      cipher && RAND_bytes(sealed.data(), kNonceBytes) == 1 &&
      EVP_EncryptInit_ex2(cipher.get(), cipher_, key_->data(), sealed.data(), nullptr) == 1 &&
      EVP_EncryptUpdate(cipher.get(), nullptr, &length, bytes_of(context), static_cast<int>(context.size())) == 1 &&
      EVP_EncryptUpdate(cipher.get(), ciphertext, &length, value.data(), static_cast<int>(value.size())) == 1 &&
      EVP_EncryptFinal_ex(cipher.get(), ciphertext + length, &length) == 1 &&
      EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_GET_TAG, kTagBytes, ciphertext + value.size()) == 1;
  if (!done) throw std::runtime_error("a value could not be sealed: " + openssl_error());
  return sealed;
}

bool Sealer::unseal(std::span<const std::uint8_t> sealed, std::string_view context,
                    std::span<std::uint8_t> value) const {
  std::fill(value.begin(), value.end(), std::uint8_t{0});
  if (sealed.size() != kNonceBytes + value.size() + kTagBytes) return false;
  const std::uint8_t *ciphertext = sealed.data() + kNonceBytes;
  std::array<std::uint8_t, kTagBytes> tag;
  std::copy_n(sealed.end() - kTagBytes, kTagBytes, tag.begin());
  int length = 0;
  const Context cipher(EVP_CIPHER_CTX_new());
  const bool done =
      cipher && EVP_DecryptInit_ex2(cipher.get(), cipher_, key_->data(), sealed.data(), nullptr) == 1 &&
      EVP_DecryptUpdate(cipher.get(), nullptr, &length, bytes_of(context), static_cast<int>(context.size())) == 1 &&
      EVP_DecryptUpdate(cipher.get(), value.data(), &length, ciphertext, static_cast<int>(value.size())) == 1 &&
      EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_SET_TAG, kTagBytes, tag.data()) == 1 &&
      EVP_DecryptFinal_ex(cipher.get(), value.data() + length, &length) == 1;
  if (!done) {
    OPENSSL_cleanse(value.data(), value.size());
    openssl_error();
  }
  return done;
}

}  // namespace veskd
