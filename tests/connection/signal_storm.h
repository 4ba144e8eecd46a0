// Signals that come all the time.
#ifndef TESTS_CONNECTION_SIGNAL_STORM_H
#define TESTS_CONNECTION_SIGNAL_STORM_H

#include <sys/time.h>

#include <csignal>

namespace tests {

// Interrupts every system call of the process some hundred times a second.
class SignalStorm {
 public:
  SignalStorm() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, &before_);
    set_timer(3000);
  }
  SignalStorm(const SignalStorm &) = delete;
  SignalStorm &operator=(const SignalStorm &) = delete;
  ~SignalStorm() {
    set_timer(0);
    sigaction(SIGALRM, &before_, nullptr);
  }

 private:
  static void set_timer(int microseconds) {
    itimerval timer{.it_interval = {0, microseconds}, .it_value = {0, microseconds}};
    setitimer(ITIMER_REAL, &timer, nullptr);
  }

  struct sigaction before_ {};
};

}  // namespace tests

#endif
