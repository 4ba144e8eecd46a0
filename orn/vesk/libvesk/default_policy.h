// The policy of every key that the public calls bring into being: 256 bits, deletable, neither dates nor rollover.
#pragma once

#include "orn/skeys.h"
#include "orn/vesk/wire/text.h"

namespace vesk {

inline void put_default_policy(RequestFields &request) {
  wire::put_padded(request.caKeySizeBits, "0256");
  wire::put_padded(request.caActivationDate, "00000000");
  wire::put_padded(request.caExpirationDate, "00000000");
  wire::put_padded(request.caRolloverCode, "N");
  wire::put_padded(request.caRolloverDays, "0000");
  wire::put_padded(request.caDeletable, "Y");
}

}  // namespace vesk
