#include "orn/vesk/skeys/exchange.h"

#include <algorithm>
#include <cstring>

namespace vesk::skeys {

void begin(Session &session, const Transaction &transaction) {
  session.iStatus = 0;
  SKEYS_TRACE("F: %s", transaction.function);
}

bool send_bytes(Session &session, std::span<const char> request) {
  const int count = static_cast<int>(request.size());
  DumpBuffer(0, SKEYS_PATH, __LINE__, request.data(), count, "caReqBuf");
  session.iStatus = TLSWrite(session.hTls, request.data(), count);
  return session.iStatus == 0;
}

bool read_bytes(Session &session, std::span<char> room, int timeout_seconds) {
  int bytes_read = 0;
  session.iStatus =
      TLSRead(session.hTls, session.hTlsRead, room.data(), static_cast<int>(room.size()), timeout_seconds, &bytes_read);
  return session.iStatus == 0;
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

  // iBytesRead stays 0, so the dump shows the length digits alone: a reply may carry a key value.
  SKEYS_TRACE("iBytesRead <%d>", session.iBytesRead);
  DumpBuffer(0, SKEYS_PATH, __LINE__, session.caRspBuf, session.iBytesRead + static_cast<int>(digits.size()),
             "Response buffer");
  return std::string_view(buffer.data(), digits.size() + length);
}

void conclude(Session &session, const char *return_code) {
  if (session.iStatus == 0) session.iStatus = wire::to_int(return_code);
}

}  // namespace vesk::skeys
