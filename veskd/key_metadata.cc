#include "orn/vesk/wire/key_metadata.h"

#include <fmt/format.h>

#include "orn/vesk/wire/codec.h"
#include "veskd/fields.h"
#include "veskd/handlers.h"
#include "veskd/key_records.h"
#include "veskd/metadata_query.h"
#include "veskd/metadata_records.h"
#include "veskd/paged_list.h"

namespace veskd {

using namespace vesk::wire;

ReturnCode set_metadata(const Call &call, KeyRecord &reply) {
  const auto key = find_key(call.store, trimmed(call.fields.caKeyName));
  if (!key) return RC_KEY_UNKNOWN;
  const std::string instance = trimmed(call.fields.caInstance);
  if (!instance.empty() && !has_instance(call.store, *key, instance)) return RC_INSTANCE_UNKNOWN;
  write_metadata(call.store, *key, call.fields.caMetadata);
  put_padded(reply.caKeyName, key->name);
  put_padded(reply.caInstance, instance.empty() ? key->current_instance : instance);
  return RC_SUCCESS;
}

namespace {

constexpr std::size_t kMaxDataSize = 99999;

constexpr std::string_view kKeysWithMetadata =
    "SELECT fields, name, current_instance, size_bits, creation_date, activation_date, expiration_date, "
    "rollover_code, rollover_days, last_rollover_date, deletable, revoked_date, mirror "
    "FROM keys LEFT JOIN metadata ON key = id ORDER BY name";

// The record of a key that meets the query and is in the client's scope, from a row of the statement above.
std::optional<std::string> metadata_record(const Query &row, const MetadataQuery &query, const Scope &scope) {
  const std::string metadata = row.text(0);
  if (!query.is_met_by(metadata) || !scope.has(row.text(1))) return std::nullopt;
  KeyRecord record{};
  put_padded(record.caKeyName, row.text(1));
  put_padded(record.caInstance, row.text(2));
  put_padded(record.caCurrent, "Y");
  put_padded(record.caKeySizeBits, fmt::format("{:04}", row.number(3)));
  put_padded(record.caKeyCreationDate, row.text(4));
  put_padded(record.caActivationDate, row.text(5));
  put_padded(record.caExpirationDate, row.text(6));
  put_padded(record.caRolloverCode, row.text(7));
  put_padded(record.caRolloverDays, row.text(8));
  put_padded(record.caLastRolledDate, row.text(9));
  put_padded(record.caDeletable, row.text(10));
  put_padded(record.caRevokedDate, row.text(11));
  put_padded(record.caMirrorKey, row.text(12));
  put_metadata(metadata, record.md);
  return write_record(kMetadataRecord, record);
}

std::string page_header(std::size_t block_bytes, bool more) {
  MetadataPage page{};
  put_padded(page.caTranId, kRetrieveMetadata.tran_id);
  put_padded(page.caReturnCode, return_code_text(RC_SUCCESS));
  put_padded(page.caMoreFlag, more ? "Y" : "N");
  put_padded(page.caDataSize, fmt::format("{:05}", block_bytes + kDataSizeOverhead));
  return write_reply(kMetadataPage, page);
}

}  // namespace

Reply retrieve_metadata(const Call &call) {
  const auto query = MetadataQuery::parse(call.text.substr(kLengthDigits + text_in(call.fields.caTranId).size()));
  if (!query) return refusal(kRetrieveMetadata.tran_id, RC_QUERY_FORM);
  return start_list(
      call, kKeysWithMetadata,
      {.tran_id = kRetrieveMetadata.tran_id,
       .entry_bytes = kMetadataRecordBytes,
       .max_block_bytes = kMaxDataSize - kDataSizeOverhead,
       .entry = [query = *query, scope = call.scope](const Query &row) { return metadata_record(row, query, scope); },
       .header = page_header});
}

}  // namespace veskd
