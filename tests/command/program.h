// Runs a program as a user would and tells what came of it.
#pragma once

#include <sys/types.h>

#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace command_test {

enum class Stream { kPipe, kTerminal, kClosed };

struct Invocation {
  std::vector<std::string> arguments;
  std::map<std::string, std::string> environment;  // all that the program sees of one
  std::string input;                               // for standard input, then its end
  Stream standard_input = Stream::kPipe;
  Stream standard_output = Stream::kPipe;
  Stream standard_error = Stream::kPipe;
  std::string standard_output_path{};  // a file in place of the stream
  bool reader_of_output_is_gone = false;
  std::optional<uid_t> user{};  // runs as that user; the caller is root
  std::string directory{};      // where it runs
  int signal = 0;               // sent to it, once
  std::string signal_when{};    // standard error or the terminal has shown this
};

struct Outcome {
  int exit_code = -1;  // 128 + the signal that ended it
  std::string out;
  std::string err;
  std::string terminal;  // what the streams that are a terminal have shown
};

void PrintTo(const Outcome &outcome, std::ostream *stream);

// Fails the test if the program runs for longer than 30 seconds.
Outcome run_program(const std::string &path, const Invocation &invocation);

}  // namespace command_test
