// Key lifecycle: creating keys, singly and in batches, creating the key database, deleting keys and making them
// deletable.
#pragma once

#include "orn/vesk/wire/policy_fields.h"

namespace vesk::wire {

inline constexpr Transaction kCreateSymKey = transaction("CreateSymKey");

inline constexpr auto kCreateSymKeyRequest = request(
    kCreateSymKey,
    joined(record<RequestFields>(field<&RequestFields::caKeyName>(9, 40)), kPolicyFields<49>, kOwnerFields<76>));

inline constexpr auto kCreateSymKeyReply = reply<KeyRecord>(
    field<&KeyRecord::caKeyName>(13, 40, "Key Name"), field<&KeyRecord::caInstance>(53, 24, "Instance"));

inline constexpr Transaction kAutoGenKeys = transaction("AutoGenKeys");

inline constexpr auto kAutoGenKeysRequest = request(
    kAutoGenKeys,
    joined(
        record<RequestFields>(
            field<&RequestFields::caConstant>(9, 39),
            field<&RequestFields::caIncrementLen>(48, 2),
            field<&RequestFields::caIncrementCode>(50, 1),
            field<&RequestFields::caConstantLen>(51, 2),
            field<&RequestFields::caKeyCount>(53, 5),
            field<&RequestFields::caGenMode>(58, 1)),
        kPolicyFields<59>,
        kOwnerFields<86>));

inline constexpr auto kAutoGenKeysReply = reply<KeyRecord>();

inline constexpr Transaction kCreateDB = transaction("CreateDB");

// The operation is named a second time, as a word.
inline constexpr auto kCreateDBRequest = request(kCreateDB, lit(9, "CreateDB"));

inline constexpr auto kCreateDBReply = reply<KeyRecord>();

inline constexpr Transaction kDeleteKey = transaction("DeleteKey");

inline constexpr auto kDeleteKeyRequest = request(kDeleteKey, field<&RequestFields::caKeyName>(9, 40));

struct DeleteKeyReply {
  char caTranLen[6];
  char caTranId[5];
  char caReturnCode[5];
  char caKeyName[41];
  char caDeletedDate[9];
};

inline constexpr auto kDeleteKeyReply = reply<DeleteKeyReply>(
    field<&DeleteKeyReply::caKeyName>(13, 40, "Key Name"),
    field<&DeleteKeyReply::caDeletedDate>(53, 8, "Deleted Date"));

inline constexpr Transaction kChangeDeletable = transaction("ChangeDeletable");

inline constexpr auto kChangeDeletableRequest = request(
    kChangeDeletable,
    field<&RequestFields::caKeyName>(9, 40),
    field<&RequestFields::caInstance>(49, 24),
    field<&RequestFields::caDeletable>(73, 1));

inline constexpr auto kChangeDeletableReply = reply<KeyRecord>();

}  // namespace vesk::wire
