// What the command line may say, as data: the commands, their options and their examples. The parser and everything
// that tells of the commands walk it.
#pragma once

#include <deque>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace command {

// What a value is.
enum class Kind {
  kText,
  kNumber,
  kForm,
  kHost,
  kFile,
  kDirectory,
  kContext,
  kKeyName,
  kTemplate,
  kCertificate,
  kPrivateKey,
  kMirror,
  kCommand,
};

struct Option {
  using Target = std::variant<bool *, std::string *, std::optional<std::string> *, std::vector<std::string> *>;

  std::string name;        // as in "--out"; an argument that has a place of its own, as in "NAME", has no dashes
  Target target;           // set by the parser; a bool for a flag, a list for what may be repeated
  std::string value_name;  // as in "FILE"; empty for flags and arguments
  Kind kind = Kind::kText;
  std::string text;
  bool is_required = false;
  std::string group = {};                  // its heading in the help, if it has one of its own
  std::vector<std::string> needs = {};     // names of options without which it makes no sense
  std::vector<std::string> excludes = {};  // and beside which it makes none
  std::vector<std::string> choices = {};   // the values that it can have, if they are few

  bool is_argument() const { return !name.starts_with('-'); }
  bool is_flag() const { return std::holds_alternative<bool *>(target); }
};

// A group of commands, or a command, which has something to run. References to commands and options stay good.
struct Command {
  std::string name;
  std::string summary;
  std::string details = {};
  std::vector<std::string> examples = {};
  std::function<void()> run = {};
  std::deque<Option> options = {};
  std::list<Command> commands = {};

  Command &add(const std::string &command_name, const std::string &command_summary);
  Option &argument(const std::string &argument_name, Option::Target target, Kind kind, const std::string &text);
  Option &option(const std::string &option_name, Option::Target target, const std::string &value_name, Kind kind,
                 const std::string &text);
  Option &flag(const std::string &flag_name, bool &target, const std::string &text);

  // Null when there is none of that name.
  const Command *find_command(std::string_view command_name) const;
  const Option *find_option(std::string_view option_name) const;
};

// A command with the groups that it is in, the root first.
using CommandPath = std::vector<const Command *>;

// Its words behind the root's, as in "key get".
std::string words_of(const CommandPath &path);

}  // namespace command
