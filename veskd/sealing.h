// Sealing: secrets at rest are encrypted with AES-256-GCM, each bound to its context (a key's name and instance, say),
// so that it opens in no other place. The master key, which lives in a file of its own, seals the store's keys, and
// those everything else (veskd/store_keys.h).
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "veskd/secret.h"

struct evp_cipher_st;

namespace veskd {

// Fills the value from a file of 64 hexadecimal digits and a line end, and refuses one that others may read.
// Throws StartError, with the advice for a file of another form.
void read_key_file(const std::filesystem::path &path, KeyValue &value, std::string_view advice);

class MasterKey {
 public:
  // Reads the file, which holds 64 hexadecimal digits and a line end, and refuses one that others may read.
  static std::unique_ptr<MasterKey> read(const std::filesystem::path &path);

  // Makes a new key and its file, which must not exist.
  static std::unique_ptr<MasterKey> create(const std::filesystem::path &path);

  // Makes a further file of the key, which must not exist.
  void write(const std::filesystem::path &path) const;

  std::span<const std::uint8_t, kKeyBytes> bytes() const { return *key_; }

 private:
  KeyValue key_;
};

// A number of random bytes fit for key values.
void fill_with_secret_random(std::span<std::uint8_t> bytes);

// What sealing adds to a value: nonce and tag.
inline constexpr std::size_t kSealingBytes = 28;

class Sealer {
 public:
  // Keeps a copy of the key.
  explicit Sealer(std::span<const std::uint8_t, kKeyBytes> key);
  ~Sealer();
  Sealer(const Sealer &) = delete;
  Sealer &operator=(const Sealer &) = delete;

  // Nonce, ciphertext and tag. Both functions may be called from any thread.
  std::vector<std::uint8_t> seal(std::span<const std::uint8_t> value, std::string_view context) const;

  // Fills value; false, and value zeroed, unless sealed is what seal() gave for a value of that size in that context
  // under this key.
  bool unseal(std::span<const std::uint8_t> sealed, std::string_view context, std::span<std::uint8_t> value) const;

 private:
  KeyValue key_;
  evp_cipher_st *cipher_;
};

}  // namespace veskd
