#include "orn/vesk/wire/key_transfer.h"

#include "orn/vesk/skeys/export_file.h"
#include "orn/vesk/skeys/input_file.h"

using namespace vesk;

namespace {

// Opens the file that the value is in, if there is one.
bool open_import_file(Session &session, skeys::InputFile &file) {
  if (wire::to_int(wire::text_in(session.request.caFilePathLen)) < 1) {
    SKEYS_TRACE("No Import File Specified, using data buffer");
    return true;
  }
  SKEYS_TRACE("Import File Name <%s>", session.caFilePath);
  if (file.open(session.caFilePath)) return true;
  const skeys::ErrorText reason;
  session.iStatus = ERR_IMPORT_FILE_OPEN;
  SKEYS_TRACE("ImportSymKey ERR <%d> Error opening import file <%s>", session.iStatus, session.caFilePath);
  SKEYS_TRACE("<%s>", reason.c_str());
  return false;
}

// How many bytes the value takes, or nothing when its format is unknown.
std::optional<std::size_t> value_bytes(Session &session) {
  const RequestFields &request = session.request;
  const auto format = std::ranges::find(wire::kKeyFormats, wire::text_in(request.caKeyFormat), &wire::KeyFormat::name);
  if (format == wire::kKeyFormats.end()) {
    SKEYS_TRACE("Unknown Format <%s>", request.caKeyFormat);
    session.iStatus = ERR_IMPORT_KEY_FORMAT;
    return std::nullopt;
  }
  SKEYS_TRACE("iFormat <%d>", static_cast<int>(format - wire::kKeyFormats.begin()) + 1);
  const int bits = wire::to_int(wire::text_in(request.caKeySizeBits));
  SKEYS_TRACE("iKeySizeBits <%d>", bits);
  SKEYS_TRACE("%s", format->description);
  return format->value_bytes(bits);
}

// Fills value from the file, which must hold that much, and closes it.
bool read_value(Session &session, skeys::InputFile &file, std::span<char> value) {
  const std::size_t count = file.read(value);
  if (count < value.size()) {
    session.iStatus = ERR_IMPORT_FILE_READ;
    SKEYS_TRACE("ImportSymKey ERR <%d> fread returned <%d> items", session.iStatus, static_cast<int>(count));
    SKEYS_TRACE(" instead of <%d>", static_cast<int>(value.size()));
    SKEYS_TRACE(" ferror returned <%d>", file.error_indicator());
    SKEYS_TRACE(" feof returned <%d>", file.end_indicator());
    return false;
  }
  errno = 0;
  if (file.close()) return true;
  const skeys::ErrorText reason;
  session.iStatus = ERR_IMPORT_FILE_CLOSE;
  SKEYS_TRACE("ImportSymKey ERR <%d> fclose failed for file <%s>", session.iStatus, session.caFilePath);
  SKEYS_TRACE("<%s>", reason.c_str());
  return false;
}

// Fills value from the file or, without one, from the request area, whose value is not dumped.
bool take_value(Session &session, skeys::InputFile &file, std::span<char> value) {
  std::size_t dumped = 0;
  if (file.is_open()) {
    if (!read_value(session, file, value)) return false;
    dumped = value.size();
  } else {
    SKEYS_TRACE("Using data from buffer");
    std::copy_n(session.request.caKeyValue, value.size(), value.begin());
  }
  DumpBuffer(0, SKEYS_PATH, __LINE__, value.data(), static_cast<int>(dumped), "caKeyValue");
  return true;
}

// The request has its full length whatever the value takes: zero bytes make up for the rest.
bool send_import(Session &session, std::span<const char> value) {
  Wiped<skeys::RequestBuffer> buffer;
  wire::Appender request(*buffer);
  append_request(wire::kImportSymKeyHead, session.request, request);
  request.append_bytes({value.data(), value.size()});
  return skeys::send_bytes(session, std::span(*buffer).first(wire_size(wire::kImportSymKeyRequest)));
}

void trace_export_request(const Session &session) {
  const RequestFields &request = session.request;
  SKEYS_TRACE("Tran Len <%s>", session.caTranLen);  // of a reply: there is none yet
  SKEYS_TRACE("Tran Id <%s>", request.caTranId);
  SKEYS_TRACE("Key Name <%s>", request.caKeyName);
  SKEYS_TRACE("Instance <%s>", request.caInstance);
  SKEYS_TRACE("Format <%s>", request.caKeyFormat);
  SKEYS_TRACE("RSA Public Cert Name <%s>", request.caRSAPublicCertName);
  SKEYS_TRACE("RSA Padding Mode <%s>", request.caRSAPaddingMode);
  SKEYS_TRACE("Export File Path len <%s>", request.caFilePathLen);
  SKEYS_TRACE("EI File Path <%s>", session.caFilePath);
  SKEYS_TRACE("Transaction Length <%s>", wire::kExportSymKey.length.data());
}

bool send_export(Session &session) {
  Wiped<skeys::RequestBuffer> buffer;
  wire::Appender request(*buffer);
  append_request(wire::kExportSymKeyRequest, session.request, request);
  constexpr std::size_t kSent = wire_size(wire::kExportSymKeyRequest) + wire::kExportSymKeyUncounted;
  return skeys::send_bytes(session, std::span(*buffer).first(kSent));
}

// Dumps as many bytes as the value has, but those that follow it in the reply: a log never holds an exported key.
void dump_behind_value(const Session &session, std::size_t length) {
  constexpr std::size_t kReplyBytes = wire_size(wire::kExportSymKeyReply);
  static_assert(kReplyBytes + wire::kMaxExportedBytes <= sizeof session.caRspBuf);
  DumpBuffer(0, SKEYS_PATH, __LINE__, session.caRspBuf + kReplyBytes, static_cast<int>(length), "Key value");
}

// Writes as many bytes as the reply declares: the value, then zero bytes.
bool write_value(skeys::ExportFile &file, const wire::ExportedKey &key, std::size_t length) {
  Wiped<std::array<char, wire::kMaxExportedBytes>> bytes;
  std::ranges::copy(key.caKeyValue, bytes->begin());
  return file.write(std::span(*bytes).first(length));
}

}  // namespace

