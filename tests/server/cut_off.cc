#include "tests/server/cut_off.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>

namespace {

// Before this step the process ends; none when it is 0.
int end_before = 0;

void take_step() {
  if (end_before != 0 && --end_before == 0) ::raise(SIGKILL);
}

}  // namespace

// In place of the C library's, for the program and for the libraries that it uses. Nothing is flushed: what a process
// wrote outlives its kill all the same.
extern "C" {

int fsync(int) {
  take_step();
  return 0;
}

int fdatasync(int) {
  take_step();
  return 0;
}

int rename(const char *from, const char *to) noexcept {
  take_step();
  return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int link(const char *from, const char *to) noexcept {
  take_step();
  return static_cast<int>(::syscall(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int unlink(const char *path) noexcept {
  take_step();
  return static_cast<int>(::syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

}  // extern "C"

namespace veskd::test {
namespace {

// Whether the child came to its end.
bool run_child(const std::function<void()> &work, int step) {
  const pid_t child = ::fork();
  if (child == 0) {
    end_before = step;
    try {
      work();
    } catch (const std::exception &error) {
      ::_exit(1);
    }
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE((WIFEXITED(status) && WEXITSTATUS(status) == 0) || (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL))
      << "step " << step << " status " << status;
  return WIFEXITED(status);
}

}  // namespace

int cut_off_at_every_step(const std::function<void()> &work, const std::function<void()> &check) {
  for (int step = 1;; ++step) {
    const bool ended = run_child(work, step);
    check();
    if (ended) return step - 1;
  }
}

}  // namespace veskd::test
