// A server that is killed while many clients draw keys: no increment is served twice, and no key that was handed out is
// lost.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "orn/vesk.h"
#include "tests/server/program.h"
#include "tests/server/test_server.h"

namespace veskd::test {
namespace {

constexpr const char *kConstant = "CONSTANT_000015";
constexpr std::uint32_t kNumKeys = 20000;
constexpr std::size_t kNumClients = 64;
constexpr std::size_t kKillAfter = 300;  // keys received

struct DrawnKey {
  std::string name;
  std::string value;
};

// The keys that all clients received, by increment.
class Ledger {
 public:
  // False when the increment was drawn before.
  bool add(std::uint32_t increment, DrawnKey key) {
    const std::lock_guard lock(mutex_);
    return keys_.emplace(increment, std::move(key)).second;
  }
  std::size_t size() const {
    const std::lock_guard lock(mutex_);
    return keys_.size();
  }
  const std::map<std::uint32_t, DrawnKey> &keys() const { return keys_; }

 private:
  mutable std::mutex mutex_;
  std::map<std::uint32_t, DrawnKey> keys_;
};

// Draws one key. Returns the call's status; what was received goes to the ledger.
int draw(const CertificatePaths &paths, std::uint16_t port, Ledger &ledger) {
  char name[41] = {};
  unsigned char value[32] = {};
  std::uint32_t increment = 0;
  const int status = qGetNextKey(&paths, "127.0.0.1", port, kConstant, name, value, &increment);
  if (status == 0) {
    EXPECT_TRUE(ledger.add(increment, {name, std::string(std::begin(value), std::end(value))})) << increment;
  }
  return status;
}

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
    ASSERT_EQ(qAutoGenKeys(&paths, "127.0.0.1", server.port(), kConstant, 'i', kNumKeys), 0);
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
  ASSERT_EQ(qGetTemplateDepth(&paths, "127.0.0.1", server.port(), kConstant, &size, &sequence), 0);
  EXPECT_GE(sequence, ledger.size());
  EXPECT_LE(sequence, ledger.size() + kNumKills * kNumClients);
  for (const auto &[increment, key] : ledger.keys()) {
    KeyRecord record{};
    ASSERT_EQ(qRetrieveKey(&paths, "127.0.0.1", server.port(), key.name.c_str(), "", &record), 0) << key.name;
    ASSERT_EQ(std::string(record.caKeyValue, 32), key.value) << key.name;
  }
}

}  // namespace
}  // namespace veskd::test
