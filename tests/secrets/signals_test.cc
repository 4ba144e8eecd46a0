// Calls in a process whose signals, forks and lost connections come at any moment.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/connection/client.h"
#include "tests/secrets/running_server.h"

namespace secrets_test {
namespace {

using veskd::test::TemporaryDirectory;

std::atomic<int> num_signals = 0;

void count_signal(int) {
  ++num_signals;
}

// A handler of a signal, for as long as it lives.
class Handler {
 public:
  Handler(int signal, int flags) : signal_(signal) {
    struct sigaction action {};
    action.sa_handler = count_signal;
    action.sa_flags = flags;
    sigaction(signal, &action, &before_);
    num_signals = 0;
  }
  Handler(const Handler &) = delete;
  Handler &operator=(const Handler &) = delete;
  ~Handler() { sigaction(signal_, &before_, nullptr); }

 private:
  const int signal_;
  struct sigaction before_ {};
};

// Interrupts whatever the process does, every millisecond.
class SignalStorm {
 public:
  explicit SignalStorm(int flags) : handler_(SIGALRM, flags) { set_timer(1000); }
  SignalStorm(const SignalStorm &) = delete;
  SignalStorm &operator=(const SignalStorm &) = delete;
  ~SignalStorm() { set_timer(0); }

 private:
  static void set_timer(int microseconds) {
    const itimerval timer{.it_interval = {0, microseconds}, .it_value = {0, microseconds}};
    setitimer(ITIMER_REAL, &timer, nullptr);
  }

  const Handler handler_;
};

template <typename PublicCall, typename... Arguments>
int call(const RunningServer &server, PublicCall public_call, Arguments... arguments) {
  return public_call(server.paths(), server.host(), server.port(), arguments...);
}

// Calls of every kind: one reply, pages, files, and one that takes the server a while.
int call_each_kind(const RunningServer &server, const std::string &key, const std::string &file) {
  KeyRecord record{};
  if (int status = call(server, qCreateSymKey, key.c_str(), 'N')) return status;
  if (int status = call(server, qRetrieveKey, key.c_str(), "", &record)) return status;
  if (int status = call(server, qAutoGenKeys, "CONSTANT_000015", 'a', 500u)) return status;
  if (int status = call(server, qRetrieveKeyNameList, file.c_str())) return status;
  if (int status = call(server, qDeleteKey, key.c_str())) return status;
  return call(server, qAdminNoop);
}

class Signals : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Handlers, Signals, testing::Values(0, SA_RESTART),
                         [](const auto &info) { return std::string(info.param == 0 ? "Interrupt" : "Restart"); });

TEST_P(Signals, EndNoCall) {
  const RunningServer server;
  ASSERT_EQ(call(server, qAutoGenKeys, "CONSTANT_000015", 'i', 1u), 0);
  const TemporaryDirectory folder;
  const SignalStorm storm(GetParam());
  for (int round = 0; round < 10; ++round) {
    TLSForgetAll();
    ASSERT_EQ(call_each_kind(server, "K" + std::to_string(round), folder / "names"), 0) << round;
    ASSERT_EQ(call_each_kind(server, "L" + std::to_string(round), folder / "names"), 0) << round;
  }
  EXPECT_GT(num_signals, 20);
}

// A name is looked up in a thread of its own.
TEST_P(Signals, LeaveTimeOutsAsTheyAre) {
  RunningServer server;
  ASSERT_EQ(call(server, qAdminNoop), 0);
  server.halt();
  const auto &path = server.paths()->caPath;
  const std::string port = std::to_string(server.port());
  for (const char *host : {"127.0.0.1", "localhost"}) {
    const SignalStorm storm(GetParam());
    const auto start = std::chrono::steady_clock::now();
    void *tls = nullptr, *aux = nullptr, *read = nullptr;
    EXPECT_STREQ(StatusName(SetupConnection(&tls, &aux, &read, path[2], path[1], 0, path[3], host, port.c_str(), 1)),
                 "CONN_ERR_CONNECT_TIMED_OUT");
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    EXPECT_GE(time.count(), 1.0) << host;
    EXPECT_LT(time.count(), 4.0) << host;
  }
}

TEST(SignalsOfBrokenPipes, AreNeverRaised) {
  const TemporaryDirectory folder;
  std::ofstream(folder / "faults.toml") << "[[fault]]\nprobability = 0.5\ndo = 'reset'\n"
                                           "[[fault]]\nprobability = 0.5\ndo = 'cut'\n";
  const RunningServer server({"--faults", folder / "faults.toml"});
  const Handler handler(SIGPIPE, 0);
  int num_broken = 0;
  for (int i = 0; i < 100; ++i) num_broken += call(server, qAdminNoop) != 0;
  EXPECT_GT(num_broken, 30);
  EXPECT_EQ(num_signals, 0);
}

// ---- Forks ----

// Runs in a child and returns how it ended; minus one for what is no exit.
int in_child(const std::function<int()> &run) {
  const pid_t child = fork();
  if (child == 0) _exit(run());
  int state = -1;
  if (waitpid(child, &state, 0) != child || !WIFEXITED(state)) return -1;
  return WEXITSTATUS(state);
}

// The parent's threads may be anywhere in a call at the moment of the fork.
TEST(Forks, InTheMiddleOfCallsLeaveParentAndChildAtWork) {
  SKIP_WHERE_FORK_MAY_HANG();
  constexpr int kThreads = 4;
  constexpr int kForks = 12;
  const RunningServer server;
  ASSERT_EQ(call(server, qCreateSymKey, "K", 'N'), 0);
  const auto is_served = [&server] {
    KeyRecord record{};
    return call(server, qRetrieveKey, "K", "", &record) == 0 && call(server, qAdminNoop) == 0;
  };
  std::atomic<bool> is_over = false;
  std::atomic<int> num_failed = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      while (!is_over) num_failed += is_served() ? 0 : 1;
    });
  }
  for (int i = 0; i < kForks; ++i) {
    EXPECT_EQ(in_child([&] {
                // A child that hangs is ended.
                alarm(30);
                // A child of the child has nothing of either.
                return is_served() && in_child([&] { return is_served() ? 0 : 1; }) == 0 ? 0 : 1;
              }),
              0)
        << i;
    EXPECT_TRUE(is_served()) << i;
  }
  is_over = true;
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(num_failed, 0);
}

}  // namespace
}  // namespace secrets_test
