// Runs a test program whose stores are on a PostgreSQL that lives as long: on_postgres PROGRAM ARGUMENTS...
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <iostream>

#include "tests/server/postgres_cluster.h"

int main(int argc, char **argv) {
  if (argc < 2) return 2;
  try {
    const veskd::test::PostgresCluster cluster;
    ::setenv(veskd::test::kPostgresVariable, cluster.uri().c_str(), 1);
    const pid_t program = ::fork();
    if (program == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::execv(argv[1], argv + 1);
      ::_exit(127);
    }
    int status = 0;
    ::waitpid(program, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
  } catch (const std::exception &error) {
    std::cerr << "on_postgres: " << error.what() << std::endl;
    return EXIT_FAILURE;
  }
}
