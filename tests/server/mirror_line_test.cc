// Replication over lines that break, delay, lose and hold what they carry, and with mirrors that answer nonsense.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

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

// Shows the certificate of a server's directory, and answers ReplicateKeys with one reply and nothing else with any.
class PlayedMirror {
 public:
  PlayedMirror(const std::filesystem::path &directory, std::string reply)
      : reply_(std::move(reply)), context_(SSL_CTX_new(TLS_server_method()), SSL_CTX_free) {
    SSL_CTX_use_certificate_chain_file(context_.get(), (directory / "server.pem").c_str());
    SSL_CTX_use_PrivateKey_file(context_.get(), (directory / "server-key.pem").c_str(), SSL_FILETYPE_PEM);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr *>(&address), length), 0);
    EXPECT_EQ(::listen(listener_, 64), 0);
    EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length), 0);
    port_ = ntohs(address.sin_port);
    // Of what OpenSSL writes to a server that has gone.
    ::signal(SIGPIPE, SIG_IGN);
    thread_ = std::thread([this] {
      for (int client = 0; (client = ::accept(listener_, nullptr, nullptr)) >= 0; ::close(client)) answer(client);
    });
  }
  ~PlayedMirror() {
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
  }
  PlayedMirror(const PlayedMirror &) = delete;
  PlayedMirror &operator=(const PlayedMirror &) = delete;

  std::uint16_t port() const { return port_; }
  int num_asked() const { return num_asked_; }

 private:
  void answer(int client) {
    const std::unique_ptr<SSL, void (*)(SSL *)> tls(SSL_new(context_.get()), SSL_free);
    SSL_set_fd(tls.get(), client);
    char request[16384];
    if (SSL_accept(tls.get()) != 1 || SSL_read(tls.get(), request, sizeof request) < 9) return;
    if (std::string_view(request + 5, 4) != "9001") return;
    SSL_write(tls.get(), reply_.data(), static_cast<int>(reply_.size()));
    ++num_asked_;
  }

  const std::string reply_;
  const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX *)> context_;
  const int listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::uint16_t port_ = 0;
  std::atomic<int> num_asked_ = 0;
  std::thread thread_;
};

TEST(MirrorTimes, WhatIsNoReplyTakesNothingFromTheQueue) {
  MirrorServer one;
  one.add_mirror("two", 1);
  one.create_mirror_key("K1");
  const std::string done =
      "9001"
      "0000";
  const std::vector<std::string> replies = {"00012" + done + "06x6",
                                            "00012" + done + "    ",
                                            "00008" + done,
                                            "00016" + done + "00000000",
                                            "000129003"
                                            "00000000",
                                            "000129001"
                                            "-0010000",
                                            "99999",
                                            "-0012",
                                            "no reply"};
  for (const std::string &reply : replies) {
    const PlayedMirror mirror(one.directory(), reply);
    one.add_mirror("two", mirror.port());
    ASSERT_TRUE(eventually([&] { return mirror.num_asked() >= 2; })) << reply;
    EXPECT_EQ(one.mirror("two").status, kDown) << reply;
    EXPECT_EQ(one.mirror("two").last_fault, 0) << reply;
    EXPECT_EQ(one.queue_size("two"), 1) << reply;
  }
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
