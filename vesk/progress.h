// A sign of life on standard error while the server works. Shows nothing unless standard error is a terminal.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace command {

class Progress {
 public:
  explicit Progress(std::string what);
  // what is called again and again, on a thread of its own.
  explicit Progress(std::function<std::string()> what);
  ~Progress();  // takes the line away again
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;

 private:
  void show_until_stopped(const std::stop_token &stop);

  std::function<std::string()> what_;
  std::mutex mutex_;
  std::condition_variable_any wake_;
  std::jthread thread_;
};

// What makes room for a line where progress may be shown.
const char *clear_line();

}  // namespace command
