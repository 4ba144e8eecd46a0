#include "vesk/health.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "vesk/failure.h"
#include "vesk/text.h"

namespace command {
namespace {

bool coloured_standard_output() {
  const char *terminal = std::getenv("TERM");
  const char *no_colour = std::getenv("NO_COLOR");
  return isatty(STDOUT_FILENO) && terminal && *terminal && std::string_view(terminal) != "dumb" &&
         !(no_colour && *no_colour);
}

std::string_view colour_of(Health health) {
  switch (health) {
    case Health::kGood:
      return "\x1b[32m";
    case Health::kUnknown:
      return "\x1b[33m";
    case Health::kFault:
      return "\x1b[31m";
    case Health::kPlain:
      break;
  }
  return {};
}

std::string text_of(const HealthFact &fact) {
  const std::string value = fact.value.is_string() ? printable(fact.value.get<std::string>()) : fact.value.dump();
  return fact.note.empty() ? value : fmt::format("{}  {}", value, fact.note);
}

}  // namespace

void show_health(const Settings &settings, const std::vector<HealthFact> &facts) {
  if (settings.json()) {
    Json document = Json::object();
    for (const HealthFact &fact : facts) document[fact.member] = fact.value;
    return show(settings, {}, document);
  }
  std::size_t width = 0;
  for (const HealthFact &fact : facts) width = std::max(width, std::string_view(fact.label).size());
  const bool coloured = coloured_standard_output();
  std::string table;
  for (const HealthFact &fact : facts) {
    const std::string_view colour = coloured ? colour_of(fact.health) : std::string_view();
    table += fmt::format("{:<{}}  {}{}{}\n", fact.label, width, colour, text_of(fact), colour.empty() ? "" : "\x1b[0m");
  }
  write_standard_output(table);
}

void report_fault(const std::string &message, const std::string &hint) {
  throw Failure(ExitCode::kHealth, message, hint);
}

}  // namespace command
