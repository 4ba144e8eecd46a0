// Key lifecycle: creating keys, singly and in batches, creating the key database, deleting keys and making them
// deletable.
#pragma once

#include "orn/vesk/wire/row.h"

namespace vesk::wire {

inline constexpr Transaction kCreateSymKey = transaction("CreateSymKey");

inline constexpr auto kCreateSymKeyRequest = request(
    kCreateSymKey,
    field<&RequestFields::caKeyName>(9, 40),
    field<&RequestFields::caKeySizeBits>(49, 4),
    field<&RequestFields::caActivationDate>(53, 8),
    field<&RequestFields::caExpirationDate>(61, 8),
    field<&RequestFields::caRolloverCode>(69, 1),
    field<&RequestFields::caRolloverDays>(70, 4),
    field<&RequestFields::caDeletable>(74, 1),
    field<&RequestFields::caMirrorKey>(75, 1),
    field<&RequestFields::caUserGroupFlag>(76, 1),
    field<&RequestFields::caUser>(77, 256),
    field<&RequestFields::caGroup>(333, 256));

inline constexpr auto kCreateSymKeyReply = reply<KeyRecord>(
    field<&KeyRecord::caKeyName>(13, 40, "Key Name"), field<&KeyRecord::caInstance>(53, 24, "Instance"));

inline constexpr Transaction kAutoGenKeys = transaction("AutoGenKeys");

inline constexpr auto kAutoGenKeysRequest = request(
    kAutoGenKeys,
    field<&RequestFields::caConstant>(9, 39),
    field<&RequestFields::caIncrementLen>(48, 2),
    field<&RequestFields::caIncrementCode>(50, 1),
    field<&RequestFields::caConstantLen>(51, 2),
    field<&RequestFields::caKeyCount>(53, 5),
    field<&RequestFields::caGenMode>(58, 1),
    field<&RequestFields::caKeySizeBits>(59, 4),
    field<&RequestFields::caActivationDate>(63, 8),
    field<&RequestFields::caExpirationDate>(71, 8),
    field<&RequestFields::caRolloverCode>(79, 1),
    field<&RequestFields::caRolloverDays>(80, 4),
    field<&RequestFields::caDeletable>(84, 1),
    field<&RequestFields::caMirrorKey>(85, 1),
    field<&RequestFields::caUserGroupFlag>(86, 1),
    field<&RequestFields::caUser>(87, 256),
    field<&RequestFields::caGroup>(343, 256));

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
