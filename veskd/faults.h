// A server that misbehaves on purpose, so that the handling of errors can be tested. A file, every key of which stands
// in docs/faults.toml, says which requests and handshakes deviate and how. Here it is chosen and said what changes in a
// reply's bytes; peer.cc and faulty_tls.cc play it.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "veskd/handlers.h"
#include "veskd/return_codes.h"

namespace veskd {

enum class Deviation {
  // Of a reply.
  kDelay,
  kDribble,
  kCut,
  kReset,
  kLength,
  kShort,
  kLong,
  kReturnCode,
  // Of the pages of a list.
  kCount,
  kMoreFlag,
  kEndless,
  // Of a handshake.
  kExpiredCertificate,
  kWrongName,
  // Of a handshake with a client that shows a session ticket.
  kIgnoreTicket,
  kAlertOnTicket,
};

struct Fault {
  std::string name;  // as the log tells it
  Deviation deviation = Deviation::kDelay;
  std::chrono::milliseconds time{0};    // of a delay, or between two bytes
  std::size_t bytes = 0;                // sent before the end, missing or too many
  std::string text;                     // that takes the place of the length digits, the count or the flag
  ReturnCode return_code = RC_SUCCESS;  // that refuses the request; RC_SUCCESS for none

  bool ends_connection() const { return deviation == Deviation::kCut || deviation == Deviation::kReset; }
};

class Faults {
 public:
  // Throws ConfigurationError.
  explicit Faults(const std::filesystem::path &file);
  Faults(const Faults &) = delete;
  Faults &operator=(const Faults &) = delete;
  ~Faults();

  // What the next request, or the next handshake, does not do as it should; null for nothing. Any thread may ask.
  const Fault *next_request(std::string_view tran_id);
  const Fault *next_handshake(bool shows_ticket);

 private:
  struct Rule;
  template <typename LooksAt>
  const Fault *choose(LooksAt looks_at);

  std::mutex mutex_;
  std::vector<Rule> rules_;
};

// Changes the bytes of a reply, or of a page of a list, where the fault is about bytes or pages.
void distort(const Fault &fault, Reply &reply);

}  // namespace veskd
