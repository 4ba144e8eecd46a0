// vesk: the administrator's command. Parses the command line, runs one command and tells how it ended.
#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <new>

#include "vesk/command_line.h"
#include "vesk/commands.h"
#include "vesk/failure.h"
#include "vesk/report.h"
#include "vesk/watch.h"

namespace command {
namespace {

// A connection must never be given the number of a standard stream that the caller has closed. What is opened in its
// place can be neither read nor written, so that using it is still an error.
void hold_standard_streams() {
  for (int descriptor = 0; descriptor >= 0 && descriptor <= STDERR_FILENO;) descriptor = open("/dev/null", O_PATH);
}

// A process that holds key values leaves no image of its memory behind.
void forbid_core_dumps() {
  constexpr rlimit kNone = {0, 0};
  setrlimit(RLIMIT_CORE, &kNone);
}

std::string exit_codes() {
  std::string text = "Exit codes:";
  for (const ExitCodeText &exit : kExitCodes)
    text += fmt::format("\n  {:<3}  {}", static_cast<int>(exit.code), exit.sentence);
  return text;
}

Command described(Settings &settings) {
  Command root{"vesk", "Administers a key server."};
  add_settings(root, settings);
  add_context(root, settings);
  add_ping(root, settings);
  add_server(root, settings);
  add_key(root, settings);
  add_template(root, settings);
  add_metadata(root, settings);
  add_certificate(root, settings);
  add_private_key(root, settings);
  add_mirror(root, settings);
  add_appliance(root, settings);
  add_database(root, settings);
  add_decode(root, settings);
  root.details = exit_codes();
  root.examples = {"vesk context add production --host kms.example --port 4000 --certificates /etc/vesk", "vesk ping",
                   "vesk key create backup-2026", "vesk key get backup-2026 --out backup.key"};
  return root;
}

int run_and_report(int argc, char **argv) {
  Settings settings;
  const Command root = described(settings);
  CommandLine line(root);
  try {
    const Command *command = line.parse(argc, argv);
    if (!command) return 0;
    settings.form();
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
  command::forbid_core_dumps();
  signal(SIGPIPE, SIG_IGN);
  try {
    return command::run_and_report(argc, argv);
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "vesk: %s\n", failure.what());
    return static_cast<int>(command::ExitCode::kOther);
  }
}
