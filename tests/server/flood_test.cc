// Peers that come in numbers and keep silent.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "tests/server/test_server.h"

namespace veskd::test {
namespace {

using namespace std::chrono_literals;
using Connections = std::vector<std::unique_ptr<RawConnection>>;

constexpr const char *kNoop = "000041043";
constexpr const char *kDone = "0000810430000";

Limits room_for(std::size_t connections) {
  Limits limits;
  limits.max_connections = connections;
  limits.num_threads = 2;
  limits.handshake = 1h;  // no time-out helps
  limits.request = 1h;
  return limits;
}

// As many connections as the process may have, if that is less. Both their ends are its own.
std::size_t allow_connections(std::size_t wanted) {
  constexpr rlim_t kOthers = 200;
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::max(limit.rlim_cur, std::min<rlim_t>(limit.rlim_max, wanted + kOthers));
  ::setrlimit(RLIMIT_NOFILE, &limit);
  return std::min<std::size_t>(wanted, limit.rlim_cur - kOthers);
}

Connections connect(const TestServer &server, std::size_t count) {
  Connections connections;
  for (std::size_t i = 0; i < count; ++i) connections.push_back(std::make_unique<RawConnection>(server.port()));
  return connections;
}

TEST(Flood, ThousandsOfSilentPeersDoNotKeepAClientFromWork) {
  constexpr std::size_t kRoom = 400;
  TestServer server(room_for(kRoom));
  const Connections silent = connect(server, allow_connections(5000 + kRoom) - kRoom);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 10; ++i) EXPECT_EQ(server.ping(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
}

// They give way one after the other.
TEST(Flood, TheOldestSilentPeerGoesFirst) {
  TestServer server(room_for(2));
  RawConnection oldest(server.port());
  RawConnection younger(server.port());
  EXPECT_EQ(server.ping(), 0);
  EXPECT_TRUE(oldest.is_closed_by_peer());
  ASSERT_TRUE(younger.handshake(raw_options(server.directory())));
  younger.send(kNoop);
  EXPECT_EQ(younger.receive_all(), kDone);
}

TEST(Flood, APeerThatBeganAndDoesNotGoOnGivesWayToo) {
  Limits limits = room_for(1);
  limits.ask = 50ms;
  TestServer server(limits);
  RawConnection begun(server.port());
  ASSERT_TRUE(begun.handshake(raw_options(server.directory())));
  begun.send("00");
  EXPECT_EQ(server.ping(), 0);
  EXPECT_EQ(begun.receive_all(), "");
}

// More clients at a time than there is room for wait for their turn; none is turned away.
TEST(Flood, ClientsThatDoTheirPartAreNotDisturbed) {
  Limits limits = room_for(4);
  limits.closing = 50ms;
  limits.begin = limits.ask = 1h;
  TestServer server(limits);
  std::vector<std::thread> clients;
  for (int i = 0; i < 12; ++i) {
    clients.emplace_back([&] {
      for (int call = 0; call < 5; ++call) EXPECT_EQ(server.ping(), 0);
    });
  }
  for (std::thread &client : clients) client.join();
}

}  // namespace
}  // namespace veskd::test
