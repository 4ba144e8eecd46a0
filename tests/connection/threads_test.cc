// Many threads at once: connections, trace and its switches.
#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <memory>
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

// What is kept is shared by all: its files change and it is dropped while it is used.
TEST(Threads, ShareWhatIsKept) {
  World files;
  const orn::SslContextPtr context = make_server_context(files.settings());
  TlsServer server(
      [&](Line &line) {
        if (line.accept_tls(context.get())) echo(line);
      },
      "127.0.0.1", TlsServer::Clients::kAtOnce);
  const auto begin = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
  std::atomic<int> num_resumed{0};
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&, number] {
      for (int call = 0; call < kCalls; ++call) {
        if (number == 0 && call < kCalls / 2)
          std::filesystem::last_write_time(files.key_file, begin + std::chrono::seconds(call));
        if (number == 1 && call == kCalls / 2) TLSForgetAll();
        if (number == 2 && call < 2) TLSResumption(call);
        Client client;
        ASSERT_STATUS(0, files.connect(client, server, "127.0.0.1", 60));
        ASSERT_STATUS(0, client.write("x"));
        ASSERT_STATUS(0, client.read(1, 60));
        num_resumed += SSL_session_reused(static_cast<SSL *>(client.tls()));
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_GT(num_resumed, 0);
}

TEST(Threads, DoNotWaitForOneAnothersTraffic) {
  std::atomic<bool> is_connected{false};
  auto silent = std::make_unique<TlsServer>([&](Line &line) {
    is_connected = true;
    is_connected.notify_one();
    line.wait_for_end();
  });
  TlsServer server(echo(world().settings()));
  std::thread waiting([&] {
    Client client;
    EXPECT_STATUS(CONN_ERR_CLOSED, world().connect(client, *silent, "127.0.0.1", 60));
  });
  is_connected.wait(false);
  for (int call = 0; call < kCalls; ++call) EXPECT_STATUS(0, exchange(server, "127.0.0.1", "x"));
  // It waited until now.
  silent.reset();
  waiting.join();
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
