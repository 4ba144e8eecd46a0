// vesk: the administrator's command. Parses the command line, runs one command and tells how it ended.
#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdio>
#include <exception>
#include <new>

#include "vesk/commands.h"
#include "vesk/failure.h"
#include "vesk/output.h"
#include "vesk/text.h"

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
  std::string text = "Exit codes:\n";
  for (const ExitCodeText &exit : kExitCodes)
    text += fmt::format("  {}  {}\n", static_cast<int>(exit.code), exit.sentence);
  return text;
}

void describe_common_options(CLI::App &command) {
  command.group("Commands");
  command.footer(command.get_footer() + (command.get_footer().empty() ? "" : "\n\n") +
                 "Connection and output options (--host, --port, --certificates, --output ...): vesk --help");
}

void describe(CLI::App &app, Settings &settings) {
  app.set_version_flag("--version", "vesk " VESK_VERSION, "Print the version and exit");
  app.require_subcommand(1);
  app.get_formatter()->label("SUBCOMMAND", "COMMAND");
  // The common options may stand behind the command as well.
  app.fallthrough();
  add_settings(app, settings);
  add_ping(app, settings);
  add_server(app, settings);
  add_key(app, settings);
  add_template(app, settings);
  add_metadata(app, settings);
  add_certificate(app, settings);
  add_private_key(app, settings);
  add_mirror(app, settings);
  add_appliance(app, settings);
  add_database(app, settings);
  app.footer(
      "Examples:\n"
      "  export VESK_HOST=kms.example VESK_PORT=4000 VESK_CERTIFICATES=/etc/vesk\n"
      "  vesk ping\n"
      "  vesk key create backup-2026\n"
      "  vesk key get backup-2026 --out backup.key\n\n" +
      exit_codes());
  for (CLI::App *group : app.get_subcommands({})) {
    describe_common_options(*group);
    for (CLI::App *command : group->get_subcommands({})) describe_common_options(*command);
  }
}

// The command's words, as in "key get".
std::string words_of(const CLI::App &app) {
  std::string words;
  for (const CLI::App *at = &app; !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    words += (words.empty() ? "" : " ") + at->get_name();
  }
  return words;
}

std::string help_of(const CLI::App &app) {
  std::string help = app.help();
  for (std::size_t gap; (gap = help.find("\n\n\n")) != std::string::npos;) help.erase(gap, 1);
  return help;
}

Failure usage_failure(const CLI::App &app, const CLI::ParseError &error) {
  const CLI::App *at = &app;
  while (!at->get_subcommands().empty()) at = at->get_subcommands().front();
  const std::string words = words_of(app);
  const std::string hint = fmt::format("vesk{}{} --help", words.empty() ? "" : " ", words);
  // A command that does not exist is a more helpful thing to say than that one is missing.
  const std::vector<std::string> unknown = app.remaining(true);
  if (!unknown.empty() && !at->get_subcommands({}).empty())
    return Failure(ExitCode::kUsage, fmt::format("there is no command '{}'", printable(unknown.front())), hint);
  std::string message = printable(error.what());
  const bool begins_a_sentence = message.size() > 1 && std::isupper(message[0]) && std::islower(message[1]);
  if (begins_a_sentence || message.starts_with("A ")) message[0] = static_cast<char>(std::tolower(message[0]));
  return Failure(ExitCode::kUsage, message, hint);
}

int report(const std::string &words, const Failure &failure) {
  const bool coloured = coloured_standard_error();
  fmt::print(stderr, "{}vesk:{} {}{}{}\n", coloured ? "\x1b[31m" : "", coloured ? "\x1b[0m" : "", words,
             words.empty() ? "" : ": ", failure.what());
  for (const std::string &detail : failure.details()) fmt::print(stderr, "detail: {}\n", detail);
  if (!failure.hint().empty()) fmt::print(stderr, "hint: {}\n", failure.hint());
  return static_cast<int>(failure.code());
}

void check_output(const Settings &settings) {
  if (settings.output == "table" || settings.json() || (settings.plain() && settings.offers_plain)) return;
  if (settings.plain()) throw Failure(ExitCode::kUsage, "--output plain is for lists; this command has none");
  throw Failure(ExitCode::kUsage, fmt::format("--output {} is neither table nor json", printable(settings.output)));
}

int run(CLI::App &app, Settings &settings, int argc, char **argv) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp &) {
    write_standard_output(help_of(app));
    return 0;
  } catch (const CLI::CallForVersion &version) {
    write_standard_output(fmt::format("{}\n", version.what()));
    return 0;
  } catch (const CLI::ParseError &error) {
    throw usage_failure(app, error);
  }
  check_output(settings);
  settings.action();
  return 0;
}

int run_and_report(int argc, char **argv) {
  CLI::App app("Administers a key server.", "vesk");
  Settings settings;
  describe(app, settings);
  try {
    return run(app, settings, argc, argv);
  } catch (const Failure &failure) {
    return report(words_of(app), failure);
  } catch (const ReaderGone &) {
    return static_cast<int>(ExitCode::kOther);
  } catch (const std::bad_alloc &) {
    return report(words_of(app), Failure(ExitCode::kOther, "out of memory"));
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
