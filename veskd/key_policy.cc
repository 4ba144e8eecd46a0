#include "veskd/key_policy.h"

#include <fmt/format.h>

#include "veskd/dates.h"
#include "veskd/fields.h"

namespace veskd {

KeyPolicy policy_of(const RequestFields &fields) {
  return {trimmed(fields.caActivationDate), trimmed(fields.caExpirationDate), trimmed(fields.caRolloverCode),
          trimmed(fields.caRolloverDays),   trimmed(fields.caDeletable),      trimmed(fields.caMirrorKey),
          trimmed(fields.caUserGroupFlag),  trimmed(fields.caUser),           trimmed(fields.caGroup)};
}

// A policy that asks for what the server does not do is refused rather than recorded and forgotten: keys do not roll
// over by themselves.
ReturnCode check_policy(const RequestFields &fields, const KeyPolicy &policy) {
  if (trimmed(fields.caKeySizeBits) != fmt::format("{:04}", kKeySizeBits)) return RC_KEY_SIZE;
  const bool valid = is_date_or_none(policy.activation_date) && is_date_or_none(policy.expiration_date) &&
                     policy.rollover_code == "N" && policy.rollover_days.size() == 4 &&
                     is_all_digits(policy.rollover_days) && is_flag(policy.deletable) && is_flag(policy.mirror);
  return valid ? RC_SUCCESS : RC_POLICY_INVALID;
}

}  // namespace veskd
