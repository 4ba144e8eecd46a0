// Key metadata: the sixteen fields of free text that every key carries, and the queries over them.
#pragma once

#include "orn/vesk/wire/metadata_slots.h"

namespace vesk::wire {

inline constexpr std::size_t kMetadataBytes = 64;

inline constexpr Transaction kSetMetadata = transaction("SetMetadata");

inline constexpr auto kSetMetadataRequest = request(
    kSetMetadata,
    joined(
        record<RequestFields>(field<&RequestFields::caKeyName>(9, 40), field<&RequestFields::caInstance>(49, 24)),
        metadata_slots<&RequestFields::caMetadata, 73>()));

inline constexpr auto kSetMetadataReply = reply<KeyRecord>(
    field<&KeyRecord::caKeyName>(13, 40, "Key Name"), field<&KeyRecord::caInstance>(53, 24, "Instance"));

inline constexpr Transaction kRetrieveMetadata = transaction("RetrieveMetadata");

// A criterion: "MD01 EQ 'value'", the value blank-padded. Cut to this with its terminator, which costs a value of more
// than 64 characters its closing quote.
inline constexpr std::size_t kCriterionBytes = 75;
inline constexpr std::size_t kOperators = 8;

struct MetadataPage {
  char caTranLen[6];
  char caTranId[5];
  char caReturnCode[5];
  char caMoreFlag[2];  // "N" on the last page; a blank goes on
  char caDataSize[6];  // 5 more than the bytes of records that follow
};

inline constexpr auto kMetadataPage = reply<MetadataPage>(
    field<&MetadataPage::caMoreFlag>(13, 1, "More Flag"), field<&MetadataPage::caDataSize>(14, 5, "Data Size"));

inline constexpr int kDataSizeOverhead = 5;

// A record of the block behind a page.
inline constexpr auto kMetadataRecord = joined(
    record<KeyRecord>(
        field<&KeyRecord::caKeyName>(0, 40, "Key Name"),
        field<&KeyRecord::caInstance>(40, 24, "Instance"),
        field<&KeyRecord::caCurrent>(64, 1, "Current"),
        field<&KeyRecord::caKeySizeBits>(65, 4, "Key Size Bits"),
        field<&KeyRecord::caKeyCreationDate>(69, 8, "Creation Date"),
        field<&KeyRecord::caActivationDate>(77, 8, "Activation Date"),
        field<&KeyRecord::caExpirationDate>(85, 8, "Expiration Date"),
        field<&KeyRecord::caRolloverCode>(93, 1, "Rollover Code"),
        field<&KeyRecord::caRolloverDays>(94, 4, "Rollover Days"),
        field<&KeyRecord::caLastRolledDate>(98, 8, "Last Rollover Date"),
        field<&KeyRecord::caDeletable>(106, 1, "Deletable"),
        field<&KeyRecord::caRevokedDate>(107, 8, "Revoked Date"),
        field<&KeyRecord::caMirrorKey>(115, 1, "Mirror Key")),
    metadata_slots<&KeyRecord::md, 116, std::size(KeyMetadataSummary{}.md)>());

inline constexpr std::size_t kMetadataRecordBytes = wire_size(kMetadataRecord);
static_assert(kMetadataRecordBytes == 1236);

}  // namespace vesk::wire
