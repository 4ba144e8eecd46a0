// The system's own words for why a call of it failed.
#pragma once

#include <cerrno>
#include <cstring>

namespace vesk::skeys {

// Takes errno where it is made: before anything else can change it.
class ErrorText {
 public:
  ErrorText() : text_(strerror_r(errno, room_, sizeof room_)) {}
  ErrorText(const ErrorText &) = delete;
  ErrorText &operator=(const ErrorText &) = delete;
  ~ErrorText() = default;

  const char *c_str() const { return text_; }

 private:
  char room_[128] = {};
  const char *text_;
};

}  // namespace vesk::skeys
