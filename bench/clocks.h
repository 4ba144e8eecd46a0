// What a piece of work costs, and what many measurements of it say.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <ctime>
#include <vector>

namespace bench {

// Seconds by the clock, and of processor time in all threads of this process.
struct Cost {
  double clock;
  double processor;

  Cost &operator+=(const Cost &more) {
    clock += more.clock;
    processor += more.processor;
    return *this;
  }
};

class Stopwatch {
 public:
  Cost read() const {
    const Cost now = total();
    return {now.clock - start_.clock, now.processor - start_.processor};
  }

 private:
  static double seconds_of(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  }
  static Cost total() { return {seconds_of(CLOCK_MONOTONIC), seconds_of(CLOCK_PROCESS_CPUTIME_ID)}; }

  Cost start_ = total();
};

// The median of some values and the quartiles around it.
struct Spread {
  double low;
  double median;
  double high;
};

inline double quantile(const std::vector<double> &sorted, double part) {
  const double place = part * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, sorted.size() - 1);
  return sorted[below] + (place - static_cast<double>(below)) * (sorted[above] - sorted[below]);
}

inline Spread spread_of(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return {quantile(values, 0.25), quantile(values, 0.5), quantile(values, 0.75)};
}

// The spread of the ratios of values that were measured side by side.
inline Spread spread_of_ratios(const std::vector<double> &values, const std::vector<double> &to) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < values.size(); ++i) ratios.push_back(values[i] / to[i]);
  return spread_of(ratios);
}

}  // namespace bench
