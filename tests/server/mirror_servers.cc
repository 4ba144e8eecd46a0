#include "tests/server/mirror_servers.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <stdexcept>

namespace veskd::test {

using namespace std::chrono_literals;

ReplicationTimes short_times() {
  return {.first_retry = 2ms,
          .longest_retry = 20ms,
          .exchange = 60s,
          .compare_every = 60s,
          .compare_pause = 20ms,
          .look_every = 20ms,
          .lease = 500ms};
}

namespace {

ServerOptions options_for(const DevEnvironment &environment, std::uint16_t port) {
  ServerOptions options;
  options.tls = environment.tls_files();
  options.machine.store_directory = environment.directory();
  options.port = port;
  options.roles = development_roles();
  options.limits.num_threads = 2;
  const std::filesystem::path faults = environment.directory() / "faults.toml";
  if (std::filesystem::exists(faults)) options.faults = {faults, environment.authority_key_path()};
  return options;
}

}  // namespace

MirrorServer::Running::Running(MirrorServer &owner)
    : environment(owner.directory(), {}, owner.log_, owner.authority_from_),
      store(store_address(environment.directory()), *master_key_in(environment.directory()), owner.log_),
      server(options_for(environment, owner.port()), store, owner.log_),
      replicator(environment.mirror_tls_files(), store, owner.log_, owner.times_),
      thread([this] { server.run(); }) {}

MirrorServer::Running::~Running() {
  server.stop();
  thread.join();
}

MirrorServer::MirrorServer(const std::filesystem::path &authority_from, const ReplicationTimes &times)
    : authority_from_(authority_from), times_(times) {
  start();
  use_port(running_->server.port());
  use_files();
}

MirrorServer::~MirrorServer() = default;

Store &MirrorServer::store() {
  return running_->store;
}

Mirror MirrorServer::mirror(const std::string &name) {
  Store::Reader reader(store());
  return find_mirror(*reader, name).value();
}

void MirrorServer::stop() {
  running_.reset();
}

void MirrorServer::start() {
  running_ = std::make_unique<Running>(*this);
}

void MirrorServer::lose_store() {
  test::lose_store(directory());
  std::filesystem::remove(directory() / "master.key");
}

void MirrorClient::create_mirror_key(const std::string &name) const {
  ASSERT_EQ(call(qCreateSymKey, name.c_str(), 'Y'), 0) << name;
}

std::string MirrorClient::value_of(const std::string &name) const {
  KeyRecord record{};
  return call(qRetrieveKey, name.c_str(), "", &record) == 0 ? std::string(record.caKeyValue, 32) : std::string();
}

int MirrorClient::set_metadata(const std::string &name, const std::string &text) const {
  KeyMetadataValues values{};
  std::strncpy(values.md[0], text.c_str(), sizeof values.md[0] - 1);
  const auto &md = values.md;
  return call(qSetMetadata, name.c_str(), "", md[0], md[1], md[2], md[3], md[4], md[5], md[6], md[7], md[8], md[9],
              md[10], md[11], md[12], md[13], md[14], md[15]);
}

std::string MirrorClient::metadata_of(const std::string &name) const {
  KeyMetadataValues values{};
  if (call(qRetrieveKeyMetadata, name.c_str(), &values) != 0) return "no such key";
  std::string text = values.md[0];
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

void MirrorClient::add_mirror(const std::string &name, std::uint16_t port) const {
  ASSERT_EQ(call(qSetMirrorAddress, name.c_str(), "127.0.0.1", port), 0);
}

int MirrorClient::queue_size(const std::string &name) const {
  std::int32_t size = -1;
  EXPECT_EQ(call(qGetQueueSize, name.c_str(), &size), 0);
  return size;
}

bool MirrorClient::agrees_with(const std::string &name) const {
  return eventually([&] {
    std::int32_t faults = 0;
    char status = 0, same = 0;
    EXPECT_EQ(call(qGetMirrorStatus, name.c_str(), 1, &faults, &status, &same), 0);
    return same == 'Y' && status == 'U';
  });
}

bool Mirrors::differs() {
  return eventually([&] {
    std::int32_t faults = 0;
    char status = 0, same = 0;
    EXPECT_EQ(one_.call(qGetMirrorStatus, "two", 1, &faults, &status, &same), 0);
    return same == 'N';
  });
}

namespace {

sockaddr_in loopback(std::uint16_t port, const std::string &host = "127.0.0.1") {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = inet_addr(host.c_str());
  return address;
}

constexpr int kSilenceBehindReply = 50;  // milliseconds

void reset(int socket) {
  const linger at_once{1, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

}  // namespace

// One connection, which it closes at its end.
class Line::Carriage {
 public:
  Carriage(Line &line, Mode mode, int client, int server, unsigned seed)
      : line_(line), mode_(mode), client_(client), server_(server), random_(seed) {
    if (mode == Mode::kResets) budget_ = 1 + one_of(12000);
  }
  ~Carriage() {
    if (budget_ == 0) {
      reset(client_);
      reset(server_);
    }
    ::close(client_);
    ::close(server_);
  }
  Carriage(const Carriage &) = delete;
  Carriage &operator=(const Carriage &) = delete;

  // False at the end.
  bool go_on() {
    const short from_client = mode_ == Mode::kHolds ? 0 : POLLIN;
    const short from_server = mode_ == Mode::kHolds || holds_reply() ? 0 : POLLIN;
    pollfd ready[3] = {{client_, from_client, 0}, {server_, from_server, 0}, {line_.stop_, POLLIN, 0}};
    const int num_ready = ::poll(ready, 3, patience());
    if (num_ready == 0) return !is_heard_;
    if (ready[2].revents != 0 || mode_ == Mode::kHolds) return false;
    if (ready[0].revents != 0 && !ask()) return false;
    return ready[1].revents == 0 || answer();
  }

 private:
  bool holds_reply() const { return mode_ == Mode::kHoldsReplies && is_asked_ && line_.mode_ == mode_; }

  int patience() const {
    if (is_heard_) return kSilenceBehindReply;
    return holds_reply() ? 1 : -1;
  }

  // Of TLS 1.3 the client's second word ends the handshake and is followed by the request.
  bool ask() {
    is_asked_ = is_answered_;
    if (holds_reply()) line_.holds_reply_ = true;
    return pass_on(client_, server_);
  }

  bool answer() {
    is_answered_ = true;
    if (mode_ != Mode::kLosesReplies || !is_asked_) return pass_on(server_, client_);
    is_heard_ = true;
    return ::recv(server_, buffer_, sizeof buffer_, 0) > 0;
  }

  bool pass_on(int from, int to) {
    if (mode_ == Mode::kDelays) {
      pollfd stopped = {line_.stop_, POLLIN, 0};
      ::poll(&stopped, 1, static_cast<int>(one_of(static_cast<unsigned>(kLongestDelay.count()))));
    }
    const ssize_t count = ::recv(from, buffer_, std::min(sizeof buffer_, budget_), 0);
    if (count <= 0) return false;
    budget_ -= static_cast<std::size_t>(count);
    return ::send(to, buffer_, static_cast<std::size_t>(count), MSG_NOSIGNAL) == count && budget_ > 0;
  }

  unsigned one_of(unsigned count) { return static_cast<unsigned>(random_()) % count; }

  Line &line_;
  const Mode mode_;
  const int client_;
  const int server_;
  std::mt19937 random_;
  std::size_t budget_ = SIZE_MAX;
  bool is_answered_ = false;
  bool is_asked_ = false;
  bool is_heard_ = false;  // a reply that is lost
  char buffer_[16384];
};

Line::Line(std::uint16_t target, const std::string &address_text) : target_(target) {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  stop_ = ::eventfd(0, EFD_CLOEXEC);
  sockaddr_in address = loopback(0, address_text);
  socklen_t length = sizeof address;
  if (::bind(listener_, reinterpret_cast<sockaddr *>(&address), length) != 0 || ::listen(listener_, 64) != 0 ||
      ::getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length) != 0)
    throw std::runtime_error("no line");
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { accept_connections(); });
}

Line::~Line() {
  ::eventfd_write(stop_, 1);
  thread_.join();
  ::close(listener_);
  ::close(stop_);
}

void Line::accept_connections() {
  for (unsigned seed = 7;; ++seed) {
    pollfd ready[2] = {{listener_, POLLIN, 0}, {stop_, POLLIN, 0}};
    ::poll(ready, 2, -1);
    if (ready[1].revents != 0) break;
    const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) continue;
    ++num_connections_;
    const Mode mode = mode_;
    carriers_.emplace_back([=, this] { carry(client, mode, seed); });
  }
  for (std::thread &carrier : carriers_) carrier.join();
}

void Line::carry(int client, Mode mode, unsigned seed) {
  const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(target_);
  Carriage carriage(*this, mode, client, server, seed);
  if (::connect(server, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) return;
  while (carriage.go_on()) {
  }
}

RawOptions mirror_options(const std::filesystem::path &directory) {
  return {directory / "mirror.pem", directory / "mirror-key.pem", directory / "authority.pem", 0};
}

std::string ask_as(const RawOptions &options, std::uint16_t port, const std::string &request) {
  RawConnection connection(port);
  EXPECT_TRUE(connection.handshake(options));
  connection.send(request);
  return connection.receive_all();
}

}  // namespace veskd::test
