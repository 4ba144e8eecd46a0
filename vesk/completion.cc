#include "vesk/completion.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "vesk/commands.h"
#include "vesk/completion_line.h"
#include "vesk/failure.h"
#include "vesk/output.h"
#include "vesk/shell_words.h"

namespace command {
namespace {

// Who has a server far away may want to wait for longer.
unsigned seconds_to_wait() {
  constexpr unsigned kUsual = 1;
  constexpr unsigned kMost = 60;
  const char *given = std::getenv("VESK_COMPLETION_SECONDS");
  const std::string_view text = given ? given : "";
  unsigned seconds = kUsual;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  const bool is_number = error == std::errc() && end == text.data() + text.size();
  return is_number && seconds >= 1 && seconds <= kMost ? seconds : kUsual;
}

// Who presses a key wants neither a question nor an error, nor to wait for a server.
void keep_quiet() {
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(nothing, STDIN_FILENO);
  dup2(nothing, STDERR_FILENO);
  signal(SIGALRM, [](int) { _exit(0); });
  alarm(seconds_to_wait());
}

// fish has read all words but the last already.
std::vector<std::string> words_typed(std::string_view shell, char **begin, char **end) {
  std::vector<std::string> words(begin, end);
  for (std::string &word : words) {
    if (shell != "fish" || &word == &words.back()) word = unquoted(word);
  }
  return words;
}

// For bash, which puts the word as it is in the place of what was typed behind the head, or behind the last quote;
// other shells quote themselves.
void quote_for_bash(std::vector<Offer> &offers, std::string_view head, std::string_view last) {
  const std::size_t begin = std::max(head.size(), behind_last_quote(last));
  const std::size_t num_kept = unquoted(last.substr(0, begin)).size();
  for (Offer &offer : offers) offer.text = quoted_as(last, offer.text.substr(num_kept));
}

std::string told(const Offers &offers) {
  constexpr const char *kKinds[] = {"words", "files", "directories"};
  std::string text = fmt::format("{}\n", kKinds[static_cast<int>(offers.kind)]);
  for (const Offer &offer : offers.words)
    text += fmt::format("{}{}{}\n", offer.text, offer.about.empty() ? "" : "\t", offer.about);
  return text;
}

std::string completed(std::string_view shell, const std::string &head, char **begin, char **end) {
  Settings settings;
  Command root{"vesk", {}};
  add_commands(root, settings);
  const std::vector<std::string> words = words_typed(shell, begin + 1, end);
  const std::string last = *(end - 1);
  Offers offers = offers_for(root, settings, words);
  if (shell == "bash" && last.starts_with(head)) quote_for_bash(offers.words, head, last);
  return told(offers);
}

}  // namespace

int complete(int argc, char **argv) {
  constexpr int kFewest = 4;
  keep_quiet();
  if (argc < kFewest) return 0;
  try {
    write_standard_output(completed(argv[0], argv[1], argv + 2, argv + argc));
  } catch (const std::exception &) {
  } catch (const ReaderGone &) {
  }
  return 0;
}

}  // namespace command
