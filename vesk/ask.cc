#include "vesk/ask.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "vesk/failure.h"
#include "vesk/output.h"
#include "vesk/watch.h"

namespace command {
namespace {

std::string answer_to(std::string_view prompt, std::string_view done) {
  if (!isatty(STDIN_FILENO) || !isatty(STDERR_FILENO)) {
    throw Failure(ExitCode::kUsage, fmt::format("there is no terminal to ask for confirmation on; {}", done),
                  "add --yes if you are sure");
  }
  {
    const Uninterrupted whole_line;
    set_open_line(OpenLine::kQuestion);
    fmt::print(stderr, "{} ", prompt);
    std::fflush(stderr);
  }
  std::string answer;
  // The end of input is no answer, and the prompt's line is still open.
  if (!std::getline(std::cin, answer)) fmt::print(stderr, "\n");
  const Uninterrupted whole_line;
  set_open_line(OpenLine::kNone);
  return answer;
}

}  // namespace

void add_consent(Command &command, Consent &consent) {
  command.flag("--yes", consent.yes, "do not ask");
  add_dry_run(command, consent.dry_run);
}

void add_dry_run(Command &command, bool &dry_run) {
  command.flag("--dry-run", dry_run, "only say what would be done; the server is asked whether names are there");
}

void show_dry_run(const Settings &settings, std::string_view sentence, const Members &document) {
  Members members = {{"dry_run", true}};
  members.insert(members.end(), document.begin(), document.end());
  show(settings, sentence, members);
}

void ask_yes(const Consent &consent, std::string_view question, std::string_view done) {
  if (consent.yes) return;
  const std::string answer = answer_to(fmt::format("{} [y/N]", question), done);
  if (answer == "y" || answer == "Y" || answer == "yes") return;
  throw Failure(ExitCode::kCancelled, fmt::format("cancelled; {}", done));
}

void ask_to_type(const Consent &consent, std::string_view question, const std::string &word, std::string_view done) {
  if (consent.yes) return;
  if (answer_to(question, done) == word) return;
  throw Failure(ExitCode::kCancelled, fmt::format("cancelled; {}", done));
}

}  // namespace command
