#include "veskd/handlers.h"

namespace veskd {

ReturnCode admin_noop(const Call &, KeyRecord &) {
  return RC_SUCCESS;
}

}  // namespace veskd
