#include "vesk/diagnosis.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "vesk/text.h"
#include "vesk/trace.h"

namespace command {
namespace {

struct VerdictWords {
  const char *word;
  Health health;
};

// In the order of Verdict.
constexpr std::array kWords = {VerdictWords{"ok", Health::kGood}, VerdictWords{"warning", Health::kUnknown},
                               VerdictWords{"failed", Health::kFault}, VerdictWords{"skipped", Health::kPlain}};

const VerdictWords &words_of(Verdict verdict) {
  return kWords[static_cast<std::size_t>(verdict)];
}

std::string table_of(const std::string &id, const Finding &finding) {
  constexpr std::size_t kWordWidth = 7;
  const VerdictWords words = words_of(finding.verdict);
  const std::string blanks(kWordWidth - std::string_view(words.word).size(), ' ');
  std::string table = fmt::format("{}{}  {:<20}  {}", painted(words.word, words.health), blanks, id, finding.text);
  for (const std::string &detail : finding.details) table += fmt::format("\n{:9}detail: {}", "", detail);
  if (!finding.hint.empty()) table += fmt::format("\n{:9}hint: {}", "", finding.hint);
  return table;
}

}  // namespace

Finding in_order(std::string text) {
  return {Verdict::kOk, std::move(text)};
}

Finding warning(std::string text, std::string hint) {
  return {Verdict::kWarning, std::move(text), std::move(hint)};
}

Failure with_details(const Failure &failure, std::vector<std::string> details) {
  return Failure(failure.code(), failure.what(), failure.hint(), std::move(details));
}

Diagnosis::Diagnosis(const Settings &settings)
    : settings_(settings), output_(settings, {}, "checks", {"id", "result", "text", "hint"}) {}

void Diagnosis::check(const std::string &id, const std::vector<std::string> &needed,
                      const std::function<Finding()> &look) {
  const Finding finding = finding_of(id, needed, look);
  made_.emplace(id, finding.verdict);
  tell(id, finding);
}

Finding Diagnosis::finding_of(const std::string &id, const std::vector<std::string> &needed,
                              const std::function<Finding()> &look) {
  for (const std::string &before : needed) {
    const auto found = open_.find(before);
    if (found == open_.end()) continue;
    const std::string to_blame = found->second;
    open_.emplace(id, to_blame);
    return {Verdict::kSkipped, fmt::format("because {} failed", to_blame)};
  }
  try {
    Trace::take_connection_details();
    return look();
  } catch (const Failure &failure) {
    open_.emplace(id, id);
    if (code_ == ExitCode::kDone) code_ = failure.code();
    return {Verdict::kFailed, failure.what(), failure.hint(), failure.details()};
  }
}

void Diagnosis::tell(const std::string &id, const Finding &finding) {
  const char *result = words_of(finding.verdict).word;
  // Plain form shows the first member alone, and an identifier says nothing without the result.
  if (settings_.form() == Form::kPlain) {
    output_.add_name(fmt::format("{} {}", id, result));
  } else {
    output_.add(Members{{"id", id},
                        {"result", result},
                        {"text", finding.text},
                        {"details", finding.details},
                        {"hint", text_or_null(finding.hint)}},
                table_of(id, finding));
  }
  // A person waits for the next one; a document is read when it is whole.
  if (settings_.form() == Form::kTable) output_.flush();
}

void Diagnosis::conclude() {
  std::array<std::size_t, kWords.size()> counts{};
  for (const auto &[id, verdict] : made_) ++counts[static_cast<std::size_t>(verdict)];
  Members members;
  std::string summary;
  for (std::size_t i = 0; i < kWords.size(); ++i) {
    members.emplace_back(kWords[i].word, counts[i]);
    if (counts[i] > 0) summary += fmt::format("{}{} {}", summary.empty() ? "" : ", ", counts[i], kWords[i].word);
  }
  output_.end({}, members);
  const bool has_warning = counts[static_cast<std::size_t>(Verdict::kWarning)] > 0;
  if (code_ == ExitCode::kDone && has_warning) code_ = ExitCode::kHealth;
  if (code_ != ExitCode::kDone) throw Failure(code_, "not all is in order: " + summary);
}

}  // namespace command
