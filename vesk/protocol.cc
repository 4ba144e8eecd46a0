#include "vesk/protocol.h"

#include <algorithm>
#include <array>
#include <string_view>

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

namespace command {
namespace {

using namespace vesk::wire;

// A table without its record.
template <const auto &kTable>
constexpr auto kFieldsOf = [] {
  std::array<Field, kTable.size()> fields{};
  std::transform(kTable.begin(), kTable.end(), fields.begin(), [](const auto &row) {
    return Field{row.offset, row.width, row.kind, row.literal, row.name};
  });
  return fields;
}();

constexpr auto kReplyHeader = reply<KeyRecord>();

// A metadata query: what stands before its criteria.
constexpr auto kQueryHeader =
    record<RequestFields>(skipped(0, kLengthDigits), field<&RequestFields::caTranId>(kLengthDigits, 4));

constexpr Field text_entry(std::size_t offset, std::size_t width, std::string_view name) {
  return {offset, width, RowKind::kText, {}, name};
}

constexpr std::array kKeyNameEntry = {text_entry(0, kKeyNameBytes, member_name<&RequestFields::caKeyName>())};
constexpr std::array kTemplateEntry = {
    text_entry(0, kTemplateNameBytes, member_name<&RequestFields::caConstant>()),
    Field{kTemplateNameBytes, kTemplateEntryBytes - kTemplateNameBytes, RowKind::kSkipped, {}, {}}};
constexpr std::array kCertificateEntry = {
    text_entry(0, kCertificateNameBytes, member_name<&RequestFields::caCertName>())};
constexpr std::array kMirrorEntry = {text_entry(0, kMirrorNameBytes, member_name<&RequestFields::caMirrorName>())};

// A block of entries behind a page.
constexpr Attachment entries(Fields entry) {
  return {.count = member_name<&ListPage::caListCount>(), .name = "Block", .entry = entry};
}

// A file behind a request. It is the user's, and may hold more than it should: a private key beside its certificate.
constexpr Attachment file(std::string_view name) {
  return {.count = member_name<&RequestFields::caByteCount>(), .name = name, .is_secret = true};
}

constexpr Attachment kMetadataRecords = {.count = member_name<&MetadataPage::caDataSize>(),
                                         .overhead = kDataSizeOverhead,
                                         .name = "Block",
                                         .entry = kFieldsOf<kMetadataRecord>};
constexpr Attachment kSensorData = {.count = member_name<&SystemStatusPage::caListCount>(), .name = "Sensor Data"};
constexpr Attachment kCertificate = {.count = member_name<&ExportedCertificate::caCertLength>(), .name = "Certificate"};
constexpr Attachment kZeroBytes = {.count = {}, .uncounted = kExportSymKeyUncounted, .name = "Zero Bytes"};

template <const auto &kRequest, const auto &kReply>
constexpr Protocol protocol(const Transaction &transaction) {
  return {.transaction = transaction, .request = kFieldsOf<kRequest>, .reply = kFieldsOf<kReply>};
}

template <const auto &kRequest, const auto &kPage>
constexpr Protocol list(const Transaction &transaction, Attachment block) {
  Protocol pages = protocol<kRequest, kPage>(transaction);
  pages.behind_reply = block;
  pages.has_pages = true;
  return pages;
}

constexpr Protocol with(Attachment behind_request, Protocol protocol) {
  protocol.behind_request = behind_request;
  return protocol;
}

constexpr Protocol with(Protocol protocol, Attachment behind_reply) {
  protocol.behind_reply = behind_reply;
  return protocol;
}

constexpr std::array kProtocols = {
    protocol<kAdminNoopRequest, kAdminNoopReply>(kAdminNoop),
    protocol<kCreateSymKeyRequest, kCreateSymKeyReply>(kCreateSymKey),
    protocol<kDisplaySymKeyPolicyRequest, kDisplaySymKeyPolicyReply>(kDisplaySymKeyPolicy),
    protocol<kChangeDeletableRequest, kChangeDeletableReply>(kChangeDeletable),
    protocol<kDeleteKeyRequest, kDeleteKeyReply>(kDeleteKey),
    protocol<kImportSymKeyRequest, kImportSymKeyReply>(kImportSymKey),
    with(kZeroBytes, protocol<kExportSymKeyRequest, kExportSymKeyReply>(kExportSymKey)),
    list<kDisplayKeyNameListRequest, kListPage>(kDisplayKeyNameList, entries(kKeyNameEntry)),
    protocol<kSetMetadataRequest, kSetMetadataReply>(kSetMetadata),
    list<kValidateDBRequest, kValidationPage>(kValidateDB, entries(kFieldsOf<kValidationEntry>)),
    protocol<kReportFipsModeRequest, kReportFipsModeReply>(kReportFipsMode),
    list<kGetCertificateListRequest, kListPage>(kGetCertificateList, entries(kCertificateEntry)),
    list<kQueryHeader, kMetadataPage>(kRetrieveMetadata, kMetadataRecords),
    protocol<kCreateDBRequest, kCreateDBReply>(kCreateDB),
    protocol<kAutoGenKeysRequest, kAutoGenKeysReply>(kAutoGenKeys),
    list<kGetPrivateKeyListRequest, kListPage>(kGetPrivateKeyList, entries(kCertificateEntry)),
    protocol<kGetTemplateDepthRequest, kGetTemplateDepthReply>(kGetTemplateDepth),
    list<kGetTemplateListRequest, kListPage>(kGetTemplateList, entries(kTemplateEntry)),
    protocol<kRemoveTemplateRequest, kRemoveTemplateReply>(kRemoveTemplate),
    protocol<kGetMirrorAddressRequest, kGetMirrorAddressReply>(kGetMirrorAddress),
    protocol<kSetMirrorAddressRequest, kSetMirrorAddressReply>(kSetMirrorAddress),
    protocol<kRemoveMirrorAddressRequest, kRemoveMirrorAddressReply>(kRemoveMirrorAddress),
    list<kListMirrorNamesRequest, kListPage>(kListMirrorNames, entries(kMirrorEntry)),
    protocol<kGetMirrorStatusRequest, kGetMirrorStatusReply>(kGetMirrorStatus),
    list<kGetSystemStatusRequest, kSystemStatusPage>(kGetSystemStatus, kSensorData),
    with(file("Certificate"), protocol<kImportCertificateRequest, kImportReply>(kImportCertificate)),
    protocol<kDeleteCertificateRequest, kDeleteCertificateReply>(kDeleteCertificate),
    with(file("Private Key"), protocol<kImportPrivateKeyRequest, kImportReply>(kImportPrivateKey)),
    protocol<kDeletePrivateKeyRequest, kDeletePrivateKeyReply>(kDeletePrivateKey),
    protocol<kGetQueueSizeRequest, kGetQueueSizeReply>(kGetQueueSize),
    protocol<kForceKeySyncRequest, kForceKeySyncReply>(kForceKeySync),
    with(protocol<kExportCertificateRequest, kExportCertificateReply>(kExportCertificate), kCertificate),
    protocol<kSetNextIncrementRequest, kSetNextIncrementReply>(kSetNextIncrement),
    protocol<kRetrieveKeyRequest, kRetrieveKeyReply>(kRetrieveKey),
    protocol<kGetNextKeyRequest, kGetNextKeyReply>(kGetNextKey),
};
static_assert(kProtocols.size() == kTransactions.size());

// By the length of a record it can be told whether it is a request.
static_assert(std::none_of(kProtocols.begin(), kProtocols.end(), [](const Protocol &known) {
  const std::size_t request = kLengthDigits + known.transaction.declared_length();
  return request == end_of(known.reply) || request == wire_size(kReplyHeader);
}));

template <typename Predicate>
const Protocol *find(Predicate is_it) {
  const auto *found = std::find_if(kProtocols.begin(), kProtocols.end(), is_it);
  return found == kProtocols.end() ? nullptr : found;
}

bool holds_secrets(Fields fields) {
  return std::any_of(fields.begin(), fields.end(), [](const Field &field) { return field.kind == RowKind::kBytes; });
}

}  // namespace

const Fields kHeader = kFieldsOf<kReplyHeader>;

std::string_view tran_id_of(std::string_view record) {
  const Field &field = kHeader[1];
  return record.substr(std::min(field.offset, record.size()), field.width);
}

const Protocol *find_protocol(std::string_view tran_id) {
  return find([&](const Protocol &known) { return known.transaction.tran_id == tran_id; });
}

const Protocol *find_protocol_of_function(std::string_view function) {
  return find([&](const Protocol &known) { return known.transaction.function == function; });
}

bool is_secret(const Protocol *protocol, Direction direction, std::size_t offset) {
  if (protocol == nullptr) return true;
  const bool is_sent = direction == Direction::kSent;
  const Fields fields = is_sent ? protocol->request : protocol->reply;
  if (offset >= end_of(fields)) {
    return holds_secrets(fields) || (is_sent ? protocol->behind_request : protocol->behind_reply).is_secret;
  }
  return std::any_of(fields.begin(), fields.end(), [&](const Field &field) {
    return field.kind == RowKind::kBytes && offset >= field.offset && offset < field.end();
  });
}

}  // namespace command
