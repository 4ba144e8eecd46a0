#include "veskd/key_text.h"

#include <openssl/evp.h>

#include <algorithm>

#include "veskd/errors.h"

namespace veskd {

bool decode_base16(std::string_view text, KeyValue &value) {
  if (text.size() != kBase16Length) return false;
  Wiped<std::array<char, kBase16Length + 1>> digits;
  text.copy(digits->data(), kBase16Length);
  std::size_t length = 0;
  const bool decoded = OPENSSL_hexstr2buf_ex(value->data(), value->size(), &length, digits->data(), '\0') == 1;
  openssl_error();
  return decoded && length == kKeyBytes;
}

// OpenSSL decodes the padding like a digit that is zero, wherever it stands.
bool decode_base64(std::string_view text, KeyValue &value) {
  if (text.size() != kBase64Length || text.find('=') != kBase64Length - 1) return false;
  Wiped<std::array<unsigned char, kKeyBytes + 1>> bytes;
  const auto *digits = reinterpret_cast<const unsigned char *>(text.data());
  if (EVP_DecodeBlock(bytes->data(), digits, static_cast<int>(text.size())) != kKeyBytes + 1) return false;
  std::copy_n(bytes->begin(), kKeyBytes, value->begin());
  return bytes->back() == 0;
}

}  // namespace veskd
