// UTF-8 from strangers.
#ifndef ORN_SUPPORT_UTF8_H
#define ORN_SUPPORT_UTF8_H

#include <cstddef>
#include <string>
#include <string_view>

namespace orn {

// The text with control characters, characters that reorder or break lines, and bytes that are no UTF-8 as \XX, cut
// before the first character that would make it longer than most_bytes.
std::string escaped_utf8(std::string_view text, std::size_t most_bytes);

}  // namespace orn

#endif
