// A 256-bit key as text.
#pragma once

#include <string_view>

#include "veskd/secret.h"

namespace veskd {

inline constexpr std::size_t kBase16Length = 2 * kKeyBytes;
inline constexpr std::size_t kBase64Length = 44;

// False unless the text is such a key and nothing else. Hexadecimal digits may be of either case.
bool decode_base16(std::string_view text, KeyValue &value);
bool decode_base64(std::string_view text, KeyValue &value);

}  // namespace veskd
