#include "vesk/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <optional>
#include <span>
#include <utility>

#include "vesk/failure.h"
#include "vesk/output.h"
#include "vesk/text.h"
#include "vesk/usage.h"

namespace command {
namespace {

// What most readers look for comes first.
std::string examples_of(const Command &command) {
  std::string text = command.examples.size() == 1 ? "Example:\n" : "Examples:\n";
  for (const std::string &example : command.examples) text += "  " + example + "\n";
  return text + "\n";
}

std::string footer_of(const Command &command, bool is_root) {
  std::string footer = command.details;
  if (is_root) return footer;
  return footer + (footer.empty() ? "" : "\n\n") +
         "Connection and output options (--host, --port, --certificates, --output ...): vesk --help";
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
  // For messages; the help has the text.
  if (!option.is_argument()) added->type_name(option.value_name);
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

std::string help_of(const CLI::App &app, const Command &command) {
  std::string help = examples_of(command) + app.help();
  for (std::size_t gap; (gap = help.find("\n\n\n")) != std::string::npos;) help.erase(gap, 1);
  return help.ends_with('\n') ? help : help + "\n";
}

// Where many values may stand, the parser takes one in brackets for several. A NUL behind it, which no argument holds,
// keeps it whole.
void mark(std::string &word) {
  if (word.starts_with('[') && word.ends_with(']')) word += '\0';
}

void unmark(std::string &word) {
  std::erase(word, '\0');
}

void unmark(bool) {}

template <typename Texts>
void unmark(Texts &texts) {
  for (std::string &text : texts) unmark(text);
}

void unmark(std::optional<std::string> &text) {
  if (text) unmark(*text);
}

void unmark_values(const CommandPath &path) {
  for (const Command *command : path) {
    for (const Option &option : command->options) std::visit([](auto *target) { unmark(*target); }, option.target);
  }
}

// The first option of the line that was not understood; behind "--" there are none.
std::optional<std::string> unknown_option_in(std::span<char *const> line, const std::vector<std::string> &unknown) {
  for (const std::string word : line) {
    if (word == "--") break;
    if (word.starts_with('-') && word.size() > 1 && std::ranges::find(unknown, word) != unknown.end())
      return word.substr(0, word.find('='));
  }
  return std::nullopt;
}

// What the parser says in words of its own.
std::string reworded(std::string message) {
  constexpr std::string_view kRequired = "1 required ";
  if (const std::size_t at = message.find(kRequired); at != std::string::npos) message.erase(at, kRequired.size());
  // Of all values only those of flags are converted.
  constexpr std::string_view kNotConverted = "Could not convert: ";
  if (message.starts_with(kNotConverted)) return "a flag is true or false: " + message.substr(kNotConverted.size());
  return message;
}

// That something does not exist is a more helpful thing to say than that something else is missing.
Failure usage_failure(const CommandPath &path, std::span<char *const> line, std::vector<std::string> unknown,
                      const CLI::ParseError &error) {
  unmark(unknown);
  if (const std::optional<std::string> option = unknown_option_in(line, unknown)) return unknown_option(path, *option);
  if (!unknown.empty() && !path.back()->commands.empty()) return unknown_command(path, unknown.front());
  std::string message = reworded(error.what());
  unmark(message);
  message = printable(message);
  const bool begins_a_sentence = message.size() > 1 && std::isupper(message[0]) && std::islower(message[1]);
  if (begins_a_sentence || message.starts_with("A ")) message[0] = static_cast<char>(std::tolower(message[0]));
  return Failure(ExitCode::kUsage, message, help_hint(path));
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
  std::vector<std::string> line(argv + std::min(argc, 1), argv + argc);
  for (std::string &word : line) mark(word);
  // The parser begins at the end.
  std::ranges::reverse(line);
  try {
    app_->parse(std::move(line));
  } catch (const CLI::CallForHelp &) {
    write_standard_output(help_of(*app_, *path().back()));
    return nullptr;
  } catch (const CLI::CallForVersion &version) {
    write_standard_output(fmt::format("{}\n", version.what()));
    return nullptr;
  } catch (const CLI::ParseError &error) {
    throw usage_failure(path(), {argv, static_cast<std::size_t>(argc)}, app_->remaining(true), error);
  }
  const CommandPath parsed = path();
  unmark_values(parsed);
  check_choices(parsed);
  return parsed.back();
}

CommandPath CommandLine::path() const {
  CommandPath path = {&root_};
  for (const CLI::App *at = app_.get(); !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    path.push_back(path.back()->find_command(at->get_name()));
  }
  return path;
}

std::string CommandLine::words() const {
  return words_of(path());
}

}  // namespace command
