#include <cstring>

#include "orn/vesk/skeys/exchange.h"
#include "orn/vesk/wire/connectivity.h"

using namespace vesk;

void AdminNoop(Session *session, char result[5]) {
  if (result == nullptr) {
    session->iStatus = ERR_NULL_RESULT;
    return;
  }
  std::memset(result, 0, 5);
  skeys::begin(*session, wire::kAdminNoop);
  Wiped<KeyRecord> reply;
  if (!skeys::exchange(*session, wire::kAdminNoop, wire::kAdminNoopRequest, wire::kAdminNoopReply, *reply)) return;
  std::memcpy(result, reply->caReturnCode, sizeof reply->caReturnCode);
  skeys::conclude(*session, reply->caReturnCode);
}
