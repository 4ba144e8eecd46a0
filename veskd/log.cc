#include "veskd/log.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace veskd {
namespace {

constexpr std::string_view name_of(LogLevel level) {
  switch (level) {
    case LogLevel::kError:
      return "error";
    case LogLevel::kWarning:
      return "warning";
    case LogLevel::kInfo:
      return "info";
  }
  return "";
}

std::string time_text() {
  const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(std::chrono::system_clock::to_time_t(now)),
                     now.time_since_epoch().count() % 1000);
}

std::string text_line(LogLevel level, std::initializer_list<LogField> fields) {
  std::string line = fmt::format("{} {}", time_text(), name_of(level));
  for (const LogField &field : fields)
    if (!field.value.empty()) line.append(" ").append(field.value);
  std::replace_if(
      line.begin(), line.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
  return line;
}

std::string json_line(LogLevel level, std::initializer_list<LogField> fields) {
  nlohmann::ordered_json line = {{"time", time_text()}, {"level", name_of(level)}};
  for (const LogField &field : fields) line[std::string(field.name)] = field.value;
  return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

void Log::write(LogLevel level, std::initializer_list<LogField> fields) const {
  if (level > level_) return;
  std::string line = form_ == LogForm::kJson ? json_line(level, fields) : text_line(level, fields);
  line += '\n';
  // One write per line keeps lines of different threads apart. A log that cannot be written must not stop the server.
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace veskd
