// vesk help
#include <memory>

#include "vesk/command_line.h"
#include "vesk/commands.h"
#include "vesk/usage.h"

namespace command {
namespace {

void help(const Command &root, const std::vector<std::string> &words) {
  CommandPath path = {&root};
  for (const std::string &word : words) {
    const Command *below = path.back()->find_command(word);
    if (!below) throw unknown_command(path, word);
    path.push_back(below);
  }
  std::vector<std::string> line = {root.name};
  line.insert(line.end(), words.begin(), words.end());
  line.emplace_back("--help");
  std::vector<char *> arguments;
  arguments.reserve(line.size());
  for (std::string &word : line) arguments.push_back(word.data());
  CommandLine(root).parse(static_cast<int>(arguments.size()), arguments.data());
}

}  // namespace

void add_help(Command &root) {
  Command &command = root.add("help", "Show how a command is used, as --help behind it does");
  auto words = std::make_shared<std::vector<std::string>>();
  command.argument("COMMAND", words.get(), Kind::kCommand, "the words of the command [all commands]").is_required =
      false;
  command.examples = {"vesk help key get", "vesk help"};
  command.run = [&root, words] { help(root, *words); };
}

}  // namespace command
