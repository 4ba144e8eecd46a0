#include "orn/vesk/wire/key_lifecycle.h"

#include <string>

#include "orn/vesk/skeys/exchange.h"

using namespace vesk;

namespace {

// The batch transactions trace their status on its way.
template <std::size_t kRequestRows, std::size_t kReplyRows>
void transact_batch(Session &session, const wire::Transaction &transaction,
                    const wire::Table<RequestFields, kRequestRows> &request,
                    const wire::Table<KeyRecord, kReplyRows> &reply_table) {
  skeys::begin(session, transaction);
  Wiped<KeyRecord> reply;
  if (!skeys::exchange(session, transaction, request, reply_table, *reply)) return;
  SKEYS_TRACE("i Return Code <%s>", std::to_string(session.iStatus).c_str());
  skeys::conclude(session, reply->caReturnCode);
  if (session.iStatus != 0) SKEYS_TRACE("Override return code <%i>", session.iStatus);
}

}  // namespace

void CreateSymKey(Session *session) {
  skeys::transact(*session, wire::kCreateSymKey, wire::kCreateSymKeyRequest, wire::kCreateSymKeyReply);
}

void AutoGenKeys(Session *session) {
  transact_batch(*session, wire::kAutoGenKeys, wire::kAutoGenKeysRequest, wire::kAutoGenKeysReply);
}

void CreateDB(Session *session) {
  skeys::transact(*session, wire::kCreateDB, wire::kCreateDBRequest, wire::kCreateDBReply);
}

void DeleteKey(Session *session) {
  skeys::transact(*session, wire::kDeleteKey, wire::kDeleteKeyRequest, wire::kDeleteKeyReply);
}

void ChangeDeletable(Session *session) {
  transact_batch(*session, wire::kChangeDeletable, wire::kChangeDeletableRequest, wire::kChangeDeletableReply);
}
