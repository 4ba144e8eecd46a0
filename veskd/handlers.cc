#include "veskd/handlers.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <type_traits>

#include "orn/vesk/wire/appliance.h"
#include "orn/vesk/wire/certificates.h"
#include "orn/vesk/wire/connectivity.h"
#include "orn/vesk/wire/key_lifecycle.h"
#include "orn/vesk/wire/key_metadata.h"
#include "orn/vesk/wire/key_names.h"
#include "orn/vesk/wire/key_serving.h"
#include "orn/vesk/wire/key_templates.h"
#include "orn/vesk/wire/mirrors.h"
#include "veskd/fields.h"
#include "veskd/replicated_keys.h"

namespace veskd {
namespace {

using namespace vesk::wire;

template <const auto &kRequest>
bool parse(std::string_view received, RequestFields &fields) {
  if (!is_well_formed(kRequest, received)) return false;
  read_fields(kRequest, received, fields);
  return true;
}

// The rest of the request has no table: what it holds differs from query to query.
bool parse_metadata_query(std::string_view received, RequestFields &fields) {
  put_padded(fields.caTranId, received.substr(kLengthDigits));
  return true;
}

template <typename>
struct RecordOf;
template <typename Record>
struct RecordOf<ReturnCode (*)(const Call &, Record &)> {
  using Type = Record;
};

// Calls the handler and writes its record by the reply's table; a refusal is the header alone.
template <auto kFunction, const auto &kReply>
Reply answer(const Call &call) {
  using Record = typename RecordOf<decltype(kFunction)>::Type;
  Wiped<Record> record;
  Reply reply;
  reply.code = kFunction(call, *record);
  if (reply.code != RC_SUCCESS) return refusal(text_in(call.fields.caTranId), reply.code);
  // The request names the template, the reply the key.
  if constexpr (std::is_same_v<Record, NextKeyBlock>) reply.outcomes = {{trimmed(record->caKeyName), reply.code}};
  put_padded(record->caTranId, text_in(call.fields.caTranId));
  put_padded(record->caReturnCode, return_code_text(reply.code));
  reply.bytes = WipedText(write_reply(kReply, *record));
  return reply;
}

template <auto kFunction, const auto &kRequest, const auto &kReply>
constexpr Handler handler(const Transaction &transaction, Access access, Roles roles, AuditedObject audited_object) {
  return {transaction, access, roles, audited_object, parse<kRequest>, answer<kFunction, kReply>};
}

template <auto kField>
std::string text_of(const RequestFields &fields) {
  return trimmed(fields.*kField);
}

constexpr AuditedObject kNotAudited = nullptr;
constexpr AuditedObject kAuditsKey = text_of<&RequestFields::caKeyName>;
constexpr AuditedObject kAuditsTemplate = text_of<&RequestFields::caConstant>;
constexpr AuditedObject kAuditsCertificate = text_of<&RequestFields::caCertName>;
constexpr AuditedObject kAuditsMirror = text_of<&RequestFields::caMirrorName>;

constexpr Handler with_payload(Handler row, std::size_t max_payload_bytes) {
  row.max_payload_bytes = max_payload_bytes;
  return row;
}

// Key values go to storage clients and administrators alone, and what destroys or carries out keys is for
// administrators.
constexpr Roles kAll = kStorageClient | kAdministrator | kAuditor | kMirror;
constexpr Roles kKeyUsers = kStorageClient | kAdministrator;
constexpr Roles kReaders = kKeyUsers | kAuditor;
constexpr Roles kInspectors = kAdministrator | kAuditor;

constexpr std::array kHandlers = {
    handler<admin_noop, kAdminNoopRequest, kAdminNoopReply>(kAdminNoop, Access::kReads, kAll, kNotAudited),
    handler<create_sym_key, kCreateSymKeyRequest, kCreateSymKeyReply>(kCreateSymKey, Access::kChanges, kKeyUsers,
                                                                      kAuditsKey),
    handler<display_sym_key_policy, kDisplaySymKeyPolicyRequest, kDisplaySymKeyPolicyReply>(
        kDisplaySymKeyPolicy, Access::kReads, kReaders, kNotAudited),
    handler<change_deletable, kChangeDeletableRequest, kChangeDeletableReply>(kChangeDeletable, Access::kChanges,
                                                                              kAdministrator, kAuditsKey),
    handler<delete_key, kDeleteKeyRequest, kDeleteKeyReply>(kDeleteKey, Access::kChanges, kAdministrator, kAuditsKey),
    handler<import_sym_key, kImportSymKeyRequest, kImportSymKeyReply>(kImportSymKey, Access::kChanges, kAdministrator,
                                                                      kAuditsKey),
    handler<export_sym_key, kExportSymKeyRequest, kExportSymKeyReply>(kExportSymKey, Access::kReads, kAdministrator,
                                                                      kAuditsKey),
    Handler{kDisplayKeyNameList, Access::kReads, kReaders, kNotAudited, parse<kDisplayKeyNameListRequest>,
            display_key_name_list},
    handler<set_metadata, kSetMetadataRequest, kSetMetadataReply>(kSetMetadata, Access::kChanges, kKeyUsers,
                                                                  kAuditsKey),
    Handler{kGetCertificateList, Access::kReads, kInspectors, kNotAudited, parse<kGetCertificateListRequest>,
            get_certificate_list},
    Handler{kRetrieveMetadata, Access::kReads, kReaders, kNotAudited, parse_metadata_query, retrieve_metadata},
    handler<create_db, kCreateDBRequest, kCreateDBReply>(kCreateDB, Access::kReads, kAdministrator, kNotAudited),
    handler<auto_gen_keys, kAutoGenKeysRequest, kAutoGenKeysReply>(kAutoGenKeys, Access::kChanges, kKeyUsers,
                                                                   kAuditsTemplate),
    Handler{kGetPrivateKeyList, Access::kReads, kInspectors, kNotAudited, parse<kGetPrivateKeyListRequest>,
            get_private_key_list},
    handler<get_template_depth, kGetTemplateDepthRequest, kGetTemplateDepthReply>(kGetTemplateDepth, Access::kReads,
                                                                                  kReaders, kNotAudited),
    Handler{kGetTemplateList, Access::kReads, kReaders, kNotAudited, parse<kGetTemplateListRequest>, get_template_list},
    handler<remove_template, kRemoveTemplateRequest, kRemoveTemplateReply>(kRemoveTemplate, Access::kChanges,
                                                                           kAdministrator, kAuditsTemplate),
    with_payload(handler<import_certificate, kImportCertificateRequest, kImportReply>(
                     kImportCertificate, Access::kChanges, kAdministrator, kAuditsCertificate),
                 kMaxCertificateBytes),
    handler<delete_certificate, kDeleteCertificateRequest, kDeleteCertificateReply>(
        kDeleteCertificate, Access::kChanges, kAdministrator, kAuditsCertificate),
    with_payload(handler<import_private_key, kImportPrivateKeyRequest, kImportReply>(
                     kImportPrivateKey, Access::kChanges, kAdministrator, kAuditsCertificate),
                 kMaxPrivateKeyBytes),
    handler<delete_private_key, kDeletePrivateKeyRequest, kDeletePrivateKeyReply>(kDeletePrivateKey, Access::kChanges,
                                                                                  kAdministrator, kAuditsCertificate),
    Handler{kExportCertificate, Access::kReads, kInspectors, kNotAudited, parse<kExportCertificateRequest>,
            export_certificate},
    handler<set_next_increment, kSetNextIncrementRequest, kSetNextIncrementReply>(kSetNextIncrement, Access::kChanges,
                                                                                  kAdministrator, kAuditsTemplate),
    handler<retrieve_key, kRetrieveKeyRequest, kRetrieveKeyReply>(kRetrieveKey, Access::kReads, kKeyUsers, kAuditsKey),
    handler<get_next_key, kGetNextKeyRequest, kGetNextKeyReply>(kGetNextKey, Access::kChanges, kKeyUsers,
                                                                kAuditsTemplate),
    handler<set_mirror_address, kSetMirrorAddressRequest, kSetMirrorAddressReply>(kSetMirrorAddress, Access::kChanges,
                                                                                  kAdministrator, kAuditsMirror),
    handler<get_mirror_address, kGetMirrorAddressRequest, kGetMirrorAddressReply>(kGetMirrorAddress, Access::kReads,
                                                                                  kInspectors, kNotAudited),
    handler<remove_mirror_address, kRemoveMirrorAddressRequest, kRemoveMirrorAddressReply>(
        kRemoveMirrorAddress, Access::kChanges, kAdministrator, kAuditsMirror),
    Handler{kListMirrorNames, Access::kReads, kInspectors, kNotAudited, parse<kListMirrorNamesRequest>,
            list_mirror_names},
    handler<get_mirror_status, kGetMirrorStatusRequest, kGetMirrorStatusReply>(kGetMirrorStatus, Access::kChanges,
                                                                               kInspectors, kNotAudited),
    handler<get_queue_size, kGetQueueSizeRequest, kGetQueueSizeReply>(kGetQueueSize, Access::kReads, kInspectors,
                                                                      kNotAudited),
    handler<force_key_sync, kForceKeySyncRequest, kForceKeySyncReply>(kForceKeySync, Access::kChanges, kAdministrator,
                                                                      kAuditsMirror),
    Handler{kGetSystemStatus, Access::kReads, kInspectors, kNotAudited, parse<kGetSystemStatusRequest>,
            get_system_status},
    handler<report_fips_mode, kReportFipsModeRequest, kReportFipsModeReply>(kReportFipsMode, Access::kReads, kReaders,
                                                                            kNotAudited),
    Handler{kValidateDB, Access::kReads, kInspectors, kNotAudited, parse<kValidateDBRequest>, validate_db},
    Handler{wire::kReplicateKeys, Access::kChanges, kMirror, kAuditsKey, parse_replicate_keys, replicate_keys,
            wire::kMaxReplicateKeysBytes},
    handler<compare_keys, wire::kCompareKeysRequest, wire::kCompareKeysReply>(wire::kCompareKeys, Access::kReads,
                                                                              kMirror, kNotAudited),
};

}  // namespace

const Handler *find_handler(std::string_view tran_id) {
  const auto found = std::find_if(kHandlers.begin(), kHandlers.end(),
                                  [&](const Handler &row) { return row.transaction.tran_id == tran_id; });
  return found == kHandlers.end() ? nullptr : &*found;
}

std::string return_code_text(ReturnCode code) {
  return fmt::format("{:04}", static_cast<int>(code));
}

Reply refusal(std::string_view tran_id, ReturnCode code) {
  Reply reply;
  reply.code = code;
  reply.bytes = WipedText(fmt::format("00008{}{}", tran_id, return_code_text(code)));
  return reply;
}

}  // namespace veskd
