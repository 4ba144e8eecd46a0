// The session of one call: opened once, torn down on every path.
#pragma once

#include <cstdint>
#include <memory>

#include "orn/skeys.h"
#include "orn/vesk.h"

namespace vesk {

// Where a call goes: its first three arguments.
struct Server {
  const CertificatePaths *paths;
  const char *host;
  std::uint32_t port;
};

// Closes the connection, wipes the session and frees it; also after a set-up that failed.
void TeardownSession(Session *session);

struct SessionDeleter {
  void operator()(Session *session) const { TeardownSession(session); }
};
using SessionOwner = std::unique_ptr<Session, SessionDeleter>;

// A zeroed session that is torn down with its owner.
SessionOwner make_session();

// Records the server, the certificate paths and the time-outs in force, and connects. The outcome is in iStatus.
void SetupSession(Session &session, const Server &server);

}  // namespace vesk
