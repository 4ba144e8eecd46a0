// Owners of secret bytes: wiped when they go out of scope, never copied.
#pragma once

#include <openssl/crypto.h>

#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "orn/vesk/wiped.h"

namespace veskd {

using vesk::Wiped;

inline constexpr std::size_t kKeyBytes = 32;
using KeyValue = Wiped<std::array<std::uint8_t, kKeyBytes>>;

// Bytes that may hold a key value. Only its owner changes: the text itself does not grow, which would leave a copy.
class WipedText {
 public:
  WipedText() = default;
  explicit WipedText(std::string text) : text_(std::move(text)) {}
  WipedText(WipedText &&other) noexcept { *this = std::move(other); }
  WipedText &operator=(WipedText &&other) noexcept {
    text_.swap(other.text_);
    other.wipe();
    return *this;
  }
  WipedText(const WipedText &) = delete;
  WipedText &operator=(const WipedText &) = delete;
  ~WipedText() { wipe(); }

  std::string &text() { return text_; }
  const std::string &text() const { return text_; }

 private:
  void wipe() {
    OPENSSL_cleanse(text_.data(), text_.size());
    text_.clear();
  }
  std::string text_;
};

}  // namespace veskd
