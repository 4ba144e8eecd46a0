#include <fmt/format.h>

#include <algorithm>

#include "orn/vesk/wire/certificates.h"
#include "orn/vesk/wire/codec.h"
#include "veskd/certificate_records.h"
#include "veskd/fields.h"
#include "veskd/handlers.h"
#include "veskd/key_pairs.h"
#include "veskd/paged_list.h"

namespace veskd {

using namespace vesk::wire;

namespace {

// The one certificate type: a certificate to wrap keys under.
constexpr std::string_view kWrappingCertificate = "C";

ReturnCode check_name(const Call &call) {
  return is_name(trimmed(call.fields.caCertName)) ? RC_SUCCESS : RC_CERTIFICATE_NAME_INVALID;
}

ReturnCode check_certificate_name(const Call &call) {
  if (text_in(call.fields.caCertType) != kWrappingCertificate) return RC_CERTIFICATE_TYPE;
  return check_name(call);
}

// Flag Y puts the entry in the place of another of its name, N does not.
ReturnCode check_import(const Call &call, EntryKind kind, ReturnCode exists) {
  const std::string_view flag = text_in(call.fields.caImportFlag);
  if (flag != "Y" && flag != "N") return RC_IMPORT_FLAG;
  return flag == "N" && has_entry(call.store, kind, trimmed(call.fields.caCertName)) ? exists : RC_SUCCESS;
}

// A page, of which the return code is a field: callers read on until a page says that it is the last.
std::string page_of(std::string_view tran_id, ReturnCode code, const std::vector<std::string> &names, bool more) {
  std::string bytes = list_page(tran_id, code, names.size() * kCertificateNameBytes, more);
  for (const std::string &name : names) bytes += fmt::format("{:<{}}", name, kCertificateNameBytes);
  return bytes;
}

// The names behind the one given. Whether another page follows is known by asking for one more. A page at a time, and
// not the store as it was when the list began, because there is a limit to such lists, and callers do not look at the
// return code that tells them of it: they would take the refusal for an empty list.
Reply name_page(StoreConnection &store, EntryKind kind, std::string_view tran_id, std::size_t max_names,
                const std::string &behind) {
  std::vector<std::string> names = list_names(store, kind, behind, max_names + 1);
  const bool more = names.size() > max_names;
  if (more) names.pop_back();
  Reply reply;
  reply.bytes = WipedText(page_of(tran_id, RC_SUCCESS, names, more));
  if (more) {
    reply.next_page = [=, last = names.back()](StoreConnection &reader) {
      return name_page(reader, kind, tran_id, max_names, last);
    };
  }
  return reply;
}

std::size_t names_on_a_page(const Call &call) {
  return std::max<std::size_t>(std::min(call.max_page_bytes, kMaxListCount) / kCertificateNameBytes, 1);
}

}  // namespace

ReturnCode import_certificate(const Call &call, KeyRecord &) {
  if (const ReturnCode code = check_certificate_name(call); code != RC_SUCCESS) return code;
  const ReturnCode allowed = check_import(call, EntryKind::kCertificate, RC_CERTIFICATE_EXISTS);
  if (allowed != RC_SUCCESS) return allowed;
  const ParsedCertificate parsed = parse_wrapping_certificate(call.payload);
  if (!parsed.certificate) return parsed.code;
  const std::string name = trimmed(call.fields.caCertName);
  const PrivateKeyPtr key = find_private_key(call.store, name);
  if (key && !is_same_pair(X509_get0_pubkey(parsed.certificate.get()), key.get())) return RC_PAIR_MISMATCH;
  put_certificate(call.store, name, call.payload);
  return RC_SUCCESS;
}

ReturnCode import_private_key(const Call &call, KeyRecord &) {
  if (const ReturnCode code = check_name(call); code != RC_SUCCESS) return code;
  const ReturnCode allowed = check_import(call, EntryKind::kPrivateKey, RC_PRIVATE_KEY_EXISTS);
  if (allowed != RC_SUCCESS) return allowed;
  const ParsedPrivateKey parsed = parse_private_key(call.payload);
  if (!parsed.key) return parsed.code;
  const std::string name = trimmed(call.fields.caCertName);
  if (const auto bytes = find_certificate(call.store, name)) {
    const CertificatePtr certificate = parse_certificate(*bytes);
    if (!is_same_pair(X509_get0_pubkey(certificate.get()), parsed.key.get())) return RC_PAIR_MISMATCH;
  }
  put_private_key(call.store, name, parsed.key.get());
  return RC_SUCCESS;
}

// The certificate follows the reply, which counts it and leaves it out of its own length.
Reply export_certificate(const Call &call) {
  const std::string_view tran_id = kExportCertificate.tran_id;
  if (const ReturnCode code = check_certificate_name(call); code != RC_SUCCESS) return refusal(tran_id, code);
  const std::string name = trimmed(call.fields.caCertName);
  const auto certificate = find_certificate(call.store, name);
  if (!certificate) return refusal(tran_id, RC_CERTIFICATE_UNKNOWN);
  ExportedCertificate record{};
  put_padded(record.caTranId, tran_id);
  put_padded(record.caReturnCode, return_code_text(RC_SUCCESS));
  put_padded(record.caCertType, kWrappingCertificate);
  put_padded(record.caCertName, name);
  put_padded(record.caCertLength, fmt::format("{:05}", certificate->size()));
  Reply reply;
  reply.bytes = WipedText(write_reply(kExportCertificateReply, record) + *certificate);
  return reply;
}

ReturnCode delete_certificate(const Call &call, KeyRecord &) {
  if (const ReturnCode code = check_certificate_name(call); code != RC_SUCCESS) return code;
  const std::string name = trimmed(call.fields.caCertName);
  if (!has_entry(call.store, EntryKind::kCertificate, name)) return RC_CERTIFICATE_UNKNOWN;
  delete_entry(call.store, EntryKind::kCertificate, name);
  return RC_SUCCESS;
}

ReturnCode delete_private_key(const Call &call, KeyRecord &) {
  if (const ReturnCode code = check_name(call); code != RC_SUCCESS) return code;
  const std::string name = trimmed(call.fields.caCertName);
  if (!has_entry(call.store, EntryKind::kPrivateKey, name)) return RC_PRIVATE_KEY_UNKNOWN;
  delete_entry(call.store, EntryKind::kPrivateKey, name);
  return RC_SUCCESS;
}

// A refusal is a page as well.
Reply get_certificate_list(const Call &call) {
  const std::string_view tran_id = kGetCertificateList.tran_id;
  if (text_in(call.fields.caCertType) == kWrappingCertificate)
    return name_page(call.store, EntryKind::kCertificate, tran_id, names_on_a_page(call), "");
  Reply reply;
  reply.code = RC_CERTIFICATE_TYPE;
  reply.bytes = WipedText(page_of(tran_id, reply.code, {}, false));
  return reply;
}

Reply get_private_key_list(const Call &call) {
  return name_page(call.store, EntryKind::kPrivateKey, kGetPrivateKeyList.tran_id, names_on_a_page(call), "");
}

}  // namespace veskd
