// Captured records as bytes: what has arrived of them, and what is wrong with their texts.
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "vesk/capture_file.h"
#include "vesk/protocol.h"

namespace command {

// What is wrong, and where.
struct Fault {
  std::size_t offset;
  std::string text;
};

// Captured bytes, and which of them are masked.
struct View {
  std::string_view bytes;
  std::string_view mask;

  std::size_t size() const { return bytes.size(); }
  bool is_masked() const { return mask.find('\1') != mask.npos; }
  View from(std::size_t offset, std::size_t count = std::string_view::npos) const {
    return {bytes.substr(std::min(offset, bytes.size()), count), mask.substr(std::min(offset, mask.size()), count)};
  }
};

View view_of(const Stream &stream);

// A counted record: length digits, and as many bytes behind them, or what has arrived of it.
struct Record {
  View view;
  std::size_t declared = 0;  // with the digits

  bool is_cut() const { return view.size() < declared; }
  // What a field holds; empty when the record has none of that name.
  std::string_view text(Fields fields, std::string_view name) const;
};

Record record_at(View stream);

// Decimal ones and nothing else, one at least.
bool are_digits(std::string_view text);

// "1 byte", "2 bytes".
std::string bytes_text(std::size_t count);

// "caKeyName" as "Key Name", "caRSAPaddingMode" as "RSA Padding Mode".
std::string title_of(std::string_view name);
std::string title_of(const Field &field);

// Of a text at that offset: the first NUL or other control character; the first place where it is not as it must be.
std::optional<Fault> fault_in_text(std::string_view text, std::size_t offset);
std::optional<Fault> fault_in_literal(std::string_view text, std::size_t offset, std::string_view literal);

// Whether it is a criterion of a metadata query: MDnn OP 'value'.
bool is_criterion(std::string_view text);

}  // namespace command
