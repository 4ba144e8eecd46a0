// How every call that names a template describes it: always a 15-character constant with a 6-digit hexadecimal
// increment, whatever the length of the constant given.
#pragma once

#include "orn/skeys.h"
#include "orn/vesk/wire/text.h"

namespace vesk {

inline void put_template(RequestFields &request, const char *constant) {
  wire::put_padded(request.caConstant, constant);
  wire::put_padded(request.caConstantLen, "15");
  wire::put_padded(request.caIncrementLen, "06");
  wire::put_padded(request.caIncrementCode, "H");
}

}  // namespace vesk
