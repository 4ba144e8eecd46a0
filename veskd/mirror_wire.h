// What servers say to one another, by tables like those of the clients' transactions.
//
// ReplicateKeys carries changes of mirror keys, oldest first, each the key as it is now or the news that it is gone.
// Its reply has a return code for the whole and behind it one for each change. CompareKeys asks for the digest of all
// mirror keys.
#pragma once

#include "orn/vesk/wire/row.h"

namespace veskd::wire {

using vesk::wire::bytes;
using vesk::wire::field;
using vesk::wire::record;
using vesk::wire::Transaction;

inline constexpr Transaction kReplicateKeys{"ReplicateKeys", "9001", "", 60, 0, "ReplicateKeys"};
inline constexpr Transaction kCompareKeys{"CompareKeys", "9003", "00004", 60, 0, "CompareKeys"};

// Which queue of which server the changes come from. They are numbered within it.
inline constexpr std::size_t kOriginOffset = 9;
inline constexpr std::size_t kOriginBytes = 43;
inline constexpr std::size_t kChangesOffset = kOriginOffset + kOriginBytes;

struct ReplicatedChange {
  char caNumber[20];  // decimal
  char caKind[2];
  char caKeyName[41];
  char caInstance[25];
  char caKeySizeBits[5];
  char caKeyCreationDate[9];
  char caActivationDate[9];
  char caExpirationDate[9];
  char caRolloverCode[2];
  char caRolloverDays[5];
  char caLastRolledDate[9];
  char caDeletable[2];
  char caRevokedDate[9];
  char caUserGroupFlag[2];
  char caUser[257];
  char caGroup[257];
  char caMetadata[1025];  // MD01 to MD16
  char caKeyValue[33];
};

inline constexpr char kKeyKind = 'K';
inline constexpr char kDeletionKind = 'D';  // of the fields behind the instance none has a meaning

inline constexpr auto kReplicatedChange = record<ReplicatedChange>(
    field<&ReplicatedChange::caNumber>(0, 19), field<&ReplicatedChange::caKind>(19, 1),
    field<&ReplicatedChange::caKeyName>(20, 40), field<&ReplicatedChange::caInstance>(60, 24),
    field<&ReplicatedChange::caKeySizeBits>(84, 4), field<&ReplicatedChange::caKeyCreationDate>(88, 8),
    field<&ReplicatedChange::caActivationDate>(96, 8), field<&ReplicatedChange::caExpirationDate>(104, 8),
    field<&ReplicatedChange::caRolloverCode>(112, 1), field<&ReplicatedChange::caRolloverDays>(113, 4),
    field<&ReplicatedChange::caLastRolledDate>(117, 8), field<&ReplicatedChange::caDeletable>(125, 1),
    field<&ReplicatedChange::caRevokedDate>(126, 8), field<&ReplicatedChange::caUserGroupFlag>(134, 1),
    field<&ReplicatedChange::caUser>(135, 256), field<&ReplicatedChange::caGroup>(391, 256),
    field<&ReplicatedChange::caMetadata>(647, 1024), bytes<&ReplicatedChange::caKeyValue>(1671, 32));

inline constexpr std::size_t kChangeBytes = vesk::wire::wire_size(kReplicatedChange);
inline constexpr std::size_t kMaxChanges = 32;
inline constexpr std::size_t kMaxReplicateKeysBytes = kChangesOffset + kMaxChanges * kChangeBytes;
static_assert(kMaxReplicateKeysBytes <= 99999, "the length has five digits");

// Where the return codes of the changes begin, four digits each, in the reply.
inline constexpr std::size_t kChangeCodesOffset = 13;
inline constexpr std::size_t kCodeDigits = 4;

struct CompareKeysReply {
  char caTranLen[6];
  char caTranId[5];
  char caReturnCode[5];
  char caDigest[65];  // SHA-256, hexadecimal
  char caNumKeys[11];
};

inline constexpr auto kCompareKeysRequest = vesk::wire::request(kCompareKeys);
inline constexpr auto kCompareKeysReply = vesk::wire::reply<CompareKeysReply>(
    field<&CompareKeysReply::caDigest>(13, 64), field<&CompareKeysReply::caNumKeys>(77, 10));

}  // namespace veskd::wire
