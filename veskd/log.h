// Log lines on standard error: time, level, text; as plain text or as JSON, one object a line. A line says who asked
// for what and how it ended, never what a key is.
#pragma once

#include <atomic>
#include <initializer_list>
#include <string_view>

namespace veskd {

enum class LogLevel { kError, kWarning, kInfo };
enum class LogForm { kText, kJson };

struct LogOptions {
  LogForm form = LogForm::kText;
  LogLevel level = LogLevel::kInfo;  // less important lines are left out
};

// A part of a line: plain text has the values alone, JSON both.
struct LogField {
  std::string_view name;
  std::string_view value;
};

// Every function may be called from any thread.
class Log {
 public:
  explicit Log(const LogOptions &options) : form_(options.form), level_(options.level) {}
  // A quiet log keeps errors and warnings.
  explicit Log(bool quiet) : Log({.level = quiet ? LogLevel::kWarning : LogLevel::kInfo}) {}

  // From the next line on.
  void use(const LogOptions &options) {
    form_ = options.form;
    level_ = options.level;
  }

  // Writes one whole line. Control characters are replaced or escaped, since part of it may come from a peer.
  void write(LogLevel level, std::initializer_list<LogField> fields) const;

  void error(std::string_view text) const { write(LogLevel::kError, {{"text", text}}); }
  void warning(std::string_view text) const { write(LogLevel::kWarning, {{"text", text}}); }
  void info(std::string_view text) const { write(LogLevel::kInfo, {{"text", text}}); }

 private:
  std::atomic<LogForm> form_;
  std::atomic<LogLevel> level_;
};

}  // namespace veskd
