// Work that is cut off by SIGKILL, at every step that touches the disk in turn.
#pragma once

#include <functional>

namespace veskd::test {

// Runs the work in a child process that is killed before its first step, then in another that is killed before its
// second, and so on until one comes to its end; calls the check after each. Steps are flushing, naming and removing
// files. Returns how many children were killed. The calling process must have one thread.
int cut_off_at_every_step(const std::function<void()> &work, const std::function<void()> &check);

}  // namespace veskd::test
