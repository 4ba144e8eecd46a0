#include "veskd/handlers.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "orn/vesk/wire/appliance.h"
#include "orn/vesk/wire/certificates.h"
#include "orn/vesk/wire/connectivity.h"
#include "orn/vesk/wire/key_lifecycle.h"
#include "orn/vesk/wire/key_metadata.h"
#include "orn/vesk/wire/key_names.h"
#include "orn/vesk/wire/key_serving.h"
#include "orn/vesk/wire/key_templates.h"
#include "orn/vesk/wire/mirrors.h"
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
  put_padded(record->caTranId, text_in(call.fields.caTranId));
  put_padded(record->caReturnCode, return_code_text(reply.code));
  reply.bytes = WipedText(write_reply(kReply, *record));
  return reply;
}

template <auto kFunction, const auto &kRequest, const auto &kReply>
constexpr Handler handler(const Transaction &transaction, Access access, Roles roles) {
  return {transaction, access, roles, parse<kRequest>, answer<kFunction, kReply>};
}

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
    handler<admin_noop, kAdminNoopRequest, kAdminNoopReply>(kAdminNoop, Access::kReads, kAll),
    handler<create_sym_key, kCreateSymKeyRequest, kCreateSymKeyReply>(kCreateSymKey, Access::kChanges, kKeyUsers),
    handler<display_sym_key_policy, kDisplaySymKeyPolicyRequest, kDisplaySymKeyPolicyReply>(kDisplaySymKeyPolicy,
                                                                                            Access::kReads, kReaders),
    handler<change_deletable, kChangeDeletableRequest, kChangeDeletableReply>(kChangeDeletable, Access::kChanges,
                                                                              kAdministrator),
    handler<delete_key, kDeleteKeyRequest, kDeleteKeyReply>(kDeleteKey, Access::kChanges, kAdministrator),
    handler<import_sym_key, kImportSymKeyRequest, kImportSymKeyReply>(kImportSymKey, Access::kChanges, kAdministrator),
    handler<export_sym_key, kExportSymKeyRequest, kExportSymKeyReply>(kExportSymKey, Access::kReads, kAdministrator),
    Handler{kDisplayKeyNameList, Access::kReads, kReaders, parse<kDisplayKeyNameListRequest>, display_key_name_list},
    handler<set_metadata, kSetMetadataRequest, kSetMetadataReply>(kSetMetadata, Access::kChanges, kKeyUsers),
    Handler{kGetCertificateList, Access::kReads, kInspectors, parse<kGetCertificateListRequest>, get_certificate_list},
    Handler{kRetrieveMetadata, Access::kReads, kReaders, parse_metadata_query, retrieve_metadata},
    handler<create_db, kCreateDBRequest, kCreateDBReply>(kCreateDB, Access::kReads, kAdministrator),
    handler<auto_gen_keys, kAutoGenKeysRequest, kAutoGenKeysReply>(kAutoGenKeys, Access::kChanges, kKeyUsers),
    Handler{kGetPrivateKeyList, Access::kReads, kInspectors, parse<kGetPrivateKeyListRequest>, get_private_key_list},
    handler<get_template_depth, kGetTemplateDepthRequest, kGetTemplateDepthReply>(kGetTemplateDepth, Access::kReads,
                                                                                  kReaders),
    Handler{kGetTemplateList, Access::kReads, kReaders, parse<kGetTemplateListRequest>, get_template_list},
    handler<remove_template, kRemoveTemplateRequest, kRemoveTemplateReply>(kRemoveTemplate, Access::kChanges,
                                                                           kAdministrator),
    with_payload(handler<import_certificate, kImportCertificateRequest, kImportReply>(kImportCertificate,
                                                                                      Access::kChanges, kAdministrator),
                 kMaxCertificateBytes),
    handler<delete_certificate, kDeleteCertificateRequest, kDeleteCertificateReply>(kDeleteCertificate,
                                                                                    Access::kChanges, kAdministrator),
    with_payload(handler<import_private_key, kImportPrivateKeyRequest, kImportReply>(kImportPrivateKey,
                                                                                     Access::kChanges, kAdministrator),
                 kMaxPrivateKeyBytes),
    handler<delete_private_key, kDeletePrivateKeyRequest, kDeletePrivateKeyReply>(kDeletePrivateKey, Access::kChanges,
                                                                                  kAdministrator),
    Handler{kExportCertificate, Access::kReads, kInspectors, parse<kExportCertificateRequest>, export_certificate},
    handler<set_next_increment, kSetNextIncrementRequest, kSetNextIncrementReply>(kSetNextIncrement, Access::kChanges,
                                                                                  kAdministrator),
    handler<retrieve_key, kRetrieveKeyRequest, kRetrieveKeyReply>(kRetrieveKey, Access::kReads, kKeyUsers),
    handler<get_next_key, kGetNextKeyRequest, kGetNextKeyReply>(kGetNextKey, Access::kChanges, kKeyUsers),
    handler<set_mirror_address, kSetMirrorAddressRequest, kSetMirrorAddressReply>(kSetMirrorAddress, Access::kChanges,
                                                                                  kAdministrator),
    handler<get_mirror_address, kGetMirrorAddressRequest, kGetMirrorAddressReply>(kGetMirrorAddress, Access::kReads,
                                                                                  kInspectors),
    handler<remove_mirror_address, kRemoveMirrorAddressRequest, kRemoveMirrorAddressReply>(
        kRemoveMirrorAddress, Access::kChanges, kAdministrator),
    Handler{kListMirrorNames, Access::kReads, kInspectors, parse<kListMirrorNamesRequest>, list_mirror_names},
    handler<get_mirror_status, kGetMirrorStatusRequest, kGetMirrorStatusReply>(kGetMirrorStatus, Access::kChanges,
                                                                               kInspectors),
    handler<get_queue_size, kGetQueueSizeRequest, kGetQueueSizeReply>(kGetQueueSize, Access::kReads, kInspectors),
    handler<force_key_sync, kForceKeySyncRequest, kForceKeySyncReply>(kForceKeySync, Access::kChanges, kAdministrator),
    Handler{kGetSystemStatus, Access::kReads, kInspectors, parse<kGetSystemStatusRequest>, get_system_status},
    handler<report_fips_mode, kReportFipsModeRequest, kReportFipsModeReply>(kReportFipsMode, Access::kReads, kReaders),
    Handler{kValidateDB, Access::kReads, kInspectors, parse<kValidateDBRequest>, validate_db},
    Handler{wire::kReplicateKeys, Access::kChanges, kMirror, parse_replicate_keys, replicate_keys,
            wire::kMaxReplicateKeysBytes},
    handler<compare_keys, wire::kCompareKeysRequest, wire::kCompareKeysReply>(wire::kCompareKeys, Access::kReads,
                                                                              kMirror),
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
