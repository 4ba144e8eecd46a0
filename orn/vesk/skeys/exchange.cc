#include "orn/vesk/skeys/exchange.h"

#include <algorithm>
#include <cstring>

namespace vesk::skeys {

void begin(Session &session, const Transaction &transaction) {
  session.iStatus = 0;
  SKEYS_TRACE("F: %s", transaction.function);
}

bool send_payload(Session &session, std::span<const char> payload) {
  session.iStatus = TLSWrite(session.hTls, payload.data(), static_cast<int>(payload.size()));
  return session.iStatus == 0;
}

bool send_bytes(Session &session, std::span<const char> request) {
  DumpBuffer(0, SKEYS_PATH, __LINE__, request.data(), static_cast<int>(request.size()), "caReqBuf");
  return send_payload(session, request);
}

bool read_bytes(Session &session, std::span<char> room, int timeout_seconds) {
  int bytes_read = 0;
  session.iStatus =
      TLSRead(session.hTls, session.hTlsRead, room.data(), static_cast<int>(room.size()), timeout_seconds, &bytes_read);
  return session.iStatus == 0;
}

void trace_received(const Session &session) {
  SKEYS_TRACE("iBytesRead <%d>", session.iBytesRead);
  DumpBuffer(0, SKEYS_PATH, __LINE__, session.caRspBuf, session.iBytesRead + static_cast<int>(wire::kLengthDigits),
             "Response buffer");
}

std::optional<std::string_view> receive(Session &session, const Transaction &transaction) {
  const std::span<char> buffer(session.caRspBuf);
  const std::span<char> digits = buffer.first(wire::kLengthDigits);
  if (!read_bytes(session, digits, transaction.reply_timeout_seconds)) return std::nullopt;

  std::memcpy(session.caTranLen, digits.data(), digits.size());
  session.caTranLen[digits.size()] = '\0';
  const int declared = wire::to_int(session.caTranLen);
  SKEYS_TRACE("iBytesRead <%d>", declared);
  if (declared > wire::kMaxReplyLength) {
    session.iStatus = transaction.oversize_status;
    SKEYS_TRACE("%s ERR <%d> Transaction size <%d> exceeds maximum <%d>", transaction.oversize_name, session.iStatus,
                declared, wire::kMaxReplyLength);
    return std::nullopt;
  }

  // A length of 0 still makes its read: of 0 bytes.
  const std::size_t length = static_cast<std::size_t>(std::max(declared, 0));
  if (!read_bytes(session, buffer.subspan(digits.size(), length), wire::kReadTimeoutSeconds)) return std::nullopt;

  trace_received(session);
  return std::string_view(buffer.data(), digits.size() + length);
}

void conclude(Session &session, const char *return_code) {
  if (session.iStatus == 0) session.iStatus = wire::to_int(return_code);
}

}  // namespace vesk::skeys
