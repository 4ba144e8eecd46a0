// vesk: the administrator's command. Parses the command line, runs one command and tells how it ended.
#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <new>
#include <string_view>

#include "vesk/command_line.h"
#include "vesk/commands.h"
#include "vesk/completion.h"
#include "vesk/failure.h"
#include "vesk/report.h"
#include "vesk/watch.h"
#include "veskd/process_memory.h"

namespace command {
namespace {

// A connection must never be given the number of a standard stream that the caller has closed. What is opened in its
// place can be neither read nor written, so that using it is still an error.
void hold_standard_streams() {
  for (int descriptor = 0; descriptor >= 0 && descriptor <= STDERR_FILENO;) descriptor = open("/dev/null", O_PATH);
}

int run_and_report(int argc, char **argv) {
  Settings settings;
  Command root{"vesk", "Administers a key server."};
  add_commands(root, settings);
  CommandLine line(root);
  try {
    const Command *command = line.parse(argc, argv);
    if (!command) return 0;
    watch(line.words(), settings.time_limit());
    command->run();
    return 0;
  } catch (const Failure &failure) {
    return report(line.words(), failure);
  } catch (const ReaderGone &) {
    return static_cast<int>(ExitCode::kOther);
  } catch (const std::bad_alloc &) {
    return report(line.words(), Failure(ExitCode::kOther, "out of memory"));
  }
}

}  // namespace
}  // namespace command

int main(int argc, char **argv) {
  command::hold_standard_streams();
  veskd::protect_process_memory();
  signal(SIGPIPE, SIG_IGN);
  try {
    // What is typed is no command line yet: the parser is not for it.
    if (argc > 1 && std::string_view(argv[1]) == command::kCompleteCommand)
      return command::complete(argc - 2, argv + 2);
    return command::run_and_report(argc, argv);
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "vesk: %s\n", failure.what());
    return static_cast<int>(command::ExitCode::kOther);
  }
}
