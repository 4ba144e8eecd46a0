#include "vesk/capture.h"

#include <algorithm>
#include <atomic>
#include <string_view>

#include "orn/support.h"
#include "orn/vesk/wire/row.h"
#include "vesk/protocol.h"

// What the linker makes of the connection layer's functions when it puts those below in front of them.
extern "C" {
int __real_SetupConnection(void **phTls, void **phTlsAux, void **phTlsRead, const char *certPath2,
                           const char *certPath1, int reserved, const char *certPath3, const char *host,
                           const char *port, int connectTimeout);
int __real_TLSWrite(void *hTls, const void *buffer, int count);
int __real_TLSRead(void *hTls, void *hTlsRead, void *buffer, int count, int timeout, int *bytesRead);
}

namespace command {
namespace {

// What is known of a connection: it belongs to one thread.
struct Captured {
  bool is_on = false;
  const Protocol *protocol = nullptr;  // once a request has told
  std::size_t num_sent = 0;
  std::size_t num_received = 0;
};

std::atomic<bool> capture_is_on = false;
thread_local Captured captured;

// How many bytes from the front are all secret, or all not.
std::size_t run_length(Direction direction, std::size_t offset, std::size_t size) {
  const bool first = is_secret(captured.protocol, direction, offset);
  std::size_t length = 1;
  while (length < size && is_secret(captured.protocol, direction, offset + length) == first) ++length;
  return length;
}

// Secrets are not handed on: only how many bytes they are.
void trace(Direction direction, std::size_t offset, std::string_view bytes) {
  const char *label = direction == Direction::kSent ? kSentLabel : kReceivedLabel;
  while (!bytes.empty()) {
    const std::size_t length = run_length(direction, offset, bytes.size());
    if (is_secret(captured.protocol, direction, offset)) {
      TraceT(0, kCapturePath, __LINE__, "%s%s (%zu bytes)", label, kMasked, length);
    } else {
      DumpBuffer(0, kCapturePath, __LINE__, bytes.data(), static_cast<int>(length), label);
    }
    offset += length;
    bytes.remove_prefix(length);
  }
}

void begin(const char *host, const char *port, int status) {
  captured = {.is_on = capture_is_on};
  if (captured.is_on) TraceT(0, kCapturePath, __LINE__, kConnectionForm, host, port, status);
}

// The first piece that is sent is a request, and tells its transaction.
void sent(std::string_view bytes, int status) {
  if (!captured.is_on) return;
  if (captured.num_sent == 0) captured.protocol = find_protocol(tran_id_of(bytes));
  trace(Direction::kSent, captured.num_sent, bytes);
  captured.num_sent += bytes.size();
  if (status != 0) TraceT(0, kCapturePath, __LINE__, kSendingForm, status);
}

void received(std::string_view bytes, int status) {
  if (!captured.is_on) return;
  trace(Direction::kReceived, captured.num_received, bytes);
  captured.num_received += bytes.size();
  if (status != 0) TraceT(0, kCapturePath, __LINE__, kReceivingForm, status);
}

std::string_view view_of(const void *bytes, int count) {
  return {static_cast<const char *>(bytes), static_cast<std::size_t>(std::max(count, 0))};
}

}  // namespace

void set_capture(bool on) {
  capture_is_on = on;
}

}  // namespace command

extern "C" {

int __wrap_SetupConnection(void **phTls, void **phTlsAux, void **phTlsRead, const char *certPath2,
                           const char *certPath1, int reserved, const char *certPath3, const char *host,
                           const char *port, int connectTimeout) {
  const int status = __real_SetupConnection(phTls, phTlsAux, phTlsRead, certPath2, certPath1, reserved, certPath3, host,
                                            port, connectTimeout);
  command::begin(host, port, status);
  return status;
}

int __wrap_TLSWrite(void *hTls, const void *buffer, int count) {
  const int status = __real_TLSWrite(hTls, buffer, count);
  command::sent(command::view_of(buffer, count), status);
  return status;
}

int __wrap_TLSRead(void *hTls, void *hTlsRead, void *buffer, int count, int timeout, int *bytesRead) {
  int arrived = 0;
  const int status = __real_TLSRead(hTls, hTlsRead, buffer, count, timeout, &arrived);
  if (bytesRead != nullptr) *bytesRead = arrived;
  command::received(command::view_of(buffer, arrived), status);
  return status;
}
}
