// A server that is killed while many clients draw keys: no increment is served twice, and no key that was handed out is
// lost.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <thread>
#include <vector>

#include "orn/vesk.h"
#include "tests/server/ledger.h"
#include "tests/server/program.h"
#include "tests/server/test_server.h"

namespace veskd::test {
namespace {

constexpr std::uint32_t kNumKeys = 20000;
constexpr std::size_t kNumClients = 64;
constexpr std::size_t kKillAfter = 300;  // keys received

// All clients draw until their calls fail; the server is killed when enough keys have been received.
void draw_until_killed(const CertificatePaths &paths, DevServer &server, Ledger &ledger) {
  const std::size_t enough = ledger.size() + kKillAfter;
  std::atomic<bool> killed = false;
  std::vector<std::thread> clients(kNumClients);
  for (std::thread &client : clients) {
    client = std::thread([&] {
      while (draw(paths, server.port(), ledger) == 0) {
        if (ledger.size() >= enough && !killed.exchange(true)) server.program().signal(SIGKILL);
      }
    });
  }
  for (std::thread &client : clients) client.join();
  ASSERT_TRUE(killed);
  ASSERT_EQ(server.program().wait(), -SIGKILL);
}

TEST(Crash, NoIncrementIsServedTwiceAndNoServedKeyIsLost) {
  TemporaryDirectory directory;
  Ledger ledger;
  {
    DevServer server(directory.path());
    const CertificatePaths paths = client_paths(directory.path());
    ASSERT_EQ(qAutoGenKeys(&paths, "127.0.0.1", server.port(), kLedgerConstant, 'i', kNumKeys), 0);
    ASSERT_EQ(server.stop(), 0);
  }
  const CertificatePaths paths = client_paths(directory.path());
  constexpr std::size_t kNumKills = 3;
  for (std::size_t kill = 0; kill < kNumKills; ++kill) {
    DevServer server(directory.path());
    draw_until_killed(paths, server, ledger);
  }
  DevServer server(directory.path());
  for (int i = 0; i < 10; ++i) ASSERT_EQ(draw(paths, server.port(), ledger), 0);
  // An increment that was moved past without being received was under way to a client when the server was killed.
  std::uint32_t size = 0, sequence = 0;
  ASSERT_EQ(qGetTemplateDepth(&paths, "127.0.0.1", server.port(), kLedgerConstant, &size, &sequence), 0);
  EXPECT_GE(sequence, ledger.size());
  EXPECT_LE(sequence, ledger.size() + kNumKills * kNumClients);
  expect_kept(paths, server.port(), ledger);
}

}  // namespace
}  // namespace veskd::test
