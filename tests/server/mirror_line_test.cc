// Replication over lines that break, delay, lose and hold what they carry, and with mirrors that answer nonsense.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>

#include "tests/server/mirror_servers.h"
#include "veskd/return_codes.h"

namespace veskd::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST_F(Mirrors, OverALineThatBreaksNothingIsLost) {
  Line line(two_.port());
  line.become(Line::Mode::kResets);
  one_.add_mirror("two", line.port());
  for (int i = 0; i < 40; ++i) {
    const std::string name = "K" + std::to_string(i);
    one_.create_mirror_key(name);
    ASSERT_EQ(one_.set_metadata(name, "text " + name), 0);
    if (i % 4 == 0) {
      ASSERT_EQ(one_.call(qDeleteKey, name.c_str()), 0);
    }
  }
  ASSERT_TRUE(eventually([&] { return one_.mirror("two").fault_count >= 5; }));
  line.become(Line::Mode::kPasses);
  EXPECT_TRUE(one_.agrees_with("two"));
  EXPECT_EQ(one_.queue_size("two"), 0);
  for (int i = 0; i < 40; ++i) {
    const std::string name = "K" + std::to_string(i);
    EXPECT_EQ(two_.value_of(name), one_.value_of(name)) << name;
    EXPECT_EQ(two_.metadata_of(name), i % 4 == 0 ? "no such key" : "text " + name);
  }
}

// What is applied once more would undo what was set there since.
TEST_F(Mirrors, AChangeWhoseReplyIsLostIsDeliveredAgainAndAppliedOnce) {
  Line line(two_.port());
  line.become(Line::Mode::kLosesReplies);
  one_.add_mirror("two", line.port());
  one_.create_mirror_key("K1");
  ASSERT_TRUE(eventually([&] { return !two_.value_of("K1").empty(); }));
  ASSERT_EQ(two_.set_metadata("K1", "set there"), 0);
  const std::int64_t faults = one_.mirror("two").fault_count;
  ASSERT_TRUE(eventually([&] { return one_.mirror("two").fault_count >= faults + 3; }));
  EXPECT_EQ(one_.queue_size("two"), 1);
  EXPECT_EQ(one_.mirror("two").status, kDown);
  EXPECT_EQ(two_.metadata_of("K1"), "set there");
  line.become(Line::Mode::kPasses);
  EXPECT_TRUE(eventually([&] { return one_.queue_size("two") == 0; }));
  EXPECT_EQ(two_.metadata_of("K1"), "set there");
  EXPECT_EQ(two_.value_of("K1"), one_.value_of("K1"));
}

// Beyond the time of an exchange, so that changes arrive when they were delivered otherwise.
TEST(MirrorTimes, OverALineThatDelaysNothingIsLost) {
  ReplicationTimes times = short_times();
  times.exchange = 2 * Line::kLongestDelay;
  MirrorServer one({}, times);
  MirrorServer two(one.directory());
  Line line(two.port());
  line.become(Line::Mode::kDelays);
  one.add_mirror("two", line.port());
  for (int i = 0; i < 10; ++i) {
    const std::string name = "K" + std::to_string(i);
    one.create_mirror_key(name);
    ASSERT_EQ(one.set_metadata(name, "text " + name), 0);
  }
  ASSERT_EQ(one.call(qDeleteKey, "K0"), 0);
  // Tried again and again, also when everything has arrived.
  std::int32_t faults = 0;
  char status = 0, same = 0;
  ASSERT_TRUE(eventually([&] {
    EXPECT_EQ(one.call(qGetMirrorStatus, "two", 1, &faults, &status, &same), 0);
    return faults >= 3;
  }));
  line.become(Line::Mode::kPasses);
  EXPECT_TRUE(one.agrees_with("two"));
  EXPECT_EQ(one.queue_size("two"), 0);
  EXPECT_EQ(two.value_of("K0"), "");
  for (int i = 1; i < 10; ++i) {
    const std::string name = "K" + std::to_string(i);
    EXPECT_EQ(two.value_of(name), one.value_of(name)) << name;
    EXPECT_EQ(two.metadata_of(name), "text " + name);
  }
}

// What is changed while the mirror's digest is on its way makes no other keys of those that it holds.
TEST(MirrorTimes, AChangeDuringAComparisonIsNoDifference) {
  ReplicationTimes times = short_times();
  times.compare_pause = times.compare_every;
  MirrorServer one({}, times);
  MirrorServer two(one.directory());
  Line line(two.port());
  line.become(Line::Mode::kHoldsReplies);
  one.add_mirror("two", line.port());
  ASSERT_TRUE(eventually([&] { return line.holds_reply(); }));
  one.create_mirror_key("K1");
  line.become(Line::Mode::kPasses);
  ASSERT_TRUE(eventually([&] { return one.queue_size("two") == 0; }));
  EXPECT_EQ(one.mirror("two").status, kUp);
  EXPECT_EQ(one.mirror("two").data_hash_status, kUnknownData);
  EXPECT_TRUE(one.agrees_with("two"));
}

