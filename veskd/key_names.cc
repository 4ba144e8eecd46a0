#include "orn/vesk/wire/key_names.h"

#include "veskd/handlers.h"
#include "veskd/paged_list.h"

namespace veskd {

using namespace vesk::wire;

Reply display_key_name_list(const Call &call) {
  return start_name_list(call, kDisplayKeyNameList.tran_id, "SELECT name FROM keys ORDER BY name", kKeyNameBytes);
}

}  // namespace veskd
