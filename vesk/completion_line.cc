#include "vesk/completion_line.h"

#include <algorithm>
#include <set>
#include <type_traits>
#include <utility>

#include "vesk/live_names.h"

namespace command {
namespace {

// How far the words that are typed already have come.
struct Position {
  CommandPath path;
  std::vector<std::string> arguments;
  std::set<std::string> given;      // the options
  const Option *awaited = nullptr;  // the one whose value comes next
  bool options_have_ended = false;
};

// That of the innermost command comes first: an inner name may hide an outer one.
const Option *find_option(const CommandPath &path, std::string_view name) {
  for (auto command = path.rbegin(); command != path.rend(); ++command) {
    if (const Option *option = (*command)->find_option(name)) return option;
  }
  return nullptr;
}

void set(const Option &option, const std::string &value) {
  std::visit(
      [&](auto *target) {
        using Target = std::remove_pointer_t<decltype(target)>;
        if constexpr (std::is_same_v<Target, std::vector<std::string>>) {
          target->push_back(value);
        } else if constexpr (!std::is_same_v<Target, bool>) {
          *target = value;
        }
      },
      option.target);
}

void take_option(Position &position, const std::string &word) {
  const std::size_t end = word.find('=');
  const Option *option = find_option(position.path, word.substr(0, end));
  if (!option) return;
  position.given.insert(option->name);
  if (option->is_flag()) return;
  if (end == word.npos) {
    position.awaited = option;
  } else {
    set(*option, word.substr(end + 1));
  }
}

void take(Position &position, const std::string &word) {
  if (position.awaited) {
    set(*position.awaited, word);
    position.awaited = nullptr;
  } else if (!position.options_have_ended && word == "--") {
    position.options_have_ended = true;
  } else if (!position.options_have_ended && word.starts_with('-')) {
    take_option(position, word);
  } else if (const Command *below = position.path.back()->find_command(word)) {
    position.path.push_back(below);
  } else {
    position.arguments.push_back(word);
  }
}

// The argument whose turn it is; the last one if it takes many.
const Option *next_argument(const Position &position) {
  std::size_t number = position.arguments.size();
  for (const Option &option : position.path.back()->options) {
    if (!option.is_argument()) continue;
    if (number == 0 || std::holds_alternative<std::vector<std::string> *>(option.target)) return &option;
    --number;
  }
  return nullptr;
}

bool is_possible(const Option &option, const Position &position) {
  if (option.is_argument()) return false;
  const bool may_repeat = std::holds_alternative<std::vector<std::string> *>(option.target);
  if (position.given.contains(option.name) && !may_repeat) return false;
  return std::ranges::none_of(option.excludes, [&](const std::string &name) { return position.given.contains(name); });
}

std::vector<Offer> options_at(const Position &position) {
  std::vector<Offer> offers;
  for (auto command = position.path.rbegin(); command != position.path.rend(); ++command) {
    for (const Option &option : (*command)->options) {
      // Not that which an inner one hides.
      if (find_option(position.path, option.name) != &option) continue;
      if (is_possible(option, position)) offers.push_back({option.name, option.text});
    }
  }
  offers.push_back({"--help", "Print this help message and exit"});
  return offers;
}

std::vector<Offer> commands_of(const Command &command) {
  std::vector<Offer> offers;
  for (const Command &below : command.commands) offers.push_back({below.name, below.summary});
  return offers;
}

// Of the command that the arguments name so far.
std::vector<Offer> commands_behind(const Command &root, const std::vector<std::string> &arguments) {
  const Command *command = &root;
  for (const std::string &argument : arguments) {
    command = command->find_command(argument);
    if (!command) return {};
  }
  return commands_of(*command);
}

Offers values_of(const Option &option, const Position &position, const Settings &settings, const std::string &begin) {
  if (option.kind == Kind::kFile) return {Offers::Kind::kFiles};
  if (option.kind == Kind::kDirectory) return {Offers::Kind::kDirectories};
  if (option.kind == Kind::kCommand)
    return {Offers::Kind::kWords, commands_behind(*position.path.front(), position.arguments)};
  Offers offers;
  for (const std::string &choice : option.choices) offers.words.push_back({choice, {}});
  for (const std::string &name : live_names(settings, option.kind, begin)) offers.words.push_back({name, {}});
  return offers;
}

// A word can be --option=value.
Offers inline_values(const Position &position, const Settings &settings, const std::string &word) {
  const std::string beginning = word.substr(0, word.find('=') + 1);
  const Option *option = find_option(position.path, beginning.substr(0, beginning.size() - 1));
  if (!option || option->is_flag()) return {};
  Offers offers = values_of(*option, position, settings, word.substr(beginning.size()));
  for (Offer &offer : offers.words) offer.text.insert(0, beginning);
  return offers;
}

// A word of its own that begins with a dash would be taken for an option.
Offers without_dashes(Offers offers) {
  std::erase_if(offers.words, [](const Offer &offer) { return offer.text.starts_with('-'); });
  return offers;
}

Offers all_offers(const Position &position, const Settings &settings, const std::string &word) {
  if (position.awaited) return without_dashes(values_of(*position.awaited, position, settings, word));
  const bool is_option = !position.options_have_ended && word.starts_with('-');
  if (is_option && word.find('=') != word.npos) return inline_values(position, settings, word);
  if (is_option) return {Offers::Kind::kWords, options_at(position)};
  if (!position.path.back()->commands.empty()) return {Offers::Kind::kWords, commands_of(*position.path.back())};
  if (const Option *argument = next_argument(position)) {
    Offers offers = values_of(*argument, position, settings, word);
    std::erase_if(offers.words, [&](const Offer &offer) {
      return std::ranges::find(position.arguments, offer.text) != position.arguments.end();
    });
    return position.options_have_ended ? offers : without_dashes(std::move(offers));
  }
  return {Offers::Kind::kWords, position.options_have_ended ? std::vector<Offer>{} : options_at(position)};
}

}  // namespace

Offers offers_for(const Command &root, const Settings &settings, const std::vector<std::string> &words) {
  if (words.empty()) return {};
  Position position;
  position.path = {&root};
  std::for_each(words.begin(), std::prev(words.end()), [&](const std::string &word) { take(position, word); });
  const std::string &last = words.back();
  Offers offers = all_offers(position, settings, last);
  std::erase_if(offers.words, [&](const Offer &offer) { return !offer.text.starts_with(last); });
  return offers;
}

}  // namespace command
