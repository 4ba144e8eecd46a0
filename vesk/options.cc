#include "vesk/options.h"

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

}  // namespace command
