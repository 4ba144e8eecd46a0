// What a request says of itself: which transaction it is, how long it is, and how much comes behind it. All of it is
// checked here, before anything of that length is read or allocated.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "veskd/handlers.h"

namespace veskd {

inline constexpr std::size_t kTranIdDigits = 4;
inline constexpr std::size_t kRequestHeaderBytes = vesk::wire::kLengthDigits + kTranIdDigits;

struct RequestHeader {
  ReturnCode refused;        // RC_SUCCESS when there is a handler
  std::string_view digits;   // of the length
  std::string_view tran_id;  // empty when it is no number
  const Handler *handler;
};

// Takes the first kRequestHeaderBytes of a request, which it refers to.
RequestHeader read_header(std::string_view bytes);

// The bytes behind the length digits, if the transaction allows a request to be of that length. Some requests set their
// own.
std::optional<std::size_t> declared_length(std::string_view digits, const Handler &handler);

// The bytes that follow a request as a whole, of which the handler allows some; or why they are not read.
ReturnCode read_payload_length(const Handler &handler, std::string_view request, std::size_t &length);

}  // namespace veskd
