#include "bench/bare_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "bench/server.h"

namespace bench {

namespace {

void require(bool condition, const char *what) {
  if (condition) return;
  std::fprintf(stderr, "bench: bare client: %s failed\n", what);
  std::exit(1);
}

int connected_socket() {
  const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(made, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(server().port);
  require(inet_pton(AF_INET, server().host.c_str(), &address.sin_addr) == 1, "inet_pton");
  require(connect(made, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0, "connect");
  return made;
}

}  // namespace

BareConnection::BareConnection()
    : context_(SSL_CTX_new(TLS_client_method()), SSL_CTX_free), ssl_(nullptr, SSL_free), socket_(connected_socket()) {
  const auto &path = server().paths.caPath;
  SSL_CTX *context = context_.get();
  SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
  require(SSL_CTX_load_verify_file(context, path[1]) == 1, "authority");
  require(SSL_CTX_use_certificate_chain_file(context, path[2]) == 1, "certificate");
  require(SSL_CTX_use_PrivateKey_file(context, path[3], SSL_FILETYPE_PEM) == 1, "key");
  ssl_.reset(SSL_new(context));
  require(X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl_.get()), server().host.c_str()) == 1, "name");
  SSL_set_fd(ssl_.get(), socket_);
  require(SSL_connect(ssl_.get()) == 1, "handshake");
}

BareConnection::~BareConnection() {
  SSL_shutdown(ssl_.get());
  close(socket_);
}

void BareConnection::write(std::string_view bytes) {
  require(SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size())) == static_cast<int>(bytes.size()),
          "write");
}

std::size_t BareConnection::read(std::span<char> room) {
  std::size_t got = 0;
  return SSL_read_ex(ssl_.get(), room.data(), room.size(), &got) == 1 ? got : 0;
}

}  // namespace bench
