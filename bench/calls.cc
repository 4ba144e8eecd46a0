#include "bench/calls.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <numeric>
#include <thread>

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

// Each runs twice in a turn, there and back, so that none always comes behind the same other.
constexpr std::chrono::milliseconds kSlice{50};
constexpr int kTurns = 2;

// Where a number of threads wait for one another, asleep.
class Gate {
 public:
  explicit Gate(int threads) { pthread_barrier_init(&barrier_, nullptr, static_cast<unsigned>(threads)); }
  ~Gate() { pthread_barrier_destroy(&barrier_); }
  Gate(const Gate &) = delete;
  Gate &operator=(const Gate &) = delete;
  void pass() { pthread_barrier_wait(&barrier_); }

 private:
  pthread_barrier_t barrier_;
};

// Threads that call in the slices of time that they are given. One call was made before all others, which leaves a
// context, and one by each thread, which leaves a session.
class Crowd {
 public:
  Crowd(const Callers &callers, int threads) : gate_(threads + 1), counts_(static_cast<std::size_t>(threads)) {
    callers.make(0)->call();
    for (int i = 0; i < threads; ++i)
      threads_.emplace_back(
          [this, &count = counts_[static_cast<std::size_t>(i)], caller = callers.make(i)] { run(*caller, count); });
    gate_.pass();
  }
  ~Crowd() {
    is_over_ = true;
    gate_.pass();
    for (std::thread &thread : threads_) thread.join();
  }
  Crowd(const Crowd &) = delete;
  Crowd &operator=(const Crowd &) = delete;

  void run_for(std::chrono::milliseconds time) {
    const Stopwatch watch;
    end_ = Clock::now() + time;
    gate_.pass();
    gate_.pass();
    cost_ += watch.read();
  }

  void add_to(CallFigures &figures) const {
    const auto calls = static_cast<double>(std::accumulate(counts_.begin(), counts_.end(), std::int64_t{0}));
    figures.microseconds.push_back(1e6 * cost_.processor / calls);
    figures.per_second.push_back(calls / cost_.clock);
  }

 private:
  void run(Caller &caller, std::int64_t &count) {
    caller.call();
    gate_.pass();
    for (;;) {
      gate_.pass();
      if (is_over_) return;
      do {
        caller.call();
        ++count;
      } while (Clock::now() < end_.load());
      gate_.pass();
    }
  }

  Gate gate_;
  std::atomic<bool> is_over_{false};
  std::atomic<Clock::time_point> end_{};
  std::vector<std::int64_t> counts_;
  Cost cost_{};
  std::vector<std::thread> threads_;
};

void measure(CallCell &cell) {
  const auto library = callers(Client::kLibrary, cell.manner, *cell.server);
  const auto bare = callers(Client::kBare, cell.manner, *cell.server);
  measure_side_by_side({{*library, cell.library}, {*bare, cell.bare}}, cell.threads);
}

}  // namespace

void measure_side_by_side(const std::vector<Side> &sides, int threads) {
  std::list<Crowd> crowds;
  for (const Side &side : sides) crowds.emplace_back(side.callers, threads);
  for (int i = 0; i < kTurns; ++i) {
    for (Crowd &crowd : crowds) crowd.run_for(kSlice);
    for (auto crowd = crowds.rbegin(); crowd != crowds.rend(); ++crowd) crowd->run_for(kSlice);
  }
  auto crowd = crowds.begin();
  for (const Side &side : sides) (crowd++)->add_to(side.figures);
}

std::vector<CallCell> measure_all_calls(const std::vector<Server> &servers, int rounds) {
  std::vector<CallCell> cells;
  for (const Server &server : servers)
    for (const Manner manner : kManners)
      for (const int threads : {1, 8, 64}) cells.push_back({&server, manner, threads, {}, {}});
  for (int round = 0; round < rounds; ++round)
    for (CallCell &cell : cells) measure(cell);
  return cells;
}

const CallCell &cell_in(const std::vector<CallCell> &cells, const CallCell &cell, Manner manner) {
  return *std::find_if(cells.begin(), cells.end(), [&](const CallCell &other) {
    return other.server == cell.server && other.threads == cell.threads && other.manner == manner;
  });
}

}  // namespace bench
