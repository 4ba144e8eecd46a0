#include "vesk/silence.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "vesk/failure.h"

namespace command {
namespace {

[[noreturn]] void fail() {
  throw Failure(ExitCode::kOther,
                fmt::format("standard output cannot be put aside: {}", std::generic_category().message(errno)));
}

}  // namespace

// What stdio holds back belongs where it was meant to go: it is flushed before each turn.
Silence::Silence() : kept_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
  if (kept_ < 0) fail();
  std::fflush(stdout);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  const bool done = nowhere >= 0 && dup2(nowhere, STDOUT_FILENO) == STDOUT_FILENO;
  if (nowhere >= 0) close(nowhere);
  if (done) return;
  const int error = errno;
  close(kept_);
  errno = error;
  fail();
}

Silence::~Silence() {
  std::fflush(stdout);
  dup2(kept_, STDOUT_FILENO);
  close(kept_);
}

}  // namespace command
