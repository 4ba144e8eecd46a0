// Servers that are one another's mirrors, and the line between them.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/server/test_server.h"
#include "veskd/mirror_records.h"
#include "veskd/replicator.h"

namespace veskd::test {

// Retries soon, so that tests need not wait.
ReplicationTimes short_times();

// A client of a server in a directory of its own, on the port that the server got.
class MirrorClient {
 public:
  const std::filesystem::path &directory() const { return directory_.path(); }
  std::uint16_t port() const { return port_; }

  template <typename PublicCall, typename... Arguments>
  int call(PublicCall public_call, Arguments &&...arguments) const {
    return public_call(&paths_, "127.0.0.1", port_, std::forward<Arguments>(arguments)...);
  }

  void create_mirror_key(const std::string &name) const;
  // The key's value; empty when there is no such key.
  std::string value_of(const std::string &name) const;
  int set_metadata(const std::string &name, const std::string &text) const;
  std::string metadata_of(const std::string &name) const;
  void add_mirror(const std::string &name, std::uint16_t port) const;
  int queue_size(const std::string &name) const;
  // Asks for a comparison until the mirror is known to hold the same keys.
  bool agrees_with(const std::string &name) const;

 protected:
  // When the directory has its files.
  void use_files() { paths_ = client_paths(directory()); }
  void use_port(std::uint16_t port) { port_ = port; }

 private:
  TemporaryDirectory directory_;
  CertificatePaths paths_{};
  std::uint16_t port_ = 0;
};

// A server with a replicator, which can be stopped and started again. It plays the faults of faults.toml, if that is in
// its directory at the start.
class MirrorServer : public MirrorClient {
 public:
  // Shares the authority of that directory; has its own when it is empty.
  explicit MirrorServer(const std::filesystem::path &authority_from = {},
                        const ReplicationTimes &times = short_times());
  ~MirrorServer();

  void stop();
  // On the port it had.
  void start();
  // While it is stopped.
  void lose_store();

  Store &store();
  Mirror mirror(const std::string &name);

 private:
  struct Running;

  std::filesystem::path authority_from_;
  ReplicationTimes times_;
  Log log_{true};
  std::unique_ptr<Running> running_;
};

struct MirrorServer::Running {
  Running(MirrorServer &owner);
  ~Running();

  DevEnvironment environment;
  Store store;
  Server server;
  Replicator replicator;
  std::thread thread;
};

// Two servers of one authority; the first knows the second as "two".
class Mirrors : public testing::Test {
 protected:
  void SetUp() override { one_.add_mirror("two", two_.port()); }
  // Whether a comparison finds that they hold other keys.
  bool differs();

  MirrorServer one_;
  MirrorServer two_{one_.directory()};
};

// Stands between a server and its mirror.
class Line {
 public:
  enum class Mode {
    kPasses,
    kHolds,         // accepts, and lets nothing through
    kDelays,        // what is sent arrives later, each time by another time, also when its sender has given up
    kResets,        // each connection after a number of bytes that differs from one to the next
    kLosesReplies,  // lets handshake and request through, and nothing of what is said to that
    kHoldsReplies,  // the same, but keeps that until it becomes another
  };
  static constexpr std::chrono::milliseconds kLongestDelay{150};

  // Listens on the address, leads to the port on 127.0.0.1.
  explicit Line(std::uint16_t target, const std::string &address = "127.0.0.1");
  ~Line();
  Line(const Line &) = delete;
  Line &operator=(const Line &) = delete;

  std::uint16_t port() const { return port_; }
  int num_connections() const { return num_connections_; }
  bool holds_reply() const { return holds_reply_; }
  // For connections that come; those that are open go on as they began.
  void become(Mode mode) { mode_ = mode; }

 private:
  class Carriage;

  void accept_connections();
  void carry(int client, Mode mode, unsigned seed);

  const std::uint16_t target_;
  std::uint16_t port_ = 0;
  int listener_ = -1;
  int stop_ = -1;  // readable at the end
  std::atomic<Mode> mode_ = Mode::kPasses;
  std::atomic<int> num_connections_ = 0;
  std::atomic<bool> holds_reply_ = false;
  std::vector<std::thread> carriers_;  // of the accepting thread
  std::thread thread_;
};

// What a server of that directory shows to its mirrors.
RawOptions mirror_options(const std::filesystem::path &directory);

// Sends a request with that certificate and returns all of the reply.
std::string ask_as(const RawOptions &options, std::uint16_t port, const std::string &request);

}  // namespace veskd::test
