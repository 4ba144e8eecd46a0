#include "tests/command/played_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>

#include "tests/command/command_test.h"

namespace command_test {
namespace {

struct FreeSsl {
  void operator()(SSL *ssl) const { SSL_free(ssl); }
  void operator()(SSL_CTX *context) const { SSL_CTX_free(context); }
};

int listen_on_free_port() {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || listen(listener, 4) != 0)
    throw std::runtime_error("cannot listen");
  return listener;
}

std::string port_of(int listener) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size);
  return std::to_string(ntohs(address.sin_port));
}

void make_files(const std::string &directory, const PlayedCertificates &certificates) {
  constexpr veskd::Days kDay{1};
  const veskd::Identity authority = veskd::make_authority("played authority", kDay);
  const veskd::Identity stranger = veskd::make_authority("strange authority", kDay);
  const veskd::Identity server = veskd::make_leaf(
      authority, {"played server", veskd::Purpose::kServer, certificates.server_names}, certificates.server_validity);
  if (certificates.server_begin.count() > 0) {
    X509_time_adj_ex(X509_getm_notBefore(server.certificate.get()), certificates.server_begin.count(), 0, nullptr);
    X509_sign(server.certificate.get(), authority.key.get(), EVP_sha256());
  }
  const veskd::Identity client = veskd::make_leaf(authority, {"client", veskd::Purpose::kClient, {}}, kDay);
  const veskd::Identity &trusted = certificates.trusts_server ? authority : stranger;
  write_file(directory + "/authority.pem", veskd::certificate_pem(trusted.certificate.get()));
  write_file(directory + "/client.pem", veskd::certificate_pem(client.certificate.get()));
  write_secret(directory + "/client-key.pem", veskd::private_key_pem(client.key.get()).text());
  write_file(directory + "/server.pem", veskd::certificate_pem(server.certificate.get()));
  write_file(directory + "/server-key.pem", veskd::private_key_pem(server.key.get()).text());
}

void answer(SSL_CTX *context, int connection, const std::string &reply, bool stalls) {
  const std::unique_ptr<SSL, FreeSsl> ssl(SSL_new(context));
  SSL_set_fd(ssl.get(), connection);
  if (SSL_accept(ssl.get()) != 1) return;
  char request[1024];
  if (SSL_read(ssl.get(), request, sizeof request) <= 0) return;
  if (!reply.empty()) SSL_write(ssl.get(), reply.data(), static_cast<int>(reply.size()));
  // Until the client is gone.
  if (stalls) SSL_read(ssl.get(), request, sizeof request);
  SSL_shutdown(ssl.get());
}

}  // namespace

PlayedServer::PlayedServer(const std::string &directory, const PlayedCertificates &certificates, std::string reply,
                           bool stalls)
    : directory_(directory), stalls_(stalls), reply_(std::move(reply)), listener_(listen_on_free_port()) {
  make_files(directory, certificates);
  // A client may hang up before it has taken everything.
  signal(SIGPIPE, SIG_IGN);
  thread_ = std::thread([this] { serve_tls(); });
}

PlayedServer::PlayedServer(std::string greeting) : reply_(std::move(greeting)), listener_(listen_on_free_port()) {
  thread_ = std::thread([this] { serve_greeting(); });
}

PlayedServer::~PlayedServer() {
  // Ends the accept that the thread waits in.
  shutdown(listener_, SHUT_RDWR);
  thread_.join();
  close(listener_);
}

std::string PlayedServer::port() const {
  return port_of(listener_);
}

void PlayedServer::serve_greeting() const {
  for (int connection; (connection = accept(listener_, nullptr, nullptr)) >= 0; close(connection)) {
    send(connection, reply_.data(), reply_.size(), MSG_NOSIGNAL);
    // The client's first message must not be answered with a reset, which could overtake the greeting.
    char bytes[1024];
    recv(connection, bytes, sizeof bytes, 0);
  }
}

void PlayedServer::serve_tls() const {
  const std::unique_ptr<SSL_CTX, FreeSsl> context(SSL_CTX_new(TLS_server_method()));
  SSL_CTX_use_certificate_chain_file(context.get(), (directory_ + "/server.pem").c_str());
  SSL_CTX_use_PrivateKey_file(context.get(), (directory_ + "/server-key.pem").c_str(), SSL_FILETYPE_PEM);
  for (int connection; (connection = accept(listener_, nullptr, nullptr)) >= 0; close(connection))
    answer(context.get(), connection, reply_, stalls_);
}

SilentServer::SilentServer() : listener_(listen_on_free_port()) {}

SilentServer::~SilentServer() {
  close(listener_);
}

std::string SilentServer::port() const {
  return port_of(listener_);
}

}  // namespace command_test
