// The options that every command understands.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "vesk/options.h"

namespace command {

enum class Form { kTable, kJson, kPlain, kCsv };

struct Settings {
  std::optional<std::string> context;
  std::optional<std::string> host;
  std::optional<std::string> port;
  std::optional<std::string> certificates;
  std::optional<std::string> authority;
  std::optional<std::string> certificate;
  std::optional<std::string> key;
  std::string trace;
  std::string output = "table";
  std::optional<std::string> timeout;

  // The parser has refused what is none.
  Form form() const;

  // Of the whole command; refuses what is no time.
  std::optional<std::chrono::seconds> time_limit() const;

  // Whether standard output is for a result in a form of its own, beside which nothing else may be there.
  bool has_document() const { return form() != Form::kTable; }
};

void add_settings(Command &root, Settings &settings);

}  // namespace command
