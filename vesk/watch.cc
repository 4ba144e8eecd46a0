#include "vesk/watch.h"

#include <fmt/format.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <thread>

#include "vesk/failure.h"
#include "vesk/report.h"

namespace command {
namespace {

using Clock = std::chrono::steady_clock;

struct State {
  std::mutex mutex;
  std::list<std::string> unfinished;
  OpenLine open_line = OpenLine::kNone;
};

// Never destroyed: the thread that watches outlives main.
State &state() {
  static State *const kept = new State;
  return *kept;
}

[[noreturn]] void end(const std::string &words, const Failure &failure) {
  // For ever: nothing is begun or finished any more.
  state().mutex.lock();
  for (const std::string &path : state().unfinished) unlink(path.c_str());
  if (state().open_line == OpenLine::kProgress) fmt::print(stderr, "\r\x1b[K");
  if (state().open_line == OpenLine::kQuestion) fmt::print(stderr, "\n");
  _exit(report(words, failure));
}

// Those that the caller had ignored, as nohup does, stay ignored.
sigset_t signals_to_watch() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    struct sigaction action {};
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) sigaddset(&signals, signal);
  }
  return signals;
}

timespec time_until(Clock::time_point end) {
  const auto left = std::max(std::chrono::nanoseconds(end - Clock::now()), std::chrono::nanoseconds(0));
  const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
  return {static_cast<time_t>(seconds.count()), static_cast<long>((left - seconds).count())};
}

[[noreturn]] void wait_for_the_end(const std::string &words, const sigset_t &signals,
                                   std::optional<std::chrono::seconds> limit) {
  const char *const unknown = "whether the server did the work is not known; ask it before you repeat a change";
  const Clock::time_point deadline = Clock::now() + limit.value_or(std::chrono::seconds(0));
  for (;;) {
    const timespec left = time_until(deadline);
    const int signal = limit ? sigtimedwait(&signals, nullptr, &left) : sigwaitinfo(&signals, nullptr);
    if (signal > 0) end(words, Failure(ExitCode::kCancelled, fmt::format("cancelled by signal {}", signal), unknown));
    if (limit && Clock::now() >= deadline) {
      end(words, Failure(ExitCode::kTimeOut, fmt::format("not done within {} s (--timeout)", limit->count()), unknown));
    }
  }
}

}  // namespace

void watch(const std::string &words, std::optional<std::chrono::seconds> limit) {
  const sigset_t signals = signals_to_watch();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  state();
  std::thread([words, signals, limit] { wait_for_the_end(words, signals, limit); }).detach();
}

Uninterrupted::Uninterrupted() {
  state().mutex.lock();
}

Uninterrupted::~Uninterrupted() {
  state().mutex.unlock();
}

UnfinishedFile::UnfinishedFile(const std::string &path)
    : place_(state().unfinished.insert(state().unfinished.end(), path)) {}

UnfinishedFile::~UnfinishedFile() {
  state().unfinished.erase(place_);
}

void set_open_line(OpenLine line) {
  state().open_line = line;
}

}  // namespace command
