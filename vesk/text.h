// Text from the user and for the user.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace command {

// With control characters and non-ASCII bytes as \xNN, so that no text steers the terminal.
std::string printable(std::string_view text);

// These refuse with a Failure that names what is wrong: the text is empty, has more bytes than its field, holds a
// control character or ends in a blank, which the protocol's padding would swallow.
void check_key_name(const std::string &name);
void check_instance(const std::string &instance);
void check_constant(const std::string &constant);  // exactly 15 bytes
void check_certificate_name(const std::string &name);
void check_private_key_name(const std::string &name);
void check_context_name(const std::string &name);
void check_host(const std::string &host);

// What key names begin with: unlike a name it may be empty and end in a blank.
void check_key_prefix(const std::string &prefix);

// A number from least to most, decimal or, if base16 allows, hexadecimal behind 0x; refuses what is anything else.
enum class Base16 : bool { kNo, kYes };
std::uint32_t parse_number(std::string_view what, const std::string &text, std::uint32_t least, std::uint32_t most,
                           Base16 base16 = Base16::kNo, const std::string &hint = {});

// Without the blanks that fill a field up.
std::string trimmed(std::string_view field);

// A date of the protocol, YYYYMMDD, as YYYY-MM-DD; empty for none ("00000000"); other text as it is.
std::string readable_date(std::string_view date);

}  // namespace command
