// Connectivity check: the smallest transaction.
#pragma once

#include "orn/vesk/wire/row.h"

namespace vesk::wire {

inline constexpr Transaction kAdminNoop = transaction("AdminNoop");

inline constexpr auto kAdminNoopRequest = request(kAdminNoop);

inline constexpr auto kAdminNoopReply = reply<KeyRecord>();

}  // namespace vesk::wire
