// Metadata fields and criteria as they stand on the command line.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace command {

inline constexpr std::size_t kNumFields = 16;

// "MD01" to "MD16", by index from 0.
std::string field_label(std::size_t index);

struct FieldValue {
  std::size_t index;
  std::string text;
};

// From texts like "N=TEXT", N being 1 to 16, with or without "md" before it; refuses a field that is given twice.
std::vector<FieldValue> parse_field_values(const std::vector<std::string> &texts);

// What the query asks of a field: an index into the library's opLut, 0 for nothing.
struct Criterion {
  std::string value;
  int op = 0;
};
using Criteria = std::array<Criterion, kNumFields>;

// From texts like 'md2 eq "text"'; refuses a field that is given twice.
Criteria parse_criteria(const std::vector<std::string> &texts);

}  // namespace command
