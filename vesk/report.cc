#include "vesk/report.h"

#include <fmt/format.h>

#include <cstdio>

#include "vesk/output.h"

namespace command {

int report(const std::string &words, const Failure &failure) {
  const bool coloured = coloured_standard_error();
  fmt::print(stderr, "{}vesk:{} {}{}{}\n", coloured ? "\x1b[31m" : "", coloured ? "\x1b[0m" : "", words,
             words.empty() ? "" : ": ", failure.what());
  for (const std::string &detail : failure.details()) fmt::print(stderr, "detail: {}\n", detail);
  if (!failure.hint().empty()) fmt::print(stderr, "hint: {}\n", failure.hint());
  return static_cast<int>(failure.code());
}

}  // namespace command
