// Key serving: handing keys to storage clients.
#pragma once

#include "orn/vesk/wire/metadata_slots.h"
#include "orn/vesk/wire/row.h"

namespace vesk::wire {

// The value field of a served key. The key itself is its first caKeySizeBits / 8 bytes.
inline constexpr std::size_t kKeyValueBytes = 256;

inline constexpr Transaction kRetrieveKey = transaction("RetrieveKey");

inline constexpr auto kRetrieveKeyRequest = request(
    kRetrieveKey,
    field<&RequestFields::caKeyName>(9, 40),
    field<&RequestFields::caInstance>(49, 24),
    field<&RequestFields::caKeyFormat>(73, 3));

inline constexpr auto kRetrieveKeyReply = reply<KeyRecord>(
    field<&KeyRecord::caKeyName>(13, 40, "Key Name"),
    field<&KeyRecord::caInstance>(53, 24, "Instance"),
    field<&KeyRecord::caLastRolledDate>(77, 8, "Last Rolled Date"),
    field<&KeyRecord::caExpirationDate>(85, 8, "Expiration Date"),
    field<&KeyRecord::caKeySizeBits>(93, 4, "Key size bits"),
    field<&KeyRecord::caKeyFormat>(97, 3, "Key format"),
    bytes<&KeyRecord::caKeyValue>(100, kKeyValueBytes));

inline constexpr Transaction kGetNextKey = transaction("GetNextKey");

// The only request that is as long as its text: a field left short by a NUL shortens it.
inline constexpr auto kGetNextKeyRequest = request(
    kGetNextKey,
    field<&RequestFields::caConstant>(9, 39),
    field<&RequestFields::caIncrementLen>(48, 2),
    field<&RequestFields::caIncrementCode>(50, 1),
    field<&RequestFields::caConstantLen>(51, 2),
    field<&RequestFields::caKeyFormat>(53, 3));

inline constexpr std::size_t kNextKeyValueBytes = 128;

// The block has no room for the length digits, and the last increment is traced behind the key value's dump.
inline constexpr auto kGetNextKeyReply = record<NextKeyBlock>(
    skipped(0, 5),
    field<&NextKeyBlock::caTranId>(5, 4, "Tran Id"),
    field<&NextKeyBlock::caReturnCode>(9, 4, "Return Code"),
    field<&NextKeyBlock::caKeyName>(13, 40, "Key Name"),
    field<&NextKeyBlock::caInstance>(53, 24, "Instance"),
    field<&NextKeyBlock::caLastRolloverDate>(77, 8, "Last rollover date"),
    field<&NextKeyBlock::caExpirationDate>(85, 8, "Expiration date"),
    field<&NextKeyBlock::caKeySizeBits>(93, 4, "Key size bits"),
    field<&NextKeyBlock::caKeyFormat>(97, 3, "Key format"),
    bytes<&NextKeyBlock::caKeyValue>(100, kNextKeyValueBytes),
    field<&NextKeyBlock::caLastIncrement>(228, 40));

inline constexpr Transaction kDisplaySymKeyPolicy = transaction("DisplaySymKeyPolicy");

inline constexpr auto kDisplaySymKeyPolicyRequest =
    request(kDisplaySymKeyPolicy, field<&RequestFields::caKeyName>(9, 40), field<&RequestFields::caInstance>(49, 24));

inline constexpr auto kDisplaySymKeyPolicyReply = joined(
    reply<KeyRecord>(
        field<&KeyRecord::caKeyName>(13, 40, "Key Name"),
        field<&KeyRecord::caInstance>(53, 24, "Instance"),
        field<&KeyRecord::caCurrent>(77, 1, "Current"),
        field<&KeyRecord::caKeySizeBits>(78, 4, "Key size in bits"),
        field<&KeyRecord::caKeyCreationDate>(82, 8, "Key creation date"),
        field<&KeyRecord::caActivationDate>(90, 8, "Activation date"),
        field<&KeyRecord::caExpirationDate>(98, 8, "Expiration date"),
        field<&KeyRecord::caRolloverCode>(106, 1, "Rollover code"),
        field<&KeyRecord::caRolloverDays>(107, 4, "Rollover days"),
        field<&KeyRecord::caLastRolledDate>(111, 8, "Last rollover date"),
        field<&KeyRecord::caDeletable>(119, 1, "Deletable"),
        field<&KeyRecord::caRevokedDate>(120, 8, "Revoked date"),
        field<&KeyRecord::caMirrorKey>(128, 1, "Mirror key"),
        field<&KeyRecord::caPolicyExtra>(129, 14)),
    metadata_slots<&KeyRecord::md, 143>());

}  // namespace vesk::wire
