// The parser of the command line.
#pragma once

#include <memory>
#include <string>

#include "vesk/options.h"

namespace CLI {
class App;
}

namespace command {

class CommandLine {
 public:
  explicit CommandLine(const Command &root);
  ~CommandLine();
  CommandLine(const CommandLine &) = delete;
  CommandLine &operator=(const CommandLine &) = delete;

  // Sets the targets of the options that are given and returns the command that is to run; null when help or the
  // version was asked for and has been written. Fails when the command line cannot be meant.
  const Command *parse(int argc, char **argv);

  // The command's words as far as they were understood, as in "key get".
  std::string words() const;

 private:
  CommandPath path() const;

  const Command &root_;
  std::unique_ptr<CLI::App> app_;
};

}  // namespace command
