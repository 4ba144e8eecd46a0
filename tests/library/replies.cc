#include "tests/library/replies.h"

#include <map>

#include "orn/vesk/wire/appliance.h"
#include "orn/vesk/wire/certificates.h"
#include "orn/vesk/wire/connectivity.h"
#include "orn/vesk/wire/key_lifecycle.h"
#include "orn/vesk/wire/key_metadata.h"
#include "orn/vesk/wire/key_names.h"
#include "orn/vesk/wire/key_serving.h"
#include "orn/vesk/wire/key_templates.h"
#include "orn/vesk/wire/key_transfer.h"
#include "orn/vesk/wire/mirrors.h"
#include "tests/library/wire_text.h"

namespace {

using namespace vesk;
using wire::Row;
using wire::RowKind;

constexpr std::size_t kHeaderBytes = 13;  // length digits, identifier and return code
constexpr std::size_t kNumEntries = 2;

template <typename Record>
ReplyField field_of(const Row<Record> &row) {
  return {row.offset, row.width, row.kind};
}

// The row that carries a field of the record, if one does.
template <typename Record, std::size_t kRows>
std::optional<ReplyField> find(const wire::Table<Record, kRows> &table, Record &record, const char *slot) {
  for (const Row<Record> &row : table) {
    if (row.slot != nullptr && row.slot(record).data() == slot) return field_of(row);
  }
  return std::nullopt;
}

template <typename Record, std::size_t kRows>
ReplyShape plain(const wire::Table<Record, kRows> &table) {
  ReplyShape shape;
  for (const Row<Record> &row : table) shape.fields.push_back(field_of(row));
  Record record;
  if constexpr (requires { record.caKeyName; }) shape.key_name = find(table, record, record.caKeyName);
  return shape;
}

// A reply with entries, or single bytes, behind it.
template <typename Record, std::size_t kRows>
ReplyShape with_entries(const wire::Table<Record, kRows> &table, std::size_t entry_bytes, int count_overhead = 0) {
  ReplyShape shape = plain(table);
  Record record;
  if constexpr (requires { record.caMoreFlag; }) shape.more_flag = find(table, record, record.caMoreFlag);
  if constexpr (requires { record.caListCount; }) shape.count = find(table, record, record.caListCount);
  if constexpr (requires { record.caDataSize; }) shape.count = find(table, record, record.caDataSize);
  if constexpr (requires { record.caCertLength; }) shape.count = find(table, record, record.caCertLength);
  shape.entry_bytes = entry_bytes;
  shape.count_overhead = count_overhead;
  return shape;
}

const std::map<std::string_view, ReplyShape> &shapes() {
  static const std::map<std::string_view, ReplyShape> kShapes = {
      {"AdminNoop", plain(wire::kAdminNoopReply)},
      {"CreateSymKey", plain(wire::kCreateSymKeyReply)},
      {"DisplaySymKeyPolicy", plain(wire::kDisplaySymKeyPolicyReply)},
      {"ChangeDeletable", plain(wire::kChangeDeletableReply)},
      {"DeleteKey", plain(wire::kDeleteKeyReply)},
      {"ImportSymKey", plain(wire::kImportSymKeyReply)},
      {"ExportSymKey", plain(wire::kExportSymKeyReply)},
      {"DisplayKeyNameList", with_entries(wire::kListPage, wire::kKeyNameBytes)},
      {"SetMetadata", plain(wire::kSetMetadataReply)},
      {"ValidateDB", with_entries(wire::kValidationPage, wire::kValidationEntryBytes)},
      {"ReportFipsMode", plain(wire::kReportFipsModeReply)},
      {"GetCertificateList", with_entries(wire::kListPage, wire::kCertificateNameBytes)},
      {"RetrieveMetadata", with_entries(wire::kMetadataPage, wire::kMetadataRecordBytes, wire::kDataSizeOverhead)},
      {"CreateDB", plain(wire::kCreateDBReply)},
      {"AutoGenKeys", plain(wire::kAutoGenKeysReply)},
      {"GetPrivateKeyList", with_entries(wire::kListPage, wire::kCertificateNameBytes)},
      {"GetTemplateDepth", plain(wire::kGetTemplateDepthReply)},
      {"GetTemplateList", with_entries(wire::kListPage, wire::kTemplateEntryBytes)},
      {"RemoveTemplate", plain(wire::kRemoveTemplateReply)},
      {"GetMirrorAddress", plain(wire::kGetMirrorAddressReply)},
      {"SetMirrorAddress", plain(wire::kSetMirrorAddressReply)},
      {"RemoveMirrorAddress", plain(wire::kRemoveMirrorAddressReply)},
      {"ListMirrorNames", with_entries(wire::kListPage, wire::kMirrorNameBytes)},
      {"GetMirrorStatus", plain(wire::kGetMirrorStatusReply)},
      {"GetSystemStatus", with_entries(wire::kSystemStatusPage, 1)},
      {"ImportCertificate", plain(wire::kImportReply)},
      {"DeleteCertificate", plain(wire::kDeleteCertificateReply)},
      {"ImportPrivateKey", plain(wire::kImportReply)},
      {"DeletePrivateKey", plain(wire::kDeletePrivateKeyReply)},
      {"GetQueueSize", plain(wire::kGetQueueSizeReply)},
      {"ForceKeySync", plain(wire::kForceKeySyncReply)},
      {"ExportCertificate", with_entries(wire::kExportCertificateReply, 1)},
      {"SetNextIncrement", plain(wire::kSetNextIncrementReply)},
      {"RetrieveKey", plain(wire::kRetrieveKeyReply)},
      {"GetNextKey", plain(wire::kGetNextKeyReply)},
  };
  return kShapes;
}

}  // namespace

const ReplyShape &reply_shape(std::string_view function) {
  return shapes().at(function);
}

void put_field(std::string &reply, const ReplyField &field, std::string_view value) {
  reply.replace(field.offset, field.width, padded(value, field.width));
}

std::string whole_reply(const ReplyShape &shape, std::string_view tran_id, char filler) {
  std::string reply = framed(std::string(tran_id) + "0000" + std::string(shape.bytes() - kHeaderBytes, filler));
  if (shape.key_name) put_field(reply, *shape.key_name, "K1");
  if (shape.more_flag) put_field(reply, *shape.more_flag, "N");
  if (!shape.count) return reply;
  const std::size_t block_bytes = kNumEntries * shape.entry_bytes;
  put_field(reply, *shape.count, std::to_string(static_cast<int>(block_bytes) + shape.count_overhead));
  return reply + std::string(block_bytes, filler);
}
