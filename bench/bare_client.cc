#include "bench/bare_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

namespace {

int connected_socket(const Server &server) {
  const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(made, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(server.port));
  require(inet_pton(AF_INET, server.host.c_str(), &address.sin_addr) == 1, "the bare client's address");
  require(connect(made, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0,
          "the bare client's connect");
  return made;
}

}  // namespace

BareContext read_context(const Server &server) {
  const auto &path = server.paths.caPath;
  BareContext context(SSL_CTX_new(TLS_client_method()));
  SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
  // A record's header and body arrive in one system call.
  SSL_CTX_set_read_ahead(context.get(), 1);
  require(SSL_CTX_load_verify_file(context.get(), path[1]) == 1, "the bare client's authority");
  require(SSL_CTX_use_certificate_chain_file(context.get(), path[2]) == 1, "the bare client's certificate");
  require(SSL_CTX_use_PrivateKey_file(context.get(), path[3], SSL_FILETYPE_PEM) == 1, "the bare client's key");
  return context;
}

BareConnection::BareConnection(const Server &server, SSL_CTX *context, SSL_SESSION *session)
    : ssl_(SSL_new(context)), socket_(connected_socket(server)) {
  SSL *ssl = ssl_.get();
  require(X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), server.host.c_str()) == 1, "the bare client's peer name");
  if (session != nullptr) SSL_set_session(ssl, session);
  SSL_set_fd(ssl, socket_);
  require(SSL_connect(ssl) == 1, "the bare client's handshake");
}

BareConnection::~BareConnection() {
  SSL_shutdown(ssl_.get());
  close(socket_);
}

void BareConnection::write(std::string_view bytes) {
  std::size_t written = 0;
  require(SSL_write_ex(ssl_.get(), bytes.data(), bytes.size(), &written) == 1, "the bare client's write");
}

std::size_t BareConnection::read(std::span<char> room) {
  std::size_t got = 0;
  return SSL_read_ex(ssl_.get(), room.data(), room.size(), &got) == 1 ? got : 0;
}

BareSession BareConnection::session() const {
  BareSession session(SSL_get1_session(ssl_.get()));
  return session && SSL_SESSION_is_resumable(session.get()) == 1 ? std::move(session) : nullptr;
}

}  // namespace bench
