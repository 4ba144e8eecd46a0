#include "tests/connection/tls_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>

namespace tests {
namespace {

// Signals are for the client's thread. OpenSSL's own writing would raise SIGPIPE when the client has gone.
void block_signals() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

int listen_on(const char *address, std::string &port) {
  sockaddr_in6 ipv6{};
  sockaddr_in ipv4{};
  bool is_ipv6 = inet_pton(AF_INET6, address, &ipv6.sin6_addr) == 1;
  if (!is_ipv6) inet_pton(AF_INET, address, &ipv4.sin_addr);
  ipv6.sin6_family = AF_INET6;
  ipv4.sin_family = AF_INET;
  auto *bound = is_ipv6 ? reinterpret_cast<sockaddr *>(&ipv6) : reinterpret_cast<sockaddr *>(&ipv4);
  socklen_t length = is_ipv6 ? sizeof ipv6 : sizeof ipv4;
  int listener = socket(bound->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0 || bind(listener, bound, length) < 0 || listen(listener, 128) < 0 ||
      getsockname(listener, bound, &length) < 0) {
    throw std::runtime_error("no listening socket");
  }
  port = std::to_string(ntohs(is_ipv6 ? ipv6.sin6_port : ipv4.sin_port));
  return listener;
}

}  // namespace

orn::SslContextPtr make_server_context(const TlsSettings &settings) {
  orn::SslContextPtr context(SSL_CTX_new(TLS_server_method()));
  SSL_CTX_set_security_level(context.get(), settings.security_level);
  if (settings.security_level == 0) SSL_CTX_set_cipher_list(context.get(), "ALL:@SECLEVEL=0");
  // The configuration under which the tests run may also say other things of these.
  constexpr const char *kSignatures = "ECDSA+SHA256:RSA-PSS+SHA256:RSA+SHA256";
  SSL_CTX_set1_sigalgs_list(context.get(), kSignatures);
  SSL_CTX_set1_client_sigalgs_list(context.get(), kSignatures);
  SSL_CTX_clear_options(context.get(), SSL_OP_NO_SSL_MASK);
  SSL_CTX_set_min_proto_version(context.get(), settings.min_version);
  SSL_CTX_set_max_proto_version(context.get(), settings.max_version);
  SSL_CTX_use_certificate(context.get(), settings.identity->certificate.get());
  SSL_CTX_use_PrivateKey(context.get(), settings.identity->key.get());
  for (const Identity *intermediate : settings.intermediates) {
    SSL_CTX_add1_chain_cert(context.get(), intermediate->certificate.get());
  }
  if (settings.client_authority) {
    X509_STORE_add_cert(SSL_CTX_get_cert_store(context.get()), settings.client_authority->certificate.get());
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  }
  return context;
}

orn::SslPtr make_server_ssl(const TlsSettings &settings) {
  return orn::SslPtr(SSL_new(make_server_context(settings).get()));
}

Line::~Line() {
  if (descriptor_ >= 0) close(descriptor_);
}

bool Line::accept_tls(const TlsSettings &settings) {
  return accept_tls(make_server_context(settings).get());
}

bool Line::accept_tls(SSL_CTX *context) {
  ssl_.reset(SSL_new(context));
  SSL_set_fd(ssl_.get(), descriptor_);
  return SSL_accept(ssl_.get()) == 1;
}

std::string Line::read_some(std::size_t count) {
  std::string bytes(count, '\0');
  int got = 0;
  if (ssl_) {
    got = SSL_read(ssl_.get(), bytes.data(), static_cast<int>(count));
  } else {
    got = static_cast<int>(recv(descriptor_, bytes.data(), count, 0));
  }
  bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return bytes;
}

void Line::write(std::string_view bytes) {
  SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size()));
}

void Line::write_in_clear(std::string_view bytes) {
  send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void Line::wait_for_end() {
  std::array<char, 65536> unwanted;
  while (recv(descriptor_, unwanted.data(), unwanted.size(), 0) > 0) {
  }
}

void Line::close_politely() {
  if (ssl_) SSL_shutdown(ssl_.get());
  shutdown(descriptor_, SHUT_WR);
  wait_for_end();
}

void Line::reset() {
  linger now{.l_onoff = 1, .l_linger = 0};
  setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  // Shut down first: the descriptor itself stays this line's until the script has ended.
  sockaddr nobody{};
  nobody.sa_family = AF_UNSPEC;
  connect(descriptor_, &nobody, sizeof nobody);
}

TlsServer::TlsServer(Script script, const char *address, Clients clients)
    : script_(std::move(script)), clients_(clients), listener_(listen_on(address, port_)) {
  thread_ = std::thread([this] { serve(); });
}

TlsServer::~TlsServer() {
  {
    std::lock_guard lock(mutex_);
    is_stopping_ = true;
    for (int descriptor : open_) shutdown(descriptor, SHUT_RDWR);
  }
  shutdown(listener_, SHUT_RDWR);
  thread_.join();
  for (std::thread &handler : handlers_) handler.join();
  close(listener_);
}

void TlsServer::serve() {
  block_signals();
  for (;;) {
    int descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0 && (errno == EINTR || errno == ECONNABORTED || errno == EMFILE)) continue;
    if (descriptor < 0) return;
    if (clients_ == Clients::kAtOnce) {
      handlers_.emplace_back([this, descriptor] { handle(descriptor); });
    } else {
      handle(descriptor);
    }
  }
}

void TlsServer::handle(int descriptor) {
  {
    std::lock_guard lock(mutex_);
    open_.push_back(descriptor);
    if (is_stopping_) shutdown(descriptor, SHUT_RDWR);
  }
  Line line(descriptor);
  script_(line);
  ERR_clear_error();
  std::lock_guard lock(mutex_);
  open_.erase(std::find(open_.begin(), open_.end(), descriptor));
}

Script echo(const TlsSettings &settings) {
  return [settings](Line &line) {
    if (line.accept_tls(settings)) echo(line);
  };
}

void echo(Line &line) {
  for (std::string bytes = line.read_some(); !bytes.empty(); bytes = line.read_some()) line.write(bytes);
}

}  // namespace tests
