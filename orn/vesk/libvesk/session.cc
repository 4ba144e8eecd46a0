#include "orn/vesk/libvesk/session.h"

#include <openssl/err.h>
#include <pthread.h>
#include <string.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "orn/support.h"
#include "orn/vesk/wire/text.h"

namespace vesk {

namespace {

// Plain words on purpose: SetTimeout is documented as a call for program start.
std::uint32_t g_uiTimeout1 = 10;
std::uint32_t g_uiTimeout2 = 0;

constexpr int kConnectTimeoutSeconds = 10;

constexpr std::size_t kCertPath3Bytes = 2056;

// Fields are zeroed with their session; what does not fit is cut.
template <std::size_t kSize>
void put(char (&field)[kSize], const char *text) {
  vesk_strlcpy(field, wire::text_or_empty(text), kSize);
}

template <std::size_t kSize>
void put(char (&field)[kSize], std::uint32_t number) {
  put(field, std::to_string(number).c_str());
}

void *zeroed(std::size_t bytes) {
  void *memory = std::calloc(1, bytes);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

SessionOwner make_session() {
  return SessionOwner(static_cast<Session *>(zeroed(sizeof(Session))));
}

void SetupSession(Session &session, const Server &server) {
  const auto &path = server.paths->caPath;
  session.pCertPath3 = static_cast<char *>(zeroed(kCertPath3Bytes));
  session.tidCaller = pthread_self();
  put(session.caHost, server.host);
  put(session.caPort, server.port);
  put(session.caTimeout1, g_uiTimeout1);
  put(session.caTimeout2, g_uiTimeout2);
  put(session.caCertPath1, path[1]);
  put(session.caCertPath2, path[2]);
  put(session.caCertDir, path[0]);
  vesk_strlcpy(session.pCertPath3, path[3], sizeof path[3]);
  session.iStatus =
      SetupConnection(&session.hTls, &session.hTlsAux, &session.hTlsRead, session.caCertPath2, session.caCertPath1, 0,
                      path[3], session.caHost, session.caPort, kConnectTimeoutSeconds);
}

void TeardownSession(Session *session) {
  TLSTeardown(session->hTls, session->hTlsAux, session->hTlsRead);
  ERR_free_strings();
  std::free(session->pCertPath3);
  explicit_bzero(session, sizeof *session);
  std::free(session);
}

}  // namespace vesk

void SetTimeout(uint32_t timeout1, uint32_t timeout2) {
  vesk::g_uiTimeout1 = timeout1;
  vesk::g_uiTimeout2 = timeout2;
}

size_t vesk_strlcpy(char *destination, const char *source, size_t size) {
  const size_t length = std::strlen(source);
  if (size == 0) return length;
  std::memcpy(destination, source, length + 1 < size ? length + 1 : size);
  destination[size - 1] = '\0';
  return length;
}
