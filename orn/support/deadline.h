// A point in monotonic time by which something must be done.
#ifndef ORN_SUPPORT_DEADLINE_H
#define ORN_SUPPORT_DEADLINE_H

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstddef>

namespace orn {

class Deadline {
 public:
  using Clock = std::chrono::steady_clock;

  // Zero and negative seconds: the deadline has passed. INT_MAX seconds fit the clock's 64-bit nanoseconds four times.
  static Deadline in_seconds(int seconds) {
    return Deadline(Clock::now() + std::chrono::seconds(std::max(seconds, 0)));
  }

  Clock::time_point time() const { return time_; }
  bool passed() const { return Clock::now() >= time_; }
  Clock::duration left() const { return time_ - Clock::now(); }

  // The end of the first of num_parts equal parts of the time that is left.
  Deadline first_part(std::size_t num_parts) const {
    auto now = Clock::now();
    if (now >= time_) return *this;
    return Deadline(now + (time_ - now) / static_cast<Clock::rep>(num_parts));
  }

  // What is left as poll() takes it, rounded up so that a wait never ends early.
  int poll_milliseconds() const {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(time_ - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
  }

 private:
  explicit Deadline(Clock::time_point time) : time_(time) {}

  Clock::time_point time_;
};

}  // namespace orn

#endif
