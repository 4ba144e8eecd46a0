#include "vesk/text.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "vesk/failure.h"

namespace command {
namespace {

constexpr std::size_t kKeyNameWidth = 40;
constexpr std::size_t kInstanceWidth = 24;
constexpr std::size_t kConstantWidth = 15;
constexpr std::size_t kHostWidth = 40;
constexpr std::size_t kCertificateNameWidth = 64;
constexpr std::size_t kContextNameWidth = 40;

bool is_control(unsigned char byte) {
  return byte < 0x20 || byte == 0x7f;
}

bool is_digit(char character) {
  return character >= '0' && character <= '9';
}

void check_controls(std::string_view what, const std::string &text) {
  if (std::any_of(text.begin(), text.end(), is_control))
    throw Failure(ExitCode::kUsage, fmt::format("the {} {} holds a control character", what, printable(text)));
}

void check_width(std::string_view what, const std::string &text, std::size_t width) {
  if (text.size() <= width) return;
  throw Failure(ExitCode::kUsage, fmt::format("the {} {} is {} bytes long; at most {} are allowed", what,
                                              printable(text), text.size(), width));
}

void check_form(std::string_view what, const std::string &text) {
  if (text.empty()) throw Failure(ExitCode::kUsage, fmt::format("the {} is empty", what));
  check_controls(what, text);
  if (text.back() == ' ') {
    throw Failure(ExitCode::kUsage, fmt::format("the {} '{}' ends in a blank", what, printable(text)),
                  "the protocol fills names up with blanks: give it without");
  }
}

void check(std::string_view what, const std::string &text, std::size_t width) {
  check_form(what, text);
  check_width(what, text, width);
}

bool is_ipv6_address(const std::string &text) {
  in6_addr address;
  // A link-local address may name its interface.
  return inet_pton(AF_INET6, text.substr(0, text.find('%')).c_str(), &address) == 1;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  for (unsigned char byte : text) {
    if (byte < 0x20 || byte > 0x7e) {
      result += fmt::format("\\x{:02x}", byte);
    } else {
      result += static_cast<char>(byte);
    }
  }
  return result;
}

void check_key_name(const std::string &name) {
  check("key name", name, kKeyNameWidth);
}

void check_key_prefix(const std::string &prefix) {
  check_controls("prefix", prefix);
  check_width("prefix", prefix, kKeyNameWidth);
}

void check_instance(const std::string &instance) {
  check("instance", instance, kInstanceWidth);
}

void check_constant(const std::string &constant) {
  check_form("template constant", constant);
  if (constant.size() == kConstantWidth) return;
  throw Failure(ExitCode::kUsage, fmt::format("the template constant {} is {} bytes long; it must have exactly {}",
                                              printable(constant), constant.size(), kConstantWidth));
}

void check_certificate_name(const std::string &name) {
  check("certificate name", name, kCertificateNameWidth);
}

void check_private_key_name(const std::string &name) {
  check("private key name", name, kCertificateNameWidth);
}

void check_context_name(const std::string &name) {
  check("context name", name, kContextNameWidth);
}

void check_host(const std::string &host) {
  check("host name", host, kHostWidth);
  const bool has_more = host.find_first_of("/[]") != std::string::npos;
  if (!has_more && (host.find(':') == std::string::npos || is_ipv6_address(host))) return;
  throw Failure(ExitCode::kUsage, fmt::format("the host '{}' is neither a name nor an address", printable(host)),
                "give it alone, an IPv6 address without brackets, and the port with --port PORT (VESK_PORT)");
}

std::uint32_t parse_number(std::string_view what, const std::string &text, std::uint32_t least, std::uint32_t most,
                           Base16 base16, const std::string &hint) {
  const bool hexadecimal = base16 == Base16::kYes && (text.starts_with("0x") || text.starts_with("0X"));
  const char *begin = text.data() + (hexadecimal ? 2 : 0);
  const char *end = text.data() + text.size();
  std::uint32_t number = 0;
  const auto [stop, error] = std::from_chars(begin, end, number, hexadecimal ? 16 : 10);
  if (error == std::errc() && stop == end && number >= least && number <= most) return number;
  const std::string range =
      base16 == Base16::kYes ? fmt::format("0x{:X} to 0x{:X}", least, most) : fmt::format("{} to {}", least, most);
  throw Failure(ExitCode::kUsage, fmt::format("the {} '{}' is not a number from {}", what, printable(text), range),
                hint);
}

std::string trimmed(std::string_view field) {
  const std::size_t last = field.find_last_not_of(' ');
  return std::string(field.substr(0, last == std::string_view::npos ? 0 : last + 1));
}

std::string readable_date(std::string_view date) {
  if (date == "00000000") return {};
  if (date.size() != 8 || !std::all_of(date.begin(), date.end(), is_digit)) return trimmed(date);
  return fmt::format("{}-{}-{}", date.substr(0, 4), date.substr(4, 2), date.substr(6, 2));
}

}  // namespace command
