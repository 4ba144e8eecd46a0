#include "orn/vesk/wire/key_transfer.h"

#include <fmt/format.h>

#include <algorithm>

#include "veskd/certificate_records.h"
#include "veskd/fields.h"
#include "veskd/handlers.h"
#include "veskd/key_pairs.h"
#include "veskd/key_policy.h"
#include "veskd/key_records.h"
#include "veskd/key_text.h"
#include "veskd/transaction.h"
#include "veskd/wrapping.h"

namespace veskd {

using namespace vesk::wire;

namespace {

static_assert(kWrappedBytes == kTransferValueBytes);

constexpr std::string_view kWrappedFormat = "RSA";

// The value's field of an import. It holds what its format says, and zero bytes up to its end.
std::span<const std::uint8_t, kWrappedBytes> value_field(const Call &call) {
  return std::span<const std::uint8_t, kWrappedBytes>(reinterpret_cast<const std::uint8_t *>(call.fields.caKeyValue),
                                                      kWrappedBytes);
}

ReturnCode unwrap_value(const Call &call, KeyValue &value) {
  const auto padding = padding_of(text_in(call.fields.caRSAPaddingMode));
  if (!padding) return RC_PADDING_MODE;
  const PrivateKeyPtr key = find_private_key(call.store, trimmed(call.fields.caCertificateName));
  if (!key) return RC_PRIVATE_KEY_UNKNOWN;
  return unwrap(key.get(), *padding, value_field(call), value) ? RC_SUCCESS : RC_UNWRAP_FAILED;
}

ReturnCode decode_value(const Call &call, const KeyFormat &format, KeyValue &value) {
  const auto field = value_field(call);
  const std::size_t length = format.bytes_of_256_bits;
  const std::string_view text(call.fields.caKeyValue, length);
  if (std::any_of(field.begin() + static_cast<std::ptrdiff_t>(length), field.end(),
                  [](auto byte) { return byte != 0; }))
    return RC_KEY_VALUE_FORM;
  if (format.name == "BIN") {
    std::copy_n(field.begin(), kKeyBytes, value->begin());
    return RC_SUCCESS;
  }
  const bool decoded = format.name == "B16" ? decode_base16(text, value) : decode_base64(text, value);
  return decoded ? RC_SUCCESS : RC_KEY_VALUE_FORM;
}

ReturnCode take_value(const Call &call, KeyValue &value) {
  const auto format = std::find_if(kKeyFormats.begin(), kKeyFormats.end(),
                                   [&](const KeyFormat &row) { return row.name == trimmed(call.fields.caKeyFormat); });
  if (format == kKeyFormats.end()) return RC_TRANSFER_FORMAT;
  return format->name == kWrappedFormat ? unwrap_value(call, value) : decode_value(call, *format, value);
}

// The public key to wrap under; null, and the reason in code, when there is none.
CertificatePtr wrapping_certificate(const Call &call, ReturnCode &code) {
  code = RC_CERTIFICATE_UNKNOWN;
  const auto bytes = find_certificate(call.store, trimmed(call.fields.caRSAPublicCertName));
  if (!bytes) return nullptr;
  CertificatePtr certificate = parse_certificate(*bytes);
  code = RC_CERTIFICATE_KEY;
  if (!certificate || !is_wrapping_key(X509_get0_pubkey(certificate.get()))) return nullptr;
  code = RC_CERTIFICATE_EXPIRED;
  if (!is_valid_now(certificate.get())) return nullptr;
  return certificate;
}

}  // namespace

ReturnCode import_sym_key(const Call &call, KeyRecord &reply) {
  const std::string name = trimmed(call.fields.caKeyName);
  if (!is_name(name)) return RC_KEY_NAME_INVALID;
  KeyPolicy policy = policy_of(call.fields);
  policy.user_group_flag = std::string("1");  // the request has it as fixed text, with a blank user and group
  if (const ReturnCode code = check_policy(call.fields, policy); code != RC_SUCCESS) return code;
  if (find_key(call.store, name)) return RC_KEY_EXISTS;
  if (was_deleted(call.store, name)) return RC_KEY_NAME_USED;
  KeyValue value;
  const ReturnCode code = take_value(call, value);
  // A wrong value goes the way of a right one up to here, where it is known that the key will not stay.
  if (code != RC_SUCCESS && code != RC_UNWRAP_FAILED) return code;
  const std::string instance = add_key(call.store, name, policy, value);
  put_padded(reply.caKeyName, name);
  put_padded(reply.caInstance, instance);
  return code;
}

ReturnCode export_sym_key(const Call &call, ExportedKey &reply) {
  if (trimmed(call.fields.caKeyFormat) != kWrappedFormat) return RC_TRANSFER_FORMAT;
  const auto padding = padding_of(text_in(call.fields.caRSAPaddingMode));
  if (!padding) return RC_PADDING_MODE;
  const Snapshot snapshot(call.store.database);
  const auto key = find_key(call.store, trimmed(call.fields.caKeyName));
  if (!key) return RC_KEY_UNKNOWN;
  const std::string instance = find_instance(call.store, *key, trimmed(call.fields.caInstance));
  if (instance.empty()) return RC_INSTANCE_UNKNOWN;
  ReturnCode code;
  const CertificatePtr certificate = wrapping_certificate(call, code);
  if (!certificate) return code;
  KeyValue value;
  read_key_value(call.store, *key, instance, value);
  const WrappedKey wrapped = wrap(X509_get0_pubkey(certificate.get()), *padding, value);
  put_padded(reply.caKeyName, key->name);
  put_padded(reply.caInstance, instance);
  put_padded(reply.caKeySizeBits, fmt::format("{:04}", key->size_bits));
  put_padded(reply.caKeyFormat, kWrappedFormat);
  put_padded(reply.caRSAPaddingMode, text_in(call.fields.caRSAPaddingMode));
  put_padded(reply.caKeyValueLen, fmt::format("{:04}", wrapped.size()));
  std::copy(wrapped.begin(), wrapped.end(), reply.caKeyValue);
  return RC_SUCCESS;
}

}  // namespace veskd
