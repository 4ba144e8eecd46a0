// The policy that a request gives to the keys it creates.
#pragma once

#include "orn/skeys.h"
#include "veskd/key_records.h"
#include "veskd/return_codes.h"

namespace veskd {

KeyPolicy policy_of(const RequestFields &fields);

// Whether the server can do what the policy says.
ReturnCode check_policy(const RequestFields &fields, const KeyPolicy &policy);

}  // namespace veskd
