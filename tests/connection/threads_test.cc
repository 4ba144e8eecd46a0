// Many threads at once: connections, trace and its switches.
#include <gmock/gmock.h>

#include <thread>

#include "tests/connection/client.h"

namespace tests {
namespace {

constexpr int kThreads = 16;
constexpr int kCalls = 8;

int exchange(const TlsServer &server, const std::string &host, const std::string &text) {
  Client client;
  if (int status = world().connect(client, server, host, 60)) return status;
  if (int status = client.write(text)) return status;
  if (int status = client.read(static_cast<int>(text.size()), 60)) return status;
  return client.received() == text ? 0 : CONN_ERR_PROTOCOL;
}

void switch_trace(const TemporaryFolder &folder, const std::atomic<bool> &is_over) {
  for (int i = 0; !is_over; ++i) {
    if (i % 2 == 0) {
      EXPECT_EQ(0, TraceToFile(folder.path("trace").c_str()));
    } else {
      TraceText text;
      std::this_thread::yield();
    }
  }
  TraceOff();
}

TEST(Threads, EachHasItsOwnConnectionWhileTheTraceIsSwitched) {
  TlsServer server(echo(world().settings()), "127.0.0.1", TlsServer::Clients::kAtOnce);
  TemporaryFolder folder;
  std::atomic<bool> is_over{false};
  std::thread switcher([&] { switch_trace(folder, is_over); });
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&server, number] {
      for (int call = 0; call < kCalls; ++call) {
        std::string text = "thread " + std::to_string(number) + " call " + std::to_string(call);
        EXPECT_STATUS(0, exchange(server, call % 2 == 0 ? "127.0.0.1" : "localhost", text));
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  is_over = true;
  switcher.join();
}

TEST(Threads, LinesOfTheTraceAreWhole) {
  TraceText trace;
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([] {
      for (int i = 0; i < 100; ++i) TraceT(0, "path", 1, "%s", "first\nsecond");
    });
  }
  for (std::thread &thread : threads) thread.join();
  std::istringstream lines(trace.text());
  int num_lines = 0;
  for (std::string line; std::getline(lines, line); ++num_lines) {
    ASSERT_THAT(line, num_lines % 2 == 0 ? testing::EndsWith(" path:1 first") : testing::EndsWith("    second"));
  }
  EXPECT_EQ(2 * 100 * kThreads, num_lines);
}

}  // namespace
}  // namespace tests
