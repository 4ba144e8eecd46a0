#include "veskd/log.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
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

}  // namespace

void Log::write(LogLevel level, std::string_view text) const {
  if (quiet_ && level == LogLevel::kInfo) return;
  const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
  const auto milliseconds = now.time_since_epoch().count() % 1000;
  std::string line =
      fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z {} {}", fmt::gmtime(std::chrono::system_clock::to_time_t(now)),
                  milliseconds, name_of(level), text);
  std::replace_if(
      line.begin(), line.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
  line += '\n';
  // One write per line keeps lines of different threads apart. A log that cannot be written must not stop the server.
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace veskd
