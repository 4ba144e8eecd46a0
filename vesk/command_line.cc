#include "vesk/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cctype>

#include "vesk/failure.h"
#include "vesk/output.h"
#include "vesk/text.h"

namespace command {
namespace {

std::string footer_of(const Command &command, bool is_root) {
  std::string footer = command.details;
  const auto paragraph = [&](const std::string &text) { footer += (footer.empty() ? "" : "\n\n") + text; };
  if (!command.examples.empty()) {
    std::string examples = command.examples.size() == 1 ? "Example:" : "Examples:";
    for (const std::string &example : command.examples) examples += "\n  " + example;
    paragraph(examples);
  }
  if (!is_root) paragraph("Connection and output options (--host, --port, --certificates, --output ...): vesk --help");
  return footer;
}

CLI::Option *add_option(CLI::App &app, const Option &option) {
  if (bool *const *flag = std::get_if<bool *>(&option.target)) return app.add_flag(option.name, **flag, option.text);
  CLI::Option *added = nullptr;
  if (std::string *const *text = std::get_if<std::string *>(&option.target)) {
    added = app.add_option(option.name, **text, option.text);
  } else if (std::vector<std::string> *const *texts = std::get_if<std::vector<std::string> *>(&option.target)) {
    added = app.add_option(option.name, **texts, option.text);
    // One value for each time that the option is given.
    if (!option.is_argument()) added->allow_extra_args(false);
  } else {
    added = app.add_option_function<std::string>(
        option.name,
        [target = std::get<std::optional<std::string> *>(option.target)](const std::string &given) { *target = given; },
        option.text);
  }
  return added->option_text(option.is_argument() ? " " : option.value_name)->required(option.is_required);
}

void add_options(CLI::App &app, const Command &command) {
  for (const Option &option : command.options) {
    CLI::Option *added = add_option(app, option);
    if (!option.group.empty()) added->group(option.group);
  }
  for (const Option &option : command.options) {
    CLI::Option *added = app.get_option(option.name);
    for (const std::string &needed : option.needs) added->needs(app.get_option(needed));
    for (const std::string &excluded : option.excludes) added->excludes(app.get_option(excluded));
    // A text of its own keeps the formatter from spelling the relations out.
    if (option.is_flag()) added->option_text(" ");
  }
}

void describe(CLI::App &app, const Command &command, bool is_root) {
  add_options(app, command);
  app.footer(footer_of(command, is_root));
  if (!command.commands.empty()) app.require_subcommand(1);
  for (const Command &below : command.commands) {
    CLI::App *added = app.add_subcommand(below.name, below.summary)->group("Commands");
    describe(*added, below, false);
  }
}

std::string help_of(const CLI::App &app) {
  std::string help = app.help();
  for (std::size_t gap; (gap = help.find("\n\n\n")) != std::string::npos;) help.erase(gap, 1);
  return help;
}

Failure usage_failure(const CLI::App &app, const std::string &words, const CLI::ParseError &error) {
  const CLI::App *at = &app;
  while (!at->get_subcommands().empty()) at = at->get_subcommands().front();
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

}  // namespace

CommandLine::CommandLine(const Command &root) : root_(root), app_(std::make_unique<CLI::App>(root.summary, root.name)) {
  app_->set_version_flag("--version", "vesk " VESK_VERSION, "Print the version and exit");
  app_->get_formatter()->label("SUBCOMMAND", "COMMAND");
  // The common options may stand behind the command as well.
  app_->fallthrough();
  describe(*app_, root, true);
}

CommandLine::~CommandLine() = default;

const Command *CommandLine::parse(int argc, char **argv) {
  try {
    app_->parse(argc, argv);
  } catch (const CLI::CallForHelp &) {
    write_standard_output(help_of(*app_));
    return nullptr;
  } catch (const CLI::CallForVersion &version) {
    write_standard_output(fmt::format("{}\n", version.what()));
    return nullptr;
  } catch (const CLI::ParseError &error) {
    throw usage_failure(*app_, words(), error);
  }
  const Command *command = &root_;
  for (const CLI::App *at = app_.get(); !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    for (const Command &below : command->commands) {
      if (below.name != at->get_name()) continue;
      command = &below;
      break;
    }
  }
  return command;
}

std::string CommandLine::words() const {
  std::string words;
  for (const CLI::App *at = app_.get(); !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    words += (words.empty() ? "" : " ") + at->get_name();
  }
  return words;
}

}  // namespace command
