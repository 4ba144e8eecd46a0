// What was captured, as it is read again: from a trace, from the bytes themselves, or from their hexadecimal digits.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "veskd/secret.h"

namespace command {

struct Stream {
  veskd::WipedText bytes = {};
  std::string mask = {};  // '\1' for each byte that is masked, and is not known; empty when none is
};

// What went over one connection.
struct Exchange {
  std::string time = {};  // these three are empty when the input does not tell
  std::string thread = {};
  std::string server = {};
  Stream sent = {};
  Stream received = {};
  int status = 0;           // of the step that failed
  std::size_t damaged = 0;  // the line of the trace that is not as it was written; 0 for none

  bool is_of_trace() const { return !time.empty(); }
};

// Whether the text holds lines of the library's trace, captured bytes or not.
bool is_trace(std::string_view text);

// The exchanges of a trace in the order in which they began. What other lines say does not matter.
std::vector<Exchange> exchanges_in(std::string_view trace);

// Whether the text is nothing but pairs of hexadecimal digits, the first of which is a length digit. Those that stand
// for themselves begin otherwise.
bool is_hex_record(std::string_view text);

// The bytes of pairs of hexadecimal digits, with white space between them. Fails on anything else.
veskd::WipedText bytes_of_hex(std::string_view text);

}  // namespace command