void ImportSymKey(Session *session) {
  skeys::begin(*session, wire::kImportSymKey);
  skeys::InputFile file;
  if (!open_import_file(*session, file)) return;
  const std::optional<std::size_t> length = value_bytes(*session);
  if (!length) return;
  Wiped<std::array<char, wire::kTransferValueBytes>> value;
  const std::span<char> taken = std::span(*value).first(*length);
  if (!take_value(*session, file, taken)) return;
  if (!send_import(*session, taken)) return;

  const auto received = skeys::receive(*session, wire::kImportSymKey);
  if (!received) return;
  Wiped<KeyRecord> reply;
  skeys::parse(wire::kImportSymKeyReply, *received, *reply);
  skeys::conclude(*session, reply->caReturnCode);
}

void ExportSymKey(Session *session) {
  skeys::begin(*session, wire::kExportSymKey);
  trace_export_request(*session);
  if (!send_export(*session)) return;
  const auto received = skeys::receive(*session, wire::kExportSymKey);
  if (!received) return;
  Wiped<wire::ExportedKey> reply;
  skeys::parse(wire::kExportSymKeyReply, *received, *reply);
  wire::copy_field(reply->caKeyValue, session->request.caKeyValue);
  constexpr int kMaxLength = static_cast<int>(wire::kMaxExportedBytes);
  const auto length = static_cast<std::size_t>(std::clamp(wire::to_int(reply->caKeyValueLen), 0, kMaxLength));
  dump_behind_value(*session, length);

  skeys::ExportFile file(*session, wire::kExportSymKey);
  if (session->caFilePath[0] == '\0' || (file.open() && write_value(file, *reply, length)))
    skeys::conclude(*session, reply->caReturnCode);
  file.close();
}
