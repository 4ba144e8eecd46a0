// Servers that send slowly or without end, or do not read.
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <ctime>

#include "orn/vesk.h"
#include "tests/connection/client.h"

namespace tests {
namespace {

// The monotonic clock is the system's, but for the time that a FastClock lives: then a minute passes in two seconds.
constexpr int kSpeed = 30;
std::atomic<std::int64_t> ahead{0};
std::atomic<std::int64_t> fast_since{0};

std::int64_t system_time() {
  timespec time{};
  syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &time);
  return std::chrono::nanoseconds(std::chrono::seconds(time.tv_sec)).count() + time.tv_nsec;
}

std::int64_t time_ahead(std::int64_t now) {
  const std::int64_t since = fast_since;
  return ahead + (since == 0 ? 0 : (now - since) * (kSpeed - 1));
}

class FastClock {
 public:
  FastClock() { fast_since = system_time(); }
  FastClock(const FastClock &) = delete;
  FastClock &operator=(const FastClock &) = delete;
  // What it is ahead by stays: it never goes back.
  ~FastClock() {
    ahead = time_ahead(system_time());
    fast_since = 0;
  }
};

}  // namespace
}  // namespace tests

extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept {
  if (clock != CLOCK_MONOTONIC) return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  const std::int64_t now = tests::system_time();
  const std::chrono::nanoseconds played(now + tests::time_ahead(now));
  const auto seconds = std::chrono::floor<std::chrono::seconds>(played);
  *time = {.tv_sec = seconds.count(), .tv_nsec = (played - seconds).count()};
  return 0;
}

namespace tests {
namespace {

// A server that does this to a client after the handshake.
Script with_tls(Script script) {
  return [script](Line &line) {
    if (line.accept_tls(world().settings())) script(line);
  };
}

// The time-out is of all the bytes together: those that do come, one by one, gain the server nothing.
TEST(SlowServer, DoesNotProlongARead) {
  const TlsServer server(with_tls([](Line &line) {
    pollfd client = {.fd = line.descriptor(), .events = POLLIN, .revents = 0};
    do line.write("x");
    while (poll(&client, 1, 20) == 0);
  }));
  Client client;
  ASSERT_STATUS(0, world().connect(client, server));
  const Stopwatch watch;
  EXPECT_STATUS(CONN_ERR_READ_TIMED_OUT, client.read(100'000, 1));
  EXPECT_GE(watch.seconds(), 1.0);
  EXPECT_LT(watch.seconds(), kAtLatest);
  EXPECT_FALSE(client.received().empty());
}

TEST(DeafServer, HoldsAWriteForAMinuteAndNoLonger) {
  const TlsServer server(with_tls([](Line &line) {
    pollfd client = {.fd = line.descriptor(), .events = POLLRDHUP, .revents = 0};
    poll(&client, 1, -1);
  }));
  Client client;
  ASSERT_STATUS(0, world().connect(client, server));
  const FastClock clock;
  const Stopwatch watch;
  // More than both ends hold.
  EXPECT_STATUS(CONN_ERR_WRITE_TIMED_OUT, client.write(std::string(50'000'000, 'x')));
  EXPECT_GE(watch.seconds(), 60.0);
  EXPECT_LT(watch.seconds(), 600.0);
  EXPECT_STATUS(CONN_ERR_WRITE_TIMED_OUT, client.write("more"));
  EXPECT_STATUS(CONN_ERR_WRITE_TIMED_OUT, client.read(1));
}

// The call reads what was declared and goes, although the line is full of more.
TEST(EndlessServer, DoesNotProlongACall) {
  const TlsServer server(with_tls([](Line &line) {
    std::string replies;
    while (replies.size() < 16384) replies += "0000810430000";
    while (SSL_write(line.ssl(), replies.data(), static_cast<int>(replies.size())) > 0) {
    }
  }));
  CertificatePaths paths;
  ASSERT_EQ(0, SetupCertificates(&paths, world().folder.path("").c_str(), "authority.pem", "client.pem", "key.pem"));
  const Stopwatch watch;
  EXPECT_STATUS(0, qAdminNoop(&paths, "127.0.0.1", static_cast<uint32_t>(std::stoul(server.port()))));
  EXPECT_LT(watch.seconds(), kAtLatest);
}

}  // namespace
}  // namespace tests
