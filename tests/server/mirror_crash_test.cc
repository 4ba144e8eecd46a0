// A server and its mirror that are killed while changes flow: nothing that was answered is lost, and both end with the
// same keys.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/server/mirror_servers.h"
#include "tests/server/program.h"

namespace veskd::test {
namespace {

// A directory that a server of the real program serves, on whatever port it gets.
class KilledServer {
 public:
  explicit KilledServer(const std::filesystem::path &authority_from) {
    const Log quiet(true);
    const DevEnvironment made(directory_.path(), {}, quiet, authority_from);
    paths_ = client_paths(directory_.path());
  }
  void start() { server_ = std::make_unique<DevServer>(directory_.path()); }
  void kill() {
    server_->program().signal(SIGKILL);
    ASSERT_EQ(server_->program().wait(), -SIGKILL);
  }
  const std::filesystem::path &directory() const { return directory_.path(); }
  std::uint16_t port() const { return server_->port(); }

  template <typename PublicCall, typename... Arguments>
  int call(PublicCall public_call, Arguments &&...arguments) const {
    return public_call(&paths_, "127.0.0.1", port(), std::forward<Arguments>(arguments)...);
  }

  std::string value_of(const std::string &name) const {
    KeyRecord record{};
    return call(qRetrieveKey, name.c_str(), "", &record) == 0 ? std::string(record.caKeyValue, 32) : std::string();
  }

 private:
  TemporaryDirectory directory_;
  CertificatePaths paths_{};
  std::unique_ptr<DevServer> server_;
};

// Creates keys until the server is gone, and kills one of the two in the middle. Returns the names that were answered.
std::vector<std::string> create_until_killed(KilledServer &one, const std::function<void()> &kill, int round) {
  std::vector<std::string> created;
  std::atomic<int> num_created = 0;
  std::atomic<bool> killed = false;
  std::thread client([&] {
    for (int i = 0; i < 1000 && !killed; ++i) {
      const std::string name = "R" + std::to_string(round) + "-" + std::to_string(i);
      if (one.call(qCreateSymKey, name.c_str(), 'Y') != 0) break;
      created.push_back(name);
      ++num_created;
      num_created.notify_all();
    }
  });
  for (int seen = 0; seen < 30; seen = num_created) num_created.wait(seen);
  kill();
  killed = true;
  client.join();
  return created;
}

TEST(MirrorCrash, NothingThatWasAnsweredIsLostWhicheverSideIsKilled) {
  KilledServer one({});
  KilledServer two(one.directory());
  one.start();
  two.start();
  std::vector<std::string> created;
  for (int round = 0; round < 4; ++round) {
    ASSERT_EQ(one.call(qSetMirrorAddress, "two", "127.0.0.1", std::uint32_t{two.port()}), 0);
    KilledServer &victim = round % 2 == 0 ? one : two;
    for (std::string &name : create_until_killed(
             one, [&] { victim.kill(); }, round))
      created.push_back(name);
    victim.start();
  }
  ASSERT_EQ(one.call(qSetMirrorAddress, "two", "127.0.0.1", std::uint32_t{two.port()}), 0);
  std::int32_t num_faults = 0;
  char status = 0, same = 0;
  EXPECT_TRUE(eventually([&] {
    EXPECT_EQ(one.call(qGetMirrorStatus, "two", 1, &num_faults, &status, &same), 0);
    return same == 'Y';
  }));
  ASSERT_GE(created.size(), 120u);
  for (const std::string &name : created) {
    ASSERT_FALSE(one.value_of(name).empty()) << name;
    ASSERT_EQ(two.value_of(name), one.value_of(name)) << name;
  }
}

}  // namespace
}  // namespace veskd::test
