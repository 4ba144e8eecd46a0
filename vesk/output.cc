#include "vesk/output.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "vesk/failure.h"
#include "vesk/text.h"

namespace command {
namespace {

std::string table_text(const Json &value) {
  if (value.is_null()) return "none";
  return value.is_string() ? printable(value.get<std::string>()) : value.dump();
}

void write_document(const Json &document) {
  // Text of a server need not be UTF-8.
  write_standard_output(document.dump(2, ' ', true, Json::error_handler_t::replace) + "\n");
}

}  // namespace

void write_standard_output(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EPIPE) throw ReaderGone();
    if (written < 0) {
      throw Failure(ExitCode::kOther,
                    fmt::format("cannot write to standard output: {}", std::generic_category().message(errno)));
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

void show_facts(const Settings &settings, const std::vector<Fact> &facts) {
  if (settings.json()) {
    Json document = Json::object();
    for (const Fact &fact : facts) document[fact.member] = fact.value;
    return write_document(document);
  }
  std::size_t width = 0;
  for (const Fact &fact : facts) width = std::max(width, std::string_view(fact.label).size());
  std::string table;
  for (const Fact &fact : facts) table += fmt::format("{:<{}}  {}\n", fact.label, width, table_text(fact.value));
  write_standard_output(table);
}

void show(const Settings &settings, std::string_view sentence, const Json &document) {
  if (settings.json()) return write_document(document);
  write_standard_output(fmt::format("{}\n", sentence));
}

Json text_or_null(std::string text) {
  if (text.empty()) return nullptr;
  return text;
}

bool fancy_standard_error() {
  const char *terminal = std::getenv("TERM");
  return isatty(STDERR_FILENO) && terminal && *terminal && std::string_view(terminal) != "dumb";
}

bool coloured_standard_error() {
  const char *no_colour = std::getenv("NO_COLOR");
  return fancy_standard_error() && !(no_colour && *no_colour);
}

}  // namespace command
