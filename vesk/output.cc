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

bool is_fancy(int stream) {
  const char *terminal = std::getenv("TERM");
  return isatty(stream) && terminal && *terminal && std::string_view(terminal) != "dumb";
}

bool is_coloured(int stream) {
  const char *no_colour = std::getenv("NO_COLOR");
  return is_fancy(stream) && !(no_colour && *no_colour);
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

std::string table_line(const Fact &fact, std::size_t width) {
  const std::string note = fact.note.empty() ? "" : "  " + fact.note;
  return fmt::format("{:<{}}  {}\n", fact.label, width, painted(printable(plain_text(fact.value)) + note, fact.health));
}

std::string quoted(const std::string &text) {
  if (text.find_first_of(",\"") == std::string::npos) return text;
  std::string result = "\"";
  for (const char character : text) result.append(character == '"' ? 2 : 1, character);
  return result + '"';
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
  if (settings.form() != Form::kTable) {
    Members document;
    for (const Fact &fact : facts) document.emplace_back(fact.member, fact.value);
    return show_document(settings, document);
  }
  std::size_t width = 0;
  for (const Fact &fact : facts) width = std::max(width, std::string_view(fact.label).size());
  std::string table;
  for (const Fact &fact : facts) table += table_line(fact, width);
  write_standard_output(table);
}

void show(const Settings &settings, std::string_view sentence, const Members &document) {
  if (settings.form() != Form::kTable) return show_document(settings, document);
  write_standard_output(fmt::format("{}\n", sentence));
}

std::string painted(std::string_view text, Health health) {
  const std::string_view colour = colour_of(health);
  if (colour.empty() || !is_coloured(STDOUT_FILENO)) return std::string(text);
  return fmt::format("{}{}\x1b[0m", colour, text);
}

void show_document(const Settings &settings, const Members &document) {
  if (settings.form() == Form::kJson) {
    Members whole = {{"schema", kSchema}};
    whole.insert(whole.end(), document.begin(), document.end());
    return write_standard_output(json_text(whole, 2) + "\n");
  }
  std::vector<std::string> members;
  std::vector<std::string> values;
  for (const auto &[member, value] : flattened(document)) {
    members.push_back(member);
    values.push_back(field_text(*value));
  }
  if (settings.form() == Form::kCsv) return write_standard_output(csv_line(members) + csv_line(values));
  std::string lines;
  for (const std::string &value : values) lines += escaped(value) + "\n";
  write_standard_output(lines);
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const unsigned char byte : text) {
    if (byte == '\\') {
      result += "\\\\";
    } else if (byte < 0x20 || byte > 0x7e) {
      result += fmt::format("\\x{:02x}", byte);
    } else {
      result += static_cast<char>(byte);
    }
  }
  return result;
}

std::string csv_line(const std::vector<std::string> &values) {
  std::string line;
  for (std::size_t i = 0; i < values.size(); ++i) line += (i == 0 ? "" : ",") + quoted(escaped(values[i]));
  return line + "\r\n";
}

std::string field_text(const Json &value) {
  return value.is_null() ? std::string() : plain_text(value);
}

bool fancy_standard_error() {
  return is_fancy(STDERR_FILENO);
}

bool coloured_standard_error() {
  return is_coloured(STDERR_FILENO);
}

}  // namespace command
