#include "vesk/ask.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "vesk/failure.h"

namespace command {
namespace {

std::string answer_to(std::string_view prompt, std::string_view done) {
  if (!isatty(STDIN_FILENO) || !isatty(STDERR_FILENO)) {
    throw Failure(ExitCode::kUsage, fmt::format("there is no terminal to ask for confirmation on; {}", done),
                  "add --yes if you are sure");
  }
  fmt::print(stderr, "{} ", prompt);
  std::fflush(stderr);
  std::string answer;
  // The end of input is no answer, and the prompt's line is still open.
  if (!std::getline(std::cin, answer)) fmt::print(stderr, "\n");
  return answer;
}

}  // namespace

void ask_yes(std::string_view question, std::string_view done) {
  const std::string answer = answer_to(fmt::format("{} [y/N]", question), done);
  if (answer == "y" || answer == "Y" || answer == "yes") return;
  throw Failure(ExitCode::kCancelled, fmt::format("cancelled; {}", done));
}

void ask_to_type(std::string_view question, const std::string &word, std::string_view done) {
  if (answer_to(question, done) == word) return;
  throw Failure(ExitCode::kCancelled, fmt::format("cancelled; {}", done));
}

}  // namespace command
