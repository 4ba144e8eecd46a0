#include "vesk/options.h"

#include <algorithm>

namespace command {

Command &Command::add(const std::string &command_name, const std::string &command_summary) {
  return commands.emplace_back(Command{command_name, command_summary});
}

Option &Command::argument(const std::string &argument_name, Option::Target target, Kind kind, const std::string &text) {
  Option &added = options.emplace_back(Option{argument_name, target, {}, kind, text});
  added.is_required = true;
  return added;
}

Option &Command::option(const std::string &option_name, Option::Target target, const std::string &value_name, Kind kind,
                        const std::string &text) {
  return options.emplace_back(Option{option_name, target, value_name, kind, text});
}

Option &Command::flag(const std::string &flag_name, bool &target, const std::string &text) {
  return options.emplace_back(Option{flag_name, &target, {}, Kind::kText, text});
}

const Command *Command::find_command(std::string_view command_name) const {
  const auto found = std::ranges::find(commands, command_name, &Command::name);
  return found == commands.end() ? nullptr : &*found;
}

const Option *Command::find_option(std::string_view option_name) const {
  const auto found = std::ranges::find(options, option_name, &Option::name);
  return found == options.end() ? nullptr : &*found;
}

std::string words_of(const CommandPath &path) {
  std::string words;
  for (std::size_t i = 1; i < path.size(); ++i) words += (i == 1 ? "" : " ") + path[i]->name;
  return words;
}

}  // namespace command
