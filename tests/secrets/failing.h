// The system's functions, of which one call may be told to fail. They stand in for those of the C library in the whole
// program, and fail on the thread alone that asks for it.
#pragma once

#include <cstdint>

namespace secrets_test {

// What is counted together.
enum class Function {
  kNone,
  kAllocate,   // malloc, calloc, realloc
  kOpen,       // open, fopen
  kReadFile,   // read
  kCloseFile,  // fclose, which writes out what is buffered
  kSocket,     // socket
  kSetOption,  // setsockopt
  kConnect,    // connect
  kSend,       // send
  kReceive,    // recv
};

// While it lives, the one call of a function of this thread that has that number, from 0, fails with that error; with
// kMeasures none does.
class FailingCall {
 public:
  static constexpr std::int64_t kMeasures = -1;

  FailingCall(Function function, std::int64_t number, int error);
  FailingCall(const FailingCall &) = delete;
  FailingCall &operator=(const FailingCall &) = delete;
  ~FailingCall();

  // How many calls of the function there were so far.
  std::int64_t num_calls() const;
};

// What the whole program has allocated and not freed.
std::int64_t num_allocated_bytes();

}  // namespace secrets_test
