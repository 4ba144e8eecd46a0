// Sixty-four threads that make calls of every kind while the certificate files are renewed, what is kept is dropped,
// and the trace is switched.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/server/test_server.h"
#include "veskd/files.h"
#include "veskd/return_codes.h"

namespace secrets_test {
namespace {

using veskd::test::TestServer;

constexpr int kThreads = 64;
constexpr int kRounds = 4;
constexpr const char *kConstant = "CONSTANT_000015";

struct FreeList {
  void operator()(LinkedList *list) const { ll_free(list); }
};

// Each of a thread's calls is another than the same of its neighbours at that time.
class Caller {
 public:
  Caller(const TestServer &server, int number) : server_(server), number_(number) {}

  void run() {
    const std::array<std::function<void()>, 6> kinds = {
        [this] { create_and_retrieve(); },  [this] { draw(); }, [this] { list_templates(); },
        [this] { set_and_get_metadata(); }, [this] { ping(); }, [this] { read_depth(); },
    };
    for (int round = 0; round < kRounds; ++round) kinds[static_cast<std::size_t>(number_ + round) % kinds.size()]();
  }

 private:
  template <typename PublicCall, typename... Arguments>
  int call(PublicCall public_call, Arguments... arguments) const {
    return public_call(server_.paths(), server_.host(), server_.port(), arguments...);
  }

  void create_and_retrieve() {
    const std::string name = "K" + std::to_string(number_) + "-" + std::to_string(++num_created_);
    KeyRecord record{};
    ASSERT_EQ(call(qCreateSymKey, name.c_str(), 'N'), 0);
    EXPECT_EQ(call(qRetrieveKey, name.c_str(), "", &record), 0);
    EXPECT_EQ(record.caKeyName, name);
  }
  void draw() const {
    char name[41];
    unsigned char value[32];
    std::uint32_t increment = 0;
    EXPECT_EQ(call(qGetNextKey, kConstant, name, value, &increment), 0);
  }
  void list_templates() const {
    const std::unique_ptr<LinkedList, FreeList> list(ll_create(40));
    EXPECT_EQ(call(qGetTemplateList, list.get()), 0);
    EXPECT_EQ(ll_count(list.get()), 1U);
  }
  void set_and_get_metadata() const {
    const std::string text = std::to_string(number_);
    KeyMetadataValues values{};
    const char *t = text.c_str();
    EXPECT_EQ(call(qSetMetadata, "SHARED", "", t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t), 0);
    EXPECT_EQ(call(qRetrieveKeyMetadata, "SHARED", &values), 0);
    // All of one thread, whichever it was.
    EXPECT_STREQ(values.md[0], values.md[15]);
  }
  void ping() const { EXPECT_EQ(call(qAdminNoop), 0); }
  void read_depth() const {
    std::uint32_t size = 0, next = 0;
    EXPECT_EQ(call(qGetTemplateDepth, kConstant, &size, &next), 0);
    EXPECT_EQ(size, 999U);
  }

  const TestServer &server_;
  const int number_;
  int num_created_ = 0;
};

// The key and the chain of another certificate of the same client take the place of the old ones, each file at once. In
// between the two do not belong together, which is why the files are the same pair: what changes is which file it is.
void renew_files(const TestServer &server, const std::atomic<bool> &is_over) {
  for (int i = 0; !is_over; ++i) {
    for (const char *name : {"authority.pem", "client.pem", "client-key.pem"}) {
      const std::filesystem::path path = server.directory() / name;
      veskd::replace_file(path, veskd::read_file(path), veskd::kPrivateMode);
    }
    if (i % 3 == 1) TLSForgetAll();
    if (i % 5 == 2) TLSResumption(0);
    if (i % 5 == 3) TLSResumption(1);
    EXPECT_EQ(TraceToFile((server.directory() / "trace").c_str()), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    TraceOff();
  }
  TLSResumption(1);
}

TEST(Threads, MakeCallsOfEveryKindWhileAllThatTheyShareChanges) {
  veskd::Limits limits;
  limits.num_threads = 4;
  TestServer server(limits);
  ASSERT_EQ(qAutoGenKeys(server.paths(), server.host(), server.port(), kConstant, 'i', 1000), 0);
  ASSERT_EQ(qCreateSymKey(server.paths(), server.host(), server.port(), "SHARED", 'N'), 0);
  std::atomic<bool> is_over = false;
  std::thread renewer([&] { renew_files(server, is_over); });
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back([&server, i] { Caller(server, i).run(); });
  for (std::thread &thread : threads) thread.join();
  is_over = true;
  renewer.join();
}

}  // namespace
}  // namespace secrets_test
