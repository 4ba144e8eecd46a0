// The protocol's text, written out.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

// Text as it stands in a field on the wire: left-justified, blank-padded.
inline std::string padded(std::string_view text, std::size_t width) {
  std::string field(text.substr(0, width));
  field.resize(width, ' ');
  return field;
}

inline std::string blanks(std::size_t width) {
  return std::string(width, ' ');
}
inline std::string zeros(std::size_t width) {
  return std::string(width, '\0');
}

// The label of metadata field k, from 1.
inline std::string metadata_label(int k) {
  char label[16];
  std::snprintf(label, sizeof label, "MD%02d", k);
  return label;
}

// A body behind its five length digits.
inline std::string framed(const std::string &body) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%05zu", body.size());
  return digits + body;
}
