// Key names: the paged list of all keys.
#pragma once

#include "orn/vesk/wire/list_page.h"

namespace vesk::wire {

inline constexpr Transaction kDisplayKeyNameList = transaction("DisplayKeyNameList");

inline constexpr auto kDisplayKeyNameListRequest = request(kDisplayKeyNameList);

// An entry of the list: a name, blank-padded. Six of its characters are a sequence number, hexadecimal.
inline constexpr std::size_t kKeyNameBytes = 40;
inline constexpr std::size_t kSequenceOffset = 15;
inline constexpr std::size_t kSequenceDigits = 6;

// The highest sequence before any was seen.
inline constexpr std::uint32_t kNoSequence = 0xFFFFFF;

}  // namespace vesk::wire
