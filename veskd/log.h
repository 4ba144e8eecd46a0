// Log lines on standard error: time, level, text. A line says who asked for what and how it ended, never what a key is.
#pragma once

#include <string_view>

namespace veskd {

enum class LogLevel { kError, kWarning, kInfo };

class Log {
 public:
  // A quiet log keeps errors and warnings.
  explicit Log(bool quiet) : quiet_(quiet) {}

  // Writes one whole line, from any thread. Control characters of the text are replaced, since part of it may come from
  // a peer.
  void write(LogLevel level, std::string_view text) const;

  void error(std::string_view text) const { write(LogLevel::kError, text); }
  void warning(std::string_view text) const { write(LogLevel::kWarning, text); }
  void info(std::string_view text) const { write(LogLevel::kInfo, text); }

 private:
  bool quiet_;
};

}  // namespace veskd
