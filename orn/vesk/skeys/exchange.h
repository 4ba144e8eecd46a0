// The exchange: what every transaction function does over its session's connection, as verbs. A regular transaction is
// one call of exchange(); an irregular one tells its own story with the others.
//
// Each verb leaves the outcome in iStatus and says whether to go on.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "orn/skeys.h"
#include "orn/vesk/skeys/trace.h"
#include "orn/vesk/wiped.h"
#include "orn/vesk/wire/codec.h"

namespace vesk::skeys {

using wire::Transaction;

using RequestBuffer = std::array<char, wire::kMaxRequestBytes>;

// Clears iStatus and announces the transaction in the trace.
void begin(Session &session, const Transaction &transaction);

// Sends what stands behind a request, which is in no dump.
bool send_payload(Session &session, std::span<const char> payload);

// Dumps a request and sends it.
bool send_bytes(Session &session, std::span<const char> request);

enum class SendLength { kFixed, kText };

// Puts a request together from the session's fields and sends as many bytes as its table is wide, zero bytes making up
// for a field that was left short; or as many as its text has.
template <std::size_t kRows>
bool send_request(Session &session, const wire::Table<RequestFields, kRows> &table,
                  SendLength length = SendLength::kFixed) {
  Wiped<RequestBuffer> buffer;
  wire::Appender request(*buffer);
  append_request(table, session.request, request);
  const std::size_t count = length == SendLength::kFixed ? wire_size(table) : request.length();
  return send_bytes(session, std::span(*buffer).first(count));
}

// Shows in the trace that something was read into caRspBuf. iBytesRead stays 0, so the dump shows the length digits
// alone: a reply may carry a key value.
void trace_received(const Session &session);

// Reads one length-prefixed reply into caRspBuf. Returns what arrived, length digits included, or nothing when iStatus
// says why. A reply above the size limit is refused before its body is read.
std::optional<std::string_view> receive(Session &session, const Transaction &transaction);

// Reads exactly length bytes to room, which the caller knows to be large enough.
bool read_bytes(Session &session, std::span<char> room, int timeout_seconds);

// Parses a received reply into a zeroed record and traces its labelled fields in the table's order.
template <typename Record, std::size_t kRows>
void parse(const wire::Table<Record, kRows> &table, std::string_view received, Record &record) {
  for (const wire::Row<Record> &row : table) {
    read_field(row, received, record);
    if (row.label != nullptr) SKEYS_TRACE("%s <%s>", row.label, row.slot(record).data());
  }
}

// The server's return code becomes the status, unless something went wrong on this side before.
void conclude(Session &session, const char *return_code);

// One request and one reply, whose record must come zeroed. Returns whether the reply was parsed.
template <typename Record, std::size_t kRequestRows, std::size_t kReplyRows>
bool exchange(Session &session, const Transaction &transaction, const wire::Table<RequestFields, kRequestRows> &request,
              const wire::Table<Record, kReplyRows> &reply, Record &record) {
  if (!send_request(session, request)) return false;
  const std::optional<std::string_view> received = receive(session, transaction);
  if (!received) return false;
  parse(reply, *received, record);
  return true;
}

// A transaction whose outcome is its return code alone.
template <typename Record, std::size_t kRequestRows, std::size_t kReplyRows>
void transact(Session &session, const Transaction &transaction, const wire::Table<RequestFields, kRequestRows> &request,
              const wire::Table<Record, kReplyRows> &reply_table) {
  begin(session, transaction);
  Wiped<Record> reply;
  if (exchange(session, transaction, request, reply_table, *reply)) conclude(session, reply->caReturnCode);
}

}  // namespace vesk::skeys