TEST_F(Mirrors, WhileChangesWaitItIsNotKnownWhetherTheKeysAreTheSame) {
  Line line(two_.port());
  one_.add_mirror("two", line.port());
  ASSERT_TRUE(one_.agrees_with("two"));
  line.become(Line::Mode::kHoldsReplies);
  one_.create_mirror_key("K1");
  ASSERT_TRUE(eventually([&] { return line.holds_reply(); }));
  std::int32_t faults = 0;
  char status = 0, same = 0;
  ASSERT_EQ(one_.call(qGetMirrorStatus, "two", 0, &faults, &status, &same), 0);
  EXPECT_EQ(one_.mirror("two").data_hash_status, kSameData);
  EXPECT_EQ(status, 'U');
  EXPECT_EQ(same, '?');
}

TEST(MirrorTimes, ALineThatHoldsEverythingBackIsGivenUp) {
  ReplicationTimes times = short_times();
  times.exchange = milliseconds(300);
  MirrorServer one({}, times);
  MirrorServer two(one.directory());
  Line line(two.port());
  line.become(Line::Mode::kHolds);
  one.add_mirror("two", line.port());
  one.create_mirror_key("K1");
  ASSERT_TRUE(eventually([&] { return one.mirror("two").fault_count >= 2; }));
  EXPECT_EQ(one.mirror("two").status, kDown);
  one.add_mirror("two", two.port());
  EXPECT_TRUE(eventually([&] { return two.value_of("K1") == one.value_of("K1"); }));
}

TEST(MirrorTimes, AStopDoesNotWaitForAMirrorThatDoesNotAnswer) {
  MirrorServer one;
  MirrorServer two(one.directory());
  Line line(two.port());
  line.become(Line::Mode::kHolds);
  one.add_mirror("two", line.port());
  one.create_mirror_key("K1");
  ASSERT_TRUE(eventually([&] { return line.num_connections() > 0; }));
  const auto start = steady_clock::now();
  one.stop();
  // The exchange would have had a minute.
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(30));
}

// Each is shortened by a half at most: the fifth fault comes 750 milliseconds behind the first, or later.
TEST(MirrorTimes, RetriesBackOff) {
  ReplicationTimes times = short_times();
  times.first_retry = milliseconds(100);
  times.longest_retry = std::chrono::seconds(10);
  MirrorServer one({}, times);
  const auto start = steady_clock::now();
  one.add_mirror("two", 1);  // where nothing listens
  ASSERT_TRUE(eventually([&] { return one.mirror("two").fault_count >= 5; }));
  EXPECT_GE(steady_clock::now() - start, milliseconds(750));
}

constexpr const char *kNonsense = R"(
[[fault]]
operation = "ReplicateKeys"
nth = 1
do = "length"
digits = "16385"

[[fault]]
operation = "ReplicateKeys"
nth = 2
do = "short"
bytes = 4

[[fault]]
operation = "ReplicateKeys"
nth = 3
do = "long"
bytes = 4

[[fault]]
operation = "ReplicateKeys"
nth = 4
do = "cut"
after_bytes = 9

[[fault]]
operation = "ReplicateKeys"
nth = 5
do = "return-code"
code = 104

[[fault]]
operation = "CompareKeys"
nth = 1
do = "short"
bytes = 1
)";

TEST(MirrorTimes, ARefusalAndRepliesThatMakeNoSenseAreFaultsAndLoseNothing) {
  MirrorServer one;
  MirrorServer two(one.directory());
  two.stop();
  std::ofstream(two.directory() / "faults.toml") << kNonsense;
  two.start();
  one.create_mirror_key("BEFORE");
  one.add_mirror("two", two.port());
  ASSERT_TRUE(eventually([&] { return one.mirror("two").fault_count == 1; }));
  one.create_mirror_key("K1");
  ASSERT_TRUE(eventually([&] { return one.queue_size("two") == 0; }));
  EXPECT_EQ(two.value_of("K1"), one.value_of("K1"));
  EXPECT_EQ(one.mirror("two").last_fault, RC_SERVER_FAILURE);
  ASSERT_EQ(one.call(qForceKeySync, "two", nullptr), 0);
  EXPECT_TRUE(one.agrees_with("two"));
  EXPECT_EQ(one.mirror("two").fault_count, 6);
}

}  // namespace
}  // namespace veskd::test
