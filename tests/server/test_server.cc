#include "tests/server/test_server.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <thread>

#include "veskd/errors.h"
#include "veskd/files.h"
#include "veskd/master_key_rotation.h"

namespace veskd::test {

TemporaryDirectory::TemporaryDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "veskd-test-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
  path_ = name;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

namespace {

std::string schema_of(const std::filesystem::path &directory) {
  return "store_" + std::to_string(std::hash<std::string>()(directory.string()));
}

}  // namespace

StoreAddress store_address(const std::filesystem::path &directory) {
  const char *postgres = ::getenv(kPostgresVariable);
  if (postgres == nullptr) return directory / "store.db";
  const std::string schema = schema_of(directory);
  Database(StoreAddress(postgres)).execute("CREATE SCHEMA IF NOT EXISTS " + schema);
  return std::string(postgres) + "&options=-csearch_path%3D" + schema;
}

std::unique_ptr<MasterKey> master_key_in(const std::filesystem::path &directory) {
  return open_master_key({store_address(directory), store_files_in(directory).master_key});
}

void lose_store(const std::filesystem::path &directory) {
  if (const char *postgres = ::getenv(kPostgresVariable)) {
    Database(StoreAddress(postgres)).execute("DROP SCHEMA " + schema_of(directory) + " CASCADE");
  } else {
    for (const char *name : {"store.db", "store.db-wal", "store.db-shm"}) std::filesystem::remove(directory / name);
  }
}

void insert_keys(const StoreAddress &store, int count) {
  Database database(store);
  database.begin();
  for (int i = 1; i <= count; ++i)
    Query(database,
          "INSERT INTO keys (name, current_instance, size_bits, creation_date, activation_date, expiration_date, "
          "rollover_code, rollover_days, deletable, mirror, user_group_flag, user_name, group_name) "
          "VALUES (?1, '', 256, '', '', '', 'N', '0000', 'Y', 'N', '1', '', '')",
          fmt::format("INSERTED_______{:06X}", i))
        .run();
  database.commit();
}

CertificatePaths client_paths(const std::filesystem::path &directory) {
  CertificatePaths paths{};
  if (SetupCertificates(&paths, directory.c_str(), "authority.pem", "client.pem", "client-key.pem") != 0)
    throw std::runtime_error("the certificate paths are too long");
  return paths;
}

namespace {

ServerOptions development_options(const Limits &limits, const Machine &machine, bool audit_reads) {
  ServerOptions options;
  options.limits = limits;
  options.roles = development_roles();
  options.machine = machine;
  options.audit_reads = audit_reads;
  return options;
}

ServerOptions with_files(ServerOptions options, const DevEnvironment &environment) {
  options.tls = environment.tls_files();
  options.faults.authority_key = environment.authority_key_path();
  return options;
}

}  // namespace

TestServer::TestServer(const Limits &limits, const Machine &machine, bool audit_reads)
    : TestServer(development_options(limits, machine, audit_reads)) {}

TestServer::TestServer(const ServerOptions &options)
    : environment_(directory_.path(), {}, log_),
      options_(with_files(options, environment_)),
      store_(store_address(directory_.path()), *master_key_in(directory_.path()), log_),
      server_(options_, store_, log_),
      paths_(client_paths(directory_.path())),
      thread_([this] { server_.run(); }) {}

TestServer::~TestServer() {
  stop();
}

void TestServer::stop() {
  if (!thread_.joinable()) return;
  server_.stop();
  thread_.join();
}

CertificatePaths TestServer::add_client(const LeafRequest &request) const {
  const Identity authority = read_identity(directory_ / "authority.pem", directory_ / "authority-key.pem");
  const Identity client = make_leaf(authority, request, Days(1));
  const std::string name = request.common_name;
  replace_file(directory_ / (name + ".pem"), certificate_pem(client.certificate.get()), kPublicMode);
  replace_file(directory_ / (name + "-key.pem"), private_key_pem(client.key.get()).text(), kPrivateMode);
  CertificatePaths paths{};
  EXPECT_EQ(SetupCertificates(&paths, directory().c_str(), "authority.pem", (name + ".pem").c_str(),
                              (name + "-key.pem").c_str()),
            0);
  return paths;
}

RawOptions raw_options(const std::filesystem::path &directory) {
  return {directory / "client.pem", directory / "client-key.pem", directory / "authority.pem", 0};
}

int unless_interrupted(const std::function<int()> &call) {
  for (;;) {
    errno = 0;
    const int result = call();
    if (result > 0 || errno != EINTR) return result;
  }
}

// OpenSSL's own writing, of alerts too, would raise SIGPIPE when the server has gone.
RawConnection::RawConnection(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  ::signal(SIGPIPE, SIG_IGN);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const timeval patience{10, 0};
  const int on = 1;
  ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (::connect(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
    throw std::runtime_error("no connection");
}

RawConnection::~RawConnection() {
  tls_.reset();
  ::close(socket_);
}

bool RawConnection::handshake(const RawOptions &options, SSL_SESSION *session) {
  context_.reset(SSL_CTX_new(TLS_client_method()));
  SSL_CTX_set_security_level(context_.get(), 0);
  SSL_CTX_set_min_proto_version(context_.get(), TLS1_VERSION);
  SSL_CTX_set_max_proto_version(context_.get(), options.max_version);
  SSL_CTX_load_verify_file(context_.get(), options.authority.c_str());
  SSL_CTX_set_verify(context_.get(), SSL_VERIFY_PEER, nullptr);
  if (!options.certificate.empty()) {
    SSL_CTX_use_certificate_chain_file(context_.get(), options.certificate.c_str());
    SSL_CTX_use_PrivateKey_file(context_.get(), options.key.c_str(), SSL_FILETYPE_PEM);
  }
  tls_.reset(SSL_new(context_.get()));
  if (session != nullptr) SSL_set_session(tls_.get(), session);
  SSL_set_fd(tls_.get(), socket_);
  const bool done = unless_interrupted([this] { return SSL_connect(tls_.get()); }) == 1;
  ERR_clear_error();
  return done;
}

void RawConnection::send(const std::string &bytes) {
  SSL_write(tls_.get(), bytes.data(), static_cast<int>(bytes.size()));
  ERR_clear_error();
}

int RawConnection::read(std::span<char> room) {
  return unless_interrupted([&] { return SSL_read(tls_.get(), room.data(), static_cast<int>(room.size())); });
}

std::size_t RawConnection::receive_some() {
  char buffer[4096];
  return static_cast<std::size_t>(std::max(read(buffer), 0));
}

std::string RawConnection::receive_all() {
  std::string received;
  char buffer[4096];
  int count = 0;
  while ((count = read(buffer)) > 0) received.append(buffer, count);
  closed_cleanly_ = SSL_get_error(tls_.get(), count) == SSL_ERROR_ZERO_RETURN;
  ERR_clear_error();
  return received;
}

bool RawConnection::is_closed_by_peer() {
  char byte = 0;
  int count = 0;
  do count = unless_interrupted([&] { return static_cast<int>(::recv(socket_, &byte, 1, 0)); });
  while (count > 0);
  return count == 0 || errno == ECONNRESET;
}

std::string ask(const TestServer &server, const std::string &request) {
  RawConnection connection(server.port());
  EXPECT_TRUE(connection.handshake(raw_options(server.directory())));
  connection.send(request);
  return connection.receive_all();
}

bool eventually(const std::function<bool()> &condition, std::chrono::seconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  do {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  } while (std::chrono::steady_clock::now() < end);
  return false;
}

std::string start_error(const std::function<void()> &action) {
  try {
    action();
  } catch (const StartError &error) {
    return error.what();
  }
  return "no error";
}

mode_t mode_of(const std::filesystem::path &path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 0777;
}

std::string padded(const std::string &text, std::size_t width) {
  return text + std::string(width - text.size(), ' ');
}

}  // namespace veskd::test
