#include "orn/vesk/wire/key_serving.h"

#include "orn/vesk/skeys/exchange.h"

using namespace vesk;

void RetrieveKey(Session *session, KeyRecord *record) {
  if (record == nullptr) {
    session->iStatus = ERR_NULL_RESULT;
    return;
  }
  *record = {};
  skeys::begin(*session, wire::kRetrieveKey);
  Wiped<KeyRecord> reply;
  if (!skeys::exchange(*session, wire::kRetrieveKey, wire::kRetrieveKeyRequest, wire::kRetrieveKeyReply, *reply))
    return;
  *record = *reply;
  DumpBuffer(0, SKEYS_PATH, __LINE__, reply->caKeyValue, wire::kKeyValueBytes, "Key Value");
  SKEYS_TRACE("Return from RetrieveKey <%i>", session->iStatus);
  SKEYS_TRACE("Return from RetrieveKey <%s>", reply->caReturnCode);
  skeys::conclude(*session, reply->caReturnCode);
}

void DisplaySymKeyPolicy(Session *session) {
  skeys::begin(*session, wire::kDisplaySymKeyPolicy);
  Wiped<KeyRecord> reply;
  if (!skeys::exchange(*session, wire::kDisplaySymKeyPolicy, wire::kDisplaySymKeyPolicyRequest,
                       wire::kDisplaySymKeyPolicyReply, *reply))
    return;
  session->policy = *reply;
  skeys::conclude(*session, reply->caReturnCode);
}

void GetNextKey(Session *session, NextKeyBlock *block) {
  RequestFields &request = session->request;
  skeys::begin(*session, wire::kGetNextKey);
  SKEYS_TRACE("GetNextKey request");
  SKEYS_TRACE("caConstant <%s>", request.caConstant);
  SKEYS_TRACE("caIncrementLen <%s>", request.caIncrementLen);
  SKEYS_TRACE("caIncrementCode <%s>", request.caIncrementCode);
  SKEYS_TRACE("caConstantLen <%s>", request.caConstantLen);
  SKEYS_TRACE("caKeyFormat <%s>", request.caKeyFormat);
  wire::put_padded(request.caTranId, wire::kGetNextKey.tran_id);
  if (!skeys::send_request(*session, wire::kGetNextKeyRequest, skeys::SendLength::kText)) return;

  SKEYS_TRACE("F: %s", wire::kGetNextKey.oversize_name);
  const auto received = skeys::receive(*session, wire::kGetNextKey);
  if (!received) return;
  Wiped<NextKeyBlock> reply;
  wire::copy_field(request.caConstant, reply->caConstant);
  wire::copy_field(request.caIncrementLen, reply->caIncrementLen);
  wire::copy_field(request.caIncrementCode, reply->caIncrementCode);
  wire::copy_field(request.caConstantLen, reply->caConstantLen);
  SKEYS_TRACE("Tran Len <%s>", session->caTranLen);
  skeys::parse(wire::kGetNextKeyReply, *received, *reply);
  DumpBuffer(0, SKEYS_PATH, __LINE__, reply->caKeyValue, 2 * wire::kNextKeyValueBytes, "KeyValue");
  SKEYS_TRACE("Last increment <%s>", reply->caLastIncrement);
  *block = *reply;
  skeys::conclude(*session, reply->caReturnCode);
}
