// A captured exchange, taken apart: every field of its request, its replies and what follows them, by the tables of the
// protocol. The bytes are a peer's and may be anything.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "vesk/capture_file.h"
#include "vesk/protocol.h"
#include "vesk/record_view.h"

namespace command {

// A part of an exchange: a record, or what follows one outside its counted length.
struct Part {
  const char *name;
  std::size_t page = 0;   // of a list, from 1; 0 for what has none
  std::size_t start = 0;  // where it begins in what was sent or received
};

// One field, or one thing that is wrong where there is none.
struct Piece {
  const Part *part = nullptr;
  std::size_t entry = 0;   // of a block, from 1; 0 for what has none
  std::size_t offset = 0;  // in its part
  std::size_t width = 0;   // of what has arrived
  std::string name = {};
  std::optional<std::string> value = {};  // without its padding; nothing when it is masked, or is no field
  bool is_masked = false;
  std::string meaning = {};
  std::optional<Fault> fault = {};  // its offset is in the part, too
};

// The protocol of an exchange by the identifier of its request, or else of its reply; null for an unknown one.
const Protocol *protocol_of(const Exchange &exchange);

// Whether the record may be a request of the transaction that it names.
bool is_request(std::string_view record);

// Hands the pieces over in their order. Secrets are masked, whether they were in the capture or not.
void dissect(const Exchange &exchange, const Protocol *protocol, const std::function<void(const Piece &)> &show);

}  // namespace command
