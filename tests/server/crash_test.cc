// A server that is killed while many clients draw and create keys: no increment is served twice, and no key that was
// handed out, or whose creation was acknowledged, is lost. A batch that was under way is made whole or not at all.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/server/ledger.h"
#include "tests/server/program.h"
#include "tests/server/test_server.h"
#include "veskd/return_codes.h"

namespace veskd::test {
namespace {

using testing::Contains;

constexpr const char *kCreated = "CREATED_";
constexpr std::uint32_t kNumKeys = 20000;
constexpr std::size_t kNumClients = 64;
constexpr std::size_t kNumCreators = 16;
constexpr std::size_t kKillAfter = 300;  // keys received or created

int create(const CertificatePaths &paths, std::uint16_t port, const std::string &name, Ledger &ledger) {
  const int status = qCreateSymKey(&paths, "127.0.0.1", port, name.c_str(), 'N');
  if (status == 0) ledger.add_created(name);
  return status;
}

// The names of all keys that clients created, as the server tells them now.
std::vector<std::string> created_names(const CertificatePaths &paths, std::uint16_t port) {
  const std::unique_ptr<LinkedList, decltype(&ll_free)> list(ll_create(41), ll_free);
  std::uint32_t highest = 0;
  EXPECT_EQ(qRetrieveKeyNameListFiltered_as_ll(&paths, "127.0.0.1", port, list.get(), kCreated, &highest), 0);
  std::vector<std::string> names;
  for (const LinkedListNode *node = ll_first(list.get()); node != nullptr; node = ll_next(node)) {
    const std::string name = static_cast<const char *>(ll_element(node));
    names.push_back(name.substr(0, name.find(' ')));
  }
  return names;
}

// All clients draw, or create, until their calls fail; the server is killed when enough keys have been received.
void draw_until_killed(const CertificatePaths &paths, DevServer &server, Ledger &ledger) {
  const std::size_t enough = ledger.size() + kKillAfter;
  std::atomic<bool> killed = false;
  const auto run = [&](const std::function<int()> &call) {
    while (call() == 0) {
      if (ledger.size() >= enough && !killed.exchange(true)) server.program().signal(SIGKILL);
    }
  };
  std::vector<std::thread> clients;
  for (std::size_t i = 0; i < kNumClients; ++i)
    clients.emplace_back(run, [&] { return draw(paths, server.port(), ledger); });
  for (std::size_t i = 0; i < kNumCreators; ++i)
    clients.emplace_back(run, [&, name = fmt::format("{}{}_{}_", kCreated, enough, i), number = 0]() mutable {
      return create(paths, server.port(), name + std::to_string(number++), ledger);
    });
  for (std::thread &client : clients) client.join();
  ASSERT_TRUE(killed);
  ASSERT_EQ(server.program().wait(), -SIGKILL);
}

// Keys that were moved past on their way to a client: they are there, by their names.
void expect_unheard_of_kept(const CertificatePaths &paths, std::uint16_t port, const Ledger &ledger,
                            std::uint32_t next_increment) {
  for (std::uint32_t increment = 0; increment < next_increment; ++increment) {
    if (ledger.keys().contains(increment)) continue;
    const std::string name = fmt::format("{}{:06X}", kLedgerConstant, increment);
    KeyRecord record{};
    EXPECT_EQ(qRetrieveKey(&paths, "127.0.0.1", port, name.c_str(), "", &record), 0) << name;
  }
}

TEST(Crash, NoIncrementIsServedTwiceAndNoAcknowledgedKeyIsLost) {
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
  EXPECT_GE(sequence, ledger.keys().size());
  EXPECT_LE(sequence, ledger.keys().size() + kNumKills * kNumClients);
  expect_kept(paths, server.port(), ledger);
  expect_unheard_of_kept(paths, server.port(), ledger, sequence);
  const std::vector<std::string> names = created_names(paths, server.port());
  EXPECT_FALSE(ledger.created().empty());
  for (const std::string &name : ledger.created()) ASSERT_THAT(names, Contains(name));
}

TEST(CrashInFiles, ABatchIsMadeWholeOrNotAtAll) {
  TemporaryDirectory directory;
  constexpr std::uint32_t kBatch = 99999;
  int answer = 0;
  {
    DevServer server(directory.path());
    const CertificatePaths paths = client_paths(directory.path());
    auto batch = std::async(std::launch::async, [&, port = server.port()] {
      return qAutoGenKeys(&paths, "127.0.0.1", port, kLedgerConstant, 'i', kBatch);
    });
    // It is under way when its keys have begun to fill the write-ahead log.
    EXPECT_TRUE(eventually([&] {
      std::error_code error;
      constexpr std::uintmax_t kSomeKeys = 4'000'000;
      const std::uintmax_t bytes = std::filesystem::file_size(directory / "store.db-wal", error);
      return !error && bytes > kSomeKeys;
    }));
    server.program().signal(SIGKILL);
    ASSERT_EQ(server.program().wait(), -SIGKILL);
    answer = batch.get();
  }
  DevServer server(directory.path());
  const CertificatePaths paths = client_paths(directory.path());
  std::uint32_t size = 0, sequence = 0;
  const int status = qGetTemplateDepth(&paths, "127.0.0.1", server.port(), kLedgerConstant, &size, &sequence);
  if (answer == 0 || status == 0) {
    EXPECT_EQ(status, 0);
    EXPECT_EQ(size, kBatch - 1);
    return;
  }
  EXPECT_EQ(status, RC_TEMPLATE_UNKNOWN);
  // None of its names is taken.
  EXPECT_EQ(qAutoGenKeys(&paths, "127.0.0.1", server.port(), kLedgerConstant, 'i', 10), 0);
}

}  // namespace
}  // namespace veskd::test
