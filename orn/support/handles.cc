// The published functions of a connection: arguments and handles. The work is done by Connection.
#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <string_view>

#include "orn/support/connection.h"
#include "orn/support/kept_contexts.h"
#include "orn/support/tracing.h"

namespace orn {
namespace {

// Runs the body of a published function: nothing is left in OpenSSL's error queue, and an exception becomes a status.
// A thread's cancellation is no std::exception and passes through.
template <typename Body>
int published(Body body) {
  CleanErrorQueue queue;
  try {
    return body();
  } catch (const std::exception &failure) {
    ORN_TRACE("%s", failure.what());
    return CONN_ERR_RESOURCES;
  }
}

bool is_port(std::string_view text) {
  constexpr int kMostPort = 65535;
  if (text.empty() || text.size() > 5) return false;
  int port = 0;
  for (char digit : text) {
    if (digit < '0' || digit > '9') return false;
    port = port * 10 + (digit - '0');
  }
  return port >= 1 && port <= kMostPort;
}

// A name that begins with a dot would stand for every name below it when the certificate is checked.
bool is_host(std::string_view text) {
  return !text.empty() && text.front() != '.';
}

int check_endpoint(const Endpoint &endpoint) {
  if (!is_host(endpoint.host)) {
    ORN_TRACE("no host name: <%s>", endpoint.host);
    return CONN_ERR_HOST;
  }
  if (!is_port(endpoint.port)) {
    ORN_TRACE("no port: <%s>", endpoint.port);
    return CONN_ERR_PORT;
  }
  return 0;
}

// Failures that a context may be to blame for: where memory was wanting, OpenSSL can leave a certificate in it that is
// taken for a broken one from then on.
bool may_be_of_context(int status) {
  switch (status) {
    case CONN_ERR_RESOURCES:
    case CONN_ERR_TLS_SETUP:
    case CONN_ERR_PEER_NOT_TRUSTED:
    case CONN_ERR_PEER_PURPOSE:
    case CONN_ERR_PEER_WEAK:
    case CONN_ERR_PEER_CERTIFICATE:
    case CONN_ERR_CLIENT_REFUSED:
    case CONN_ERR_ALERT:
    case CONN_ERR_PROTOCOL:
      return true;
    default:
      return false;
  }
}

int connect(const Endpoint &endpoint, const CertificateFiles &files, int seconds,
            std::unique_ptr<Connection> &connection) {
  const Deadline deadline = Deadline::in_seconds(seconds);
  std::shared_ptr<SharedContext> context;
  if (int status = check_endpoint(endpoint)) return status;
  if (int status = context_for(files, context)) return status;
  const int status = Connection::open(endpoint, context, deadline, connection);
  if (may_be_of_context(status)) forget_context(*context);
  return status;
}

}  // namespace
}  // namespace orn

int SetupConnection(void **phTls, void **phTlsAux, void **phTlsRead, const char *certPath2, const char *certPath1, int,
                    const char *certPath3, const char *host, const char *port, int connectTimeout) {
  for (void **handle : {phTls, phTlsAux, phTlsRead}) {
    if (handle) *handle = nullptr;
  }
  if (!phTls || !phTlsAux || !phTlsRead || !certPath2 || !certPath1 || !certPath3 || !host || !port) {
    return CONN_ERR_ARGUMENT;
  }
  return orn::published([&] {
    std::unique_ptr<orn::Connection> connection;
    int status = orn::connect({host, port}, {certPath1, certPath2, certPath3}, connectTimeout, connection);
    if (status != 0) {
      ORN_TRACE("no connection to %s port %s: %s, %s", host, port, StatusName(status), StatusText(status));
      return status;
    }
    *phTls = connection->ssl();
    *phTlsAux = *phTlsRead = connection.release();
    return 0;
  });
}

int TLSWrite(void *hTls, const void *buffer, int count) {
  if (!hTls || count < 0 || (!buffer && count > 0)) return CONN_ERR_ARGUMENT;
  return orn::published([&]() -> int {
    orn::Connection *connection = orn::Connection::of(static_cast<SSL *>(hTls));
    if (!connection) return CONN_ERR_ARGUMENT;
    return connection->write({static_cast<const unsigned char *>(buffer), static_cast<std::size_t>(count)});
  });
}

int TLSRead(void *hTls, void *, void *buffer, int count, int timeout, int *bytesRead) {
  if (bytesRead) *bytesRead = 0;
  if (!hTls || count < 0 || (!buffer && count > 0)) return CONN_ERR_ARGUMENT;
  return orn::published([&]() -> int {
    orn::Connection *connection = orn::Connection::of(static_cast<SSL *>(hTls));
    if (!connection) return CONN_ERR_ARGUMENT;
    std::size_t num_read = 0;
    int status = connection->read({static_cast<unsigned char *>(buffer), static_cast<std::size_t>(count)},
                                  orn::Deadline::in_seconds(timeout), num_read);
    if (bytesRead) *bytesRead = static_cast<int>(num_read);
    return status;
  });
}

int TLSTeardown(void *hTls, void *hTlsAux, void *) {
  return orn::published([&] {
    auto *connection = static_cast<orn::Connection *>(hTlsAux);
    delete (connection ? connection : orn::Connection::of(static_cast<SSL *>(hTls)));
    return 0;
  });
}

void TLSResumption(int on) {
  orn::resumption_is_on = on != 0;
  if (on == 0) orn::forget_sessions();
}

void TLSForgetAll(void) {
  orn::forget_contexts();
}
