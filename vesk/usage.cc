#include "vesk/usage.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "vesk/suggestion.h"
#include "vesk/text.h"

namespace command {
namespace {

std::string spelled(const CommandPath &path) {
  const std::string words = words_of(path);
  return path.front()->name + (words.empty() ? "" : " ") + words;
}

std::vector<std::string> given_values(const Option &option) {
  if (const auto *text = std::get_if<std::string *>(&option.target)) return {**text};
  if (const auto *texts = std::get_if<std::vector<std::string> *>(&option.target)) return **texts;
  const auto *text = std::get_if<std::optional<std::string> *>(&option.target);
  if (text && (**text)) return {***text};
  return {};
}

void check_choices(const Option &option) {
  for (const std::string &value : given_values(option)) {
    if (std::ranges::find(option.choices, value) != option.choices.end()) continue;
    const std::optional<std::string> meant = nearest(value, option.choices);
    throw Failure(ExitCode::kUsage,
                  fmt::format("{} {} is none of {}", option.name, printable(value), fmt::join(option.choices, ", ")),
                  meant ? did_you_mean(option.is_argument() ? *meant : fmt::format("{} {}", option.name, *meant)) : "");
  }
}

}  // namespace

std::string help_hint(const CommandPath &path) {
  return spelled(path) + " --help";
}

Failure unknown_command(const CommandPath &group, const std::string &given) {
  std::vector<std::string> names;
  for (const Command &command : group.back()->commands) names.push_back(command.name);
  const std::optional<std::string> meant = nearest(given, names);
  return Failure(ExitCode::kUsage, fmt::format("there is no command '{}'", printable(given)),
                 meant ? did_you_mean(fmt::format("{} {}", spelled(group), *meant)) : help_hint(group));
}

Failure unknown_option(const CommandPath &path, const std::string &given) {
  std::vector<std::string> names = {"--help", "--version"};
  for (const Command *command : path) {
    for (const Option &option : command->options) {
      if (!option.is_argument()) names.push_back(option.name);
    }
  }
  const std::optional<std::string> meant = nearest(given, names);
  return Failure(ExitCode::kUsage, fmt::format("there is no option '{}'", printable(given)),
                 meant ? did_you_mean(*meant) : help_hint(path));
}

void check_choices(const CommandPath &path) {
  for (const Command *command : path) {
    for (const Option &option : command->options) {
      if (!option.choices.empty()) check_choices(option);
    }
  }
}

}  // namespace command
