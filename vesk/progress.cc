#include "vesk/progress.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <utility>

#include "vesk/output.h"
#include "vesk/watch.h"

namespace command {

Progress::Progress(std::string what) : Progress([what = std::move(what)] { return what; }) {}

Progress::Progress(std::function<std::string()> what) : what_(std::move(what)) {
  if (fancy_standard_error()) thread_ = std::jthread([this](const std::stop_token &stop) { show_until_stopped(stop); });
}

Progress::~Progress() = default;

void Progress::show_until_stopped(const std::stop_token &stop) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  std::unique_lock lock(mutex_);
  while (!stop.stop_requested()) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count();
    {
      const Uninterrupted whole_line;
      set_open_line(OpenLine::kProgress);
      fmt::print(stderr, "\r{}: {} s\x1b[K", what_(), seconds);
      std::fflush(stderr);
    }
    wake_.wait_for(lock, stop, std::chrono::seconds(1), [] { return false; });
  }
  const Uninterrupted whole_line;
  set_open_line(OpenLine::kNone);
  fmt::print(stderr, "{}", clear_line());
  std::fflush(stderr);
}

const char *clear_line() {
  return fancy_standard_error() ? "\r\x1b[K" : "";
}

}  // namespace command
