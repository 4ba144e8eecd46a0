#include "orn/vesk/wire/connectivity.h"

#include "orn/vesk/libvesk/call_frame.h"

using namespace vesk;

int qAdminNoop(const CertificatePaths *paths, const char *host, uint32_t port) {
  return public_call({paths, host, port}, wire::kAdminNoop, kNoFields, [](Session *session) {
    char return_code[5];
    AdminNoop(session, return_code);
  });
}
