// What a call asks of the system.
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "tests/connection/certificates.h"

namespace tests {
namespace {

using testing::ElementsAre;

// Neither the allocator's doings nor the question of OpenSSL's random generator whether this is still the process that
// it was seeded in are the connection's own.
bool is_of_others(const std::string &name) {
  static const std::set<std::string> kNames = {"brk", "mmap", "munmap", "madvise", "getpid"};
  return kNames.contains(name);
}

// The names of the system calls between the two that the program marks. What is received may come in any number of
// parts.
std::vector<std::string> system_calls_of_a_resumed_call() {
  const TemporaryFolder folder;
  const std::string log = folder.path("log");
  const std::string command = "strace -o " + log + " " RESUMED_CALL_PROGRAM;
  EXPECT_EQ(0, std::system(command.c_str()));
  std::ifstream lines(log);
  std::vector<std::string> names;
  bool is_between = false;
  for (std::string line; std::getline(lines, line);) {
    const std::string name = line.substr(0, line.find('('));
    // No other program gets it, whenever it is started.
    if (name == "socket") {
      EXPECT_THAT(line, testing::HasSubstr("SOCK_CLOEXEC"));
    }
    if (name == "getppid") {
      is_between = !is_between;
    } else if (is_between && !is_of_others(name) && !(name == "recvfrom" && names.back() == name)) {
      names.push_back(name);
    }
  }
  return names;
}

TEST(SystemCalls, OfAResumedCallAreFew) {
  EXPECT_THAT(system_calls_of_a_resumed_call(),
              ElementsAre(
                  // Whether the three files are those that are kept.
                  "newfstatat", "newfstatat", "newfstatat",
                  // The connection: no delay for small segments, a time-out for connecting and sending. On loopback a
                  // connection may be one to itself, which its own address tells.
                  "socket", "setsockopt", "setsockopt", "connect", "getsockname",
                  // The handshake: each side's flight is one segment. The time-out of receiving is set once.
                  "sendto", "setsockopt", "recvfrom", "sendto",
                  // The request; the reply comes with the tickets, and is not held back for their acknowledgement.
                  "sendto", "setsockopt", "recvfrom",
                  // The good-bye, a look for what is unread, and the end.
                  "sendto", "recvfrom", "close"));
}

}  // namespace
}  // namespace tests
