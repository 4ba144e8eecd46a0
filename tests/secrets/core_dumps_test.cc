// No program that holds keys leaves an image of its memory behind, whatever it dies of.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/secrets/running_server.h"

namespace secrets_test {
namespace {

using veskd::test::TemporaryDirectory;

// A program in a folder of its own, allowed to dump its core there.
class Victim {
 public:
  explicit Victim(std::vector<const char *> arguments) {
    arguments.push_back(nullptr);
    int output[2];
    EXPECT_EQ(::pipe(output), 0);
    pid_ = ::fork();
    if (pid_ == 0) {
      const rlimit unlimited = {RLIM_INFINITY, RLIM_INFINITY};
      ::setrlimit(RLIMIT_CORE, &unlimited);
      ::dup2(output[1], STDOUT_FILENO);
      ::dup2(output[1], STDERR_FILENO);
      if (::chdir(folder_.path().c_str()) == 0) ::execvp(arguments[0], const_cast<char **>(arguments.data()));
      ::_exit(127);
    }
    ::close(output[1]);
    output_ = output[0];
  }
  Victim(const Victim &) = delete;
  Victim &operator=(const Victim &) = delete;
  ~Victim() {
    dies_with_core(SIGKILL);
    ::close(output_);
  }

  // Until it has said something.
  void wait_for_a_word() const {
    char byte = 0;
    EXPECT_EQ(::read(output_, &byte, 1), 1);
  }

  // Whether a signal ends it with a core dump, in its folder or elsewhere.
  bool dies_with_core(int signal) {
    if (pid_ < 0) return false;
    int status = 0;
    ::kill(pid_, signal);
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFSIGNALED(status) && WCOREDUMP(status);
  }

 private:
  TemporaryDirectory folder_;
  pid_t pid_ = -1;
  int output_ = -1;
};

class CoreDumps : public testing::Test {
 protected:
  void SetUp() override {
    Victim other({"sh", "-c", "echo; exec sleep 60"});
    other.wait_for_a_word();
    if (!other.dies_with_core(SIGSEGV)) GTEST_SKIP() << "this system writes no core dumps";
  }
};

TEST_F(CoreDumps, AreNotWrittenByTheServer) {
  Victim server({VESKD_PROGRAM, "dev", "--dir", "d"});
  server.wait_for_a_word();
  EXPECT_FALSE(server.dies_with_core(SIGSEGV));
}

// While it waits for a server that says nothing. Its first words are of the trace, before it connects.
TEST_F(CoreDumps, AreNotWrittenByTheCommand) {
  RunningServer server;
  server.halt();
  const std::string port = std::to_string(server.port());
  const std::string certificates = server / "d";
  Victim command({VESK_PROGRAM, "--host", "127.0.0.1", "--port", port.c_str(), "--certificates", certificates.c_str(),
                  "--trace", "-", "key", "make-deletable", "K"});
  command.wait_for_a_word();
  EXPECT_FALSE(command.dies_with_core(SIGSEGV));
}

}  // namespace
}  // namespace secrets_test
