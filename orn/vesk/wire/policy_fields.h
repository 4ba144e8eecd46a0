// The policy that a request gives to the keys it makes: the same fields in the same order wherever they stand.
#pragma once

#include "orn/vesk/wire/row.h"

namespace vesk::wire {

template <std::size_t kOffset>
inline constexpr auto kPolicyFields = record<RequestFields>(
    field<&RequestFields::caKeySizeBits>(kOffset, 4),
    field<&RequestFields::caActivationDate>(kOffset + 4, 8),
    field<&RequestFields::caExpirationDate>(kOffset + 12, 8),
    field<&RequestFields::caRolloverCode>(kOffset + 20, 1),
    field<&RequestFields::caRolloverDays>(kOffset + 21, 4),
    field<&RequestFields::caDeletable>(kOffset + 25, 1),
    field<&RequestFields::caMirrorKey>(kOffset + 26, 1));

// Whose key it is, behind the policy.
template <std::size_t kOffset>
inline constexpr auto kOwnerFields = record<RequestFields>(
    field<&RequestFields::caUserGroupFlag>(kOffset, 1),
    field<&RequestFields::caUser>(kOffset + 1, 256),
    field<&RequestFields::caGroup>(kOffset + 257, 256));

}  // namespace vesk::wire
