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
class KilledServer : public MirrorClient {
 public:
  explicit KilledServer(const std::filesystem::path &authority_from) {
    const Log quiet(true);
    const DevEnvironment made(directory(), {}, quiet, authority_from);
    use_files();
  }
  void start() {
    server_ = std::make_unique<DevServer>(directory());
    use_port(server_->port());
  }
  void kill() {
    server_->program().signal(SIGKILL);
    ASSERT_EQ(server_->program().wait(), -SIGKILL);
  }

 private:
  std::unique_ptr<DevServer> server_;
};

// Two of one authority.
class MirrorCrash : public testing::Test {
 protected:
  void SetUp() override {
    one_.start();
    two_.start();
  }

  KilledServer one_{{}};
  KilledServer two_{one_.directory()};
};

// Creates keys until the server is gone, and kills one of the two in the middle. Returns the names that were answered.
std::vector<std::string> create_until_killed(KilledServer &one, KilledServer &victim, int round) {
  std::vector<std::string> created;
  std::atomic<int> num_created = 0;
  std::atomic<bool> killed = false;
  std::thread client([&] {
    for (int i = 0; i < 1000 && !killed; ++i) {
      const std::string name = "R" + std::to_string(round) + "-" + std::to_string(i);
      if (one.call(qCreateSymKey, name.c_str(), 'Y') != 0) break;
      created.push_back(name);
      ++num_created;
    }
  });
  EXPECT_TRUE(eventually([&] { return num_created >= 30; }));
  victim.kill();
  killed = true;
  client.join();
  return created;
}

TEST_F(MirrorCrash, NothingThatWasAnsweredIsLostWhicheverSideIsKilled) {
  std::vector<std::string> created;
  for (int round = 0; round < 4; ++round) {
    one_.add_mirror("two", two_.port());
    KilledServer &victim = round % 2 == 0 ? one_ : two_;
    for (std::string &name : create_until_killed(one_, victim, round)) created.push_back(name);
    victim.start();
  }
  one_.add_mirror("two", two_.port());
  EXPECT_TRUE(one_.agrees_with("two"));
  EXPECT_EQ(one_.queue_size("two"), 0);
  ASSERT_GE(created.size(), 120u);
  for (const std::string &name : created) {
    ASSERT_FALSE(one_.value_of(name).empty()) << name;
    ASSERT_EQ(two_.value_of(name), one_.value_of(name)) << name;
  }
}

// Killed between the commit there and the commit here: the change is delivered again. What was set there since would
// not outlive that it is applied again.
TEST_F(MirrorCrash, NothingIsAppliedTwiceWhicheverSideIsKilled) {
  for (KilledServer *victim : {&one_, &two_}) {
    const std::string name = victim == &one_ ? "K1" : "K2";
    {
      Line line(two_.port());
      line.become(Line::Mode::kLosesReplies);
      one_.add_mirror("two", line.port());
      one_.create_mirror_key(name);
      ASSERT_TRUE(eventually([&] { return !two_.value_of(name).empty(); }));
      ASSERT_EQ(two_.set_metadata(name, "set there"), 0);
      ASSERT_EQ(one_.queue_size("two"), 1);
      victim->kill();
      victim->start();
    }
    EXPECT_EQ(one_.queue_size("two"), 1);
    one_.add_mirror("two", two_.port());
    EXPECT_TRUE(eventually([&] { return one_.queue_size("two") == 0; }));
    EXPECT_EQ(two_.value_of(name), one_.value_of(name));
    EXPECT_EQ(two_.metadata_of(name), "set there");
  }
}

}  // namespace
}  // namespace veskd::test
