#include "vesk/capture_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <optional>

#include "vesk/capture.h"
#include "vesk/failure.h"

namespace command {
namespace {

// No step of an exchange masks more at once.
constexpr std::size_t kMaxMaskedBytes = 65536;

constexpr std::string_view kWhiteSpace = " \t\r\n";

template <typename Number>
std::optional<Number> number_of(std::string_view digits, int base = 10) {
  Number number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return number;
}

// What stands before the separator, which is taken off the text with it; all of the text when there is none.
std::string_view take(std::string_view &text, std::string_view separator) {
  const std::size_t end = text.find(separator);
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(end == text.npos ? text.size() : end + separator.size());
  return taken;
}

// Between the words that begin and end it; nothing when they do not.
std::optional<std::string_view> between(std::string_view text, std::string_view begin, std::string_view end) {
  if (!text.starts_with(begin) || !text.ends_with(end) || text.size() < begin.size() + end.size()) return std::nullopt;
  return text.substr(begin.size(), text.size() - begin.size() - end.size());
}

// A line of the trace that begins a message.
struct Head {
  std::string_view time;
  std::string_view thread;
  std::string_view path;
  std::string_view message;
};

std::optional<Head> head_of(std::string_view line) {
  Head head;
  head.time = take(line, " ");
  head.thread = take(line, " ");
  const std::string_view place = take(line, " ");
  head.path = place.substr(0, place.rfind(':'));
  head.message = line;
  const bool is_head = head.time.size() == std::string_view("2026-01-31T23:59:59.123456Z").size() &&
                       head.time.ends_with('Z') && number_of<long>(head.thread);
  if (!is_head) return std::nullopt;
  return head;
}

// The bytes of a line of a dump, which continues one that has that many.
std::optional<std::string> row_of_dump(std::string_view line, std::size_t offset) {
  const std::optional<std::string_view> row = between(line, "    ", "|");
  if (!row) return std::nullopt;
  std::string_view text = row->substr(0, row->find('|'));
  if (number_of<std::size_t>(take(text, " "), 16) != offset) return std::nullopt;
  std::string bytes;
  while (!text.empty()) {
    const std::string_view digits = take(text, " ");
    if (digits.empty()) continue;
    const auto byte = number_of<unsigned char>(digits, 16);
    if (digits.size() != 2 || !byte) return std::nullopt;
    bytes += static_cast<char>(*byte);
  }
  return bytes;
}

class TraceReader {
 public:
  explicit TraceReader(std::string_view trace) : rest_(trace) {}

  std::vector<Exchange> read() {
    while (next_line()) {
      const std::optional<Head> head = head_of(line_);
      if (head && head->path == kCapturePath && !take_message(*head)) mark_damaged(*head);
    }
    return std::move(exchanges_);
  }

 private:
  bool next_line() {
    if (rest_.empty()) return false;
    line_ = take(rest_, "\n");
    ++line_number_;
    return true;
  }

  // The exchange that goes on on the thread; one whose beginning is not in the trace begins here.
  Exchange &exchange_on(const Head &head) {
    const auto [found, is_new] = current_.try_emplace(std::string(head.thread), exchanges_.size());
    if (is_new) begin(head);
    return exchanges_[found->second];
  }

  Exchange &begin(const Head &head) {
    current_[std::string(head.thread)] = exchanges_.size();
    exchanges_.push_back({.time = std::string(head.time), .thread = std::string(head.thread)});
    return exchanges_.back();
  }

  void mark_damaged(const Head &head) {
    Exchange &exchange = exchange_on(head);
    if (exchange.damaged == 0) exchange.damaged = line_number_;
  }

