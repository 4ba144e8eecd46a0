// A server as a process of its own, and the files that are exchanged with it.
#pragma once

#include <signal.h>
#include <sys/wait.h>

#include <filesystem>
#include <string>

#include "tests/server/program.h"
#include "tests/server/test_server.h"

namespace secrets_test {

class RunningServer {
 public:
  explicit RunningServer(const std::vector<std::string> &options = {})
      : server_(directory_ / "d", 0, options), paths_(veskd::test::client_paths(directory_ / "d")) {}

  const CertificatePaths *paths() const { return &paths_; }
  const char *host() const { return "127.0.0.1"; }
  std::uint16_t port() const { return server_.port(); }
  veskd::test::Program &program() { return server_.program(); }

  // From now on it says nothing, and goes when this does.
  void halt() {
    program().signal(SIGSTOP);
    int state = 0;
    ::waitpid(program().pid(), &state, WUNTRACED);
  }

  std::filesystem::path operator/(const std::string &name) const { return directory_ / name; }

 private:
  veskd::test::TemporaryDirectory directory_;
  veskd::test::DevServer server_;
  CertificatePaths paths_;
};

}  // namespace secrets_test
