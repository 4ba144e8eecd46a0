#include "veskd/request_header.h"

#include "veskd/fields.h"

namespace veskd {

using vesk::wire::kLengthDigits;

RequestHeader read_header(std::string_view bytes) {
  const std::string_view digits = bytes.substr(0, kLengthDigits);
  const std::string_view tran_id = bytes.substr(kLengthDigits, kTranIdDigits);
  if (!is_all_digits(digits) || !is_all_digits(tran_id)) return {RC_MALFORMED_REQUEST, digits, {}, nullptr};
  const Handler *handler = find_handler(tran_id);
  return {handler == nullptr ? RC_UNKNOWN_TRANSACTION : RC_SUCCESS, digits, tran_id, handler};
}

std::optional<std::size_t> declared_length(std::string_view digits, const Handler &handler) {
  const vesk::wire::Transaction &transaction = handler.transaction;
  const auto length = static_cast<std::size_t>(vesk::wire::to_int(digits));
  const bool allowed = transaction.length.empty()
                           ? length >= kTranIdDigits && kLengthDigits + length <= handler.max_request_bytes
                           : digits == transaction.length;
  return allowed ? std::optional(length) : std::nullopt;
}

ReturnCode read_payload_length(const Handler &handler, std::string_view request, std::size_t &length) {
  Wiped<RequestFields> fields;
  const bool well_formed = handler.parse(request, *fields);
  const std::string_view digits = vesk::wire::text_in(fields->caByteCount);
  if (!well_formed || !is_all_digits(digits)) return RC_MALFORMED_REQUEST;
  length = static_cast<std::size_t>(vesk::wire::to_int(digits));
  return length > handler.max_payload_bytes ? RC_PAYLOAD_LENGTH : RC_SUCCESS;
}

}  // namespace veskd
