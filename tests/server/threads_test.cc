// Many clients at once, on a server of several threads.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/server/test_server.h"
#include "veskd/return_codes.h"

namespace veskd::test {
namespace {

constexpr const char *kConstant = "CONSTANT_000015";
constexpr int kNumClients = 8;

Limits four_threads() {
  Limits limits;
  limits.num_threads = 4;
  limits.max_page_bytes = 44;
  return limits;
}

void run_clients(const std::function<void(int)> &client) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kNumClients; ++i) threads.emplace_back(client, i);
  for (std::thread &thread : threads) thread.join();
}

TEST(Threads, EveryIncrementIsServedOnce) {
  TestServer server(four_threads());
  constexpr std::uint32_t kNumKeys = 200;
  ASSERT_EQ(qAutoGenKeys(server.paths(), server.host(), server.port(), kConstant, 'i', kNumKeys), 0);
  std::vector<std::atomic<int>> served(kNumKeys);
  run_clients([&](int) {
    char name[41];
    unsigned char value[32];
    std::uint32_t increment = 0;
    int status = 0;
    while ((status = qGetNextKey(server.paths(), server.host(), server.port(), kConstant, name, value, &increment)) ==
           0)
      ++served.at(increment);
    EXPECT_EQ(status, RC_TEMPLATE_EXHAUSTED);
  });
  for (std::uint32_t i = 0; i < kNumKeys; ++i) EXPECT_EQ(served[i], 1) << i;
}

TEST(Threads, OneOfManyCreatesTheKey) {
  TestServer server(four_threads());
  std::atomic<int> num_created = 0;
  run_clients([&](int) {
    const int status = qCreateSymKey(server.paths(), server.host(), server.port(), "K1", 'N');
    if (status == 0)
      ++num_created;
    else
      EXPECT_EQ(status, RC_KEY_EXISTS);
  });
  EXPECT_EQ(num_created, 1);
}

// A key is whole or not there: its value is never missed between the two.
TEST(Threads, AKeyThatIsDeletedMeanwhileIsReadOrUnknown) {
  TestServer server(four_threads());
  constexpr int kNumKeys = 25;
  std::atomic<int> current = 0;
  const auto name_of = [](int key) { return "K" + std::to_string(key); };
  run_clients([&](int client) {
    for (int key = 0; client == 0 && key < kNumKeys; current = ++key) {
      EXPECT_EQ(qCreateSymKey(server.paths(), server.host(), server.port(), name_of(key).c_str(), 'N'), 0);
      EXPECT_EQ(qChangeDeletable(server.paths(), server.host(), server.port(), name_of(key).c_str(), 'Y'), 0);
      EXPECT_EQ(qDeleteKey(server.paths(), server.host(), server.port(), name_of(key).c_str()), 0);
    }
    for (int key = 0; (key = current) < kNumKeys;) {
      KeyRecord record{};
      const int status = qRetrieveKey(server.paths(), server.host(), server.port(), name_of(key).c_str(), "", &record);
      EXPECT_TRUE(status == 0 || status == RC_KEY_UNKNOWN) << status;
    }
  });
}

TEST(Threads, ReadersAndWritersOfEverythingDoNotDisturbEachOther) {
  TestServer server(four_threads());
  run_clients([&](int client) {
    const std::string constant = "CONSTANT_00001" + std::to_string(client);
    const std::string name = "K" + std::to_string(client);
    ASSERT_EQ(qCreateSymKey(server.paths(), server.host(), server.port(), name.c_str(), 'N'), 0);
    ASSERT_EQ(qAutoGenKeys(server.paths(), server.host(), server.port(), constant.c_str(), 'i', 10), 0);
    for (int i = 0; i < 5; ++i) {
      KeyRecord record{};
      ASSERT_EQ(qRetrieveKey(server.paths(), server.host(), server.port(), name.c_str(), "", &record), 0);
      std::uint32_t size = 0, sequence = 0;
      ASSERT_EQ(qGetTemplateDepth(server.paths(), server.host(), server.port(), constant.c_str(), &size, &sequence), 0);
      ASSERT_EQ(size, 9u);
      LinkedList *list = ll_create(40);
      EXPECT_EQ(qGetTemplateList(server.paths(), server.host(), server.port(), list), 0);
      ll_free(list);
    }
    ASSERT_EQ(qRemoveTemplate(server.paths(), server.host(), server.port(), constant.c_str()), 0);
    ASSERT_EQ(qDeleteKey(server.paths(), server.host(), server.port(), name.c_str()), 0);
  });
}

TEST(Threads, FaultsAreCountedAcrossThem) {
  const TemporaryDirectory directory;
  std::ofstream(directory / "faults.toml") << "[[fault]]\nevery = 4\ndo = 'return-code'\ncode = 9998\n";
  ServerOptions options;
  options.limits = four_threads();
  options.roles = development_roles();
  options.faults.script = directory / "faults.toml";
  TestServer server(options);
  constexpr int kNumCalls = 5;
  std::atomic<int> num_refused = 0;
  run_clients([&](int) {
    for (int i = 0; i < kNumCalls; ++i) num_refused += server.ping() == 9998 ? 1 : 0;
  });
  EXPECT_EQ(num_refused, kNumClients * kNumCalls / 4);
}

TEST(Threads, TheServerStopsWhileClientsCall) {
  TestServer server(four_threads());
  std::atomic<int> num_answered = 0;
  std::vector<std::thread> clients;
  for (int i = 0; i < kNumClients; ++i) {
    clients.emplace_back([&, i] {
      int number = 0;
      const auto name = [&] { return "K" + std::to_string(i) + "-" + std::to_string(++number); };
      while (qCreateSymKey(server.paths(), server.host(), server.port(), name().c_str(), 'N') == 0) {
        ++num_answered;
        num_answered.notify_all();
      }
    });
  }
  for (int seen = 0; seen < 20; seen = num_answered) num_answered.wait(seen);
  server.stop();
  for (std::thread &client : clients) client.join();
  // What was answered was durable before.
  Store::Reader reader(server.store());
  Query query((*reader).database, "SELECT count(*) FROM keys");
  ASSERT_TRUE(query.next());
  EXPECT_GE(query.number(0), num_answered);
}

}  // namespace
}  // namespace veskd::test