  // Returns false when the message is none of the capture's, or is cut.
  bool take_message(const Head &head) {
    if (head.message.starts_with("connection to ")) return take_connection(head);
    for (const char *label : {kSentLabel, kReceivedLabel}) {
      if (!head.message.starts_with(label)) continue;
      Exchange &exchange = exchange_on(head);
      return take_bytes(head.message.substr(std::string_view(label).size()),
                        label == kSentLabel ? exchange.sent : exchange.received);
    }
    for (const std::string_view failed : {"sending, status ", "receiving, status "}) {
      if (head.message.starts_with(failed)) return take_status(head.message.substr(failed.size()), exchange_on(head));
    }
    return false;
  }

  bool take_connection(const Head &head) {
    Exchange &exchange = begin(head);
    std::string_view rest = head.message;
    const std::size_t status = rest.rfind(", status ");
    const std::size_t port = rest.rfind(" port ", status);
    if (status == rest.npos || port == rest.npos) return false;
    const std::size_t host = std::string_view("connection to ").size();
    if (port < host) return false;
    exchange.server = fmt::format(
        "{}:{}", rest.substr(host, port - host),
        rest.substr(port + std::string_view(" port ").size(), status - port - std::string_view(" port ").size()));
    return take_status(rest.substr(status + std::string_view(", status ").size()), exchange);
  }

  static bool take_status(std::string_view digits, Exchange &exchange) {
    const std::optional<int> status = number_of<int>(digits);
    if (status) exchange.status = *status;
    return status.has_value();
  }

  bool take_bytes(std::string_view message, Stream &stream) {
    const bool is_masked = message.starts_with(kMasked);
    if (is_masked) message.remove_prefix(std::string_view(kMasked).size());
    const std::optional<std::string_view> digits = between(message, " (", " bytes)");
    const std::optional<std::size_t> count = digits ? number_of<std::size_t>(*digits) : std::nullopt;
    if (!count) return false;
    return is_masked ? take_masked(*count, stream) : take_dump(*count, stream);
  }

  static bool take_masked(std::size_t count, Stream &stream) {
    if (count > kMaxMaskedBytes) return false;
    stream.bytes.text().append(count, '\0');
    stream.mask.append(count, '\1');
    return true;
  }

  bool take_dump(std::size_t count, Stream &stream) {
    for (std::size_t taken = 0; taken < count;) {
      if (!rest_.starts_with("    ") || !next_line()) return false;
      const std::optional<std::string> row = row_of_dump(line_, taken);
      if (!row || row->empty() || row->size() > count - taken) return false;
      stream.bytes.text() += *row;
      stream.mask.append(row->size(), '\0');
      taken += row->size();
    }
    return true;
  }

  std::string_view rest_;
  std::string_view line_;
  std::size_t line_number_ = 0;
  std::vector<Exchange> exchanges_;
  std::map<std::string, std::size_t> current_;  // by thread
};

}  // namespace

bool is_trace(std::string_view text) {
  while (!text.empty()) {
    const std::optional<Head> head = head_of(take(text, "\n"));
    if (head && (head->path == kCapturePath || head->path.starts_with("orn/"))) return true;
  }
  return false;
}

std::vector<Exchange> exchanges_in(std::string_view trace) {
  return TraceReader(trace).read();
}

bool is_hex_record(std::string_view text) {
  try {
    const veskd::WipedText bytes = bytes_of_hex(text);
    return !bytes.text().empty() && bytes.text().front() >= '0' && bytes.text().front() <= '9';
  } catch (const Failure &) {
    return false;
  }
}

veskd::WipedText bytes_of_hex(std::string_view text) {
  veskd::WipedText bytes(std::string(text.size() / 2, '\0'));
  std::size_t length = 0;
  for (std::size_t at = 0; (at = text.find_first_not_of(kWhiteSpace, at)) != text.npos; at += 2) {
    const auto byte = number_of<unsigned char>(text.substr(at, 2), 16);
    if (!byte || at + 1 == text.size())
      throw Failure(ExitCode::kOther, fmt::format("no pair of hexadecimal digits at offset {}", at));
    bytes.text()[length++] = static_cast<char>(*byte);
  }
  bytes.text().resize(length);
  return bytes;
}

}  // namespace command
