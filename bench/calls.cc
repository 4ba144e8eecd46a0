#include "bench/calls.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <latch>
#include <memory>
#include <numeric>
#include <thread>

namespace bench {

namespace {

constexpr std::chrono::milliseconds kRound{200};

using Clock = std::chrono::steady_clock;

// Threads that call until the time is up. Each has made a call before, so that it has what its manner keeps.
class Crowd {
 public:
  Crowd(const Callers &callers, int threads) : ready_(threads + 1), counts_(static_cast<std::size_t>(threads)) {
    for (int i = 0; i < threads; ++i)
      threads_.emplace_back(
          [this, i, caller = callers.make(i)] { counts_[static_cast<std::size_t>(i)] = run(*caller); });
  }

  // Returns how many calls were made.
  std::int64_t run_for(std::chrono::milliseconds time, Cost &cost) {
    ready_.arrive_and_wait();
    const Stopwatch watch;
    end_ = Clock::now() + time;
    for (std::thread &thread : threads_) thread.join();
    cost = watch.read();
    return std::accumulate(counts_.begin(), counts_.end(), std::int64_t{0});
  }

 private:
  std::int64_t run(Caller &caller) {
    caller.call();
    ready_.arrive_and_wait();
    std::int64_t calls = 0;
    do {
      caller.call();
      ++calls;
    } while (Clock::now() < end_.load());
    return calls;
  }

  std::latch ready_;
  std::atomic<Clock::time_point> end_{Clock::time_point::max()};
  std::vector<std::int64_t> counts_;
  std::vector<std::thread> threads_;
};

}  // namespace

void measure_calls(Client client, Manner manner, const Server &server, int threads, CallFigures &figures) {
  const std::unique_ptr<Callers> made = callers(client, manner, server);
  Crowd crowd(*made, threads);
  Cost cost{};
  const auto calls = static_cast<double>(crowd.run_for(kRound, cost));
  figures.microseconds.push_back(1e6 * cost.processor / calls);
  figures.per_second.push_back(calls / cost.clock);
}

std::vector<CallCell> measure_all_calls(const std::vector<Server> &servers, int rounds) {
  std::vector<CallCell> cells;
  for (const Server &server : servers)
    for (const Manner manner : kManners)
      for (const int threads : {1, 8, 64}) cells.push_back({&server, manner, threads, {}, {}});
  for (int round = 0; round < rounds; ++round) {
    // Neither client is always the one that comes second.
    auto order = kClients;
    if (round % 2 == 1) std::reverse(order.begin(), order.end());
    for (CallCell &cell : cells)
      for (const Client client : order) measure_calls(client, cell.manner, *cell.server, cell.threads, cell.of(client));
  }
  return cells;
}

const CallCell &cell_in(const std::vector<CallCell> &cells, const CallCell &cell, Manner manner) {
  return *std::find_if(cells.begin(), cells.end(), [&](const CallCell &other) {
    return other.server == cell.server && other.threads == cell.threads && other.manner == manner;
  });
}

}  // namespace bench
