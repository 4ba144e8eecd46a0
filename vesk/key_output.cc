#include "vesk/key_output.h"

#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <array>

#include "orn/vesk/wiped.h"
#include "vesk/failure.h"
#include "vesk/output.h"
#include "vesk/secret_file.h"

namespace command {
namespace {

// The longest value is 256 bytes, and its longest form two hexadecimal digits for each, a line end and a terminator.
constexpr std::size_t kMaxValueBytes = 256;
using Text = std::array<char, 2 * kMaxValueBytes + 2>;

// Both return the length, line end included.
std::size_t put_hex(Text &text, std::span<const unsigned char> value) {
  std::size_t length = 0;
  if (OPENSSL_buf2hexstr_ex(text.data(), text.size(), &length, value.data(), value.size(), '\0') != 1)
    throw Failure(ExitCode::kOther, "OpenSSL could not write the key as hexadecimal digits");
  text[2 * value.size()] = '\n';
  return 2 * value.size() + 1;
}

std::size_t put_base64(Text &text, std::span<const unsigned char> value) {
  const int length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char *>(text.data()), value.data(), static_cast<int>(value.size()));
  text[static_cast<std::size_t>(length)] = '\n';
  return static_cast<std::size_t>(length) + 1;
}

}  // namespace

Option &add_key_output(Command &command, KeyOutputOptions &options) {
  Option &out = command.option("--out", &options.out, "FILE", Kind::kFile,
                               "write the key's value to a new file, - for standard output");
  command.flag("--hex", options.hex, "with --out: hexadecimal digits instead of raw bytes").needs = {"--out"};
  Option &base64 = command.flag("--base64", options.base64, "with --out: base64 instead of raw bytes");
  base64.needs = {"--out"};
  base64.excludes = {"--hex"};
  command.flag("--force", options.force, "with --out: replace the file if it exists").needs = {"--out"};
  return out;
}

KeyOutput::KeyOutput(const KeyOutputOptions &options, const Settings &settings) : options_(options) {
  if (!is_wanted()) return;
  if (!is_standard_output()) {
    check_secret_file(file(), options.force);
    return;
  }
  if (settings.has_document()) {
    throw Failure(ExitCode::kUsage, "--out - is for --output table: both would have standard output",
                  "write the value to a file: --out FILE");
  }
  const bool raw = !options.hex && !options.base64;
  if (raw && isatty(STDOUT_FILENO)) {
    throw Failure(ExitCode::kUsage, "the raw bytes of a key are not written to a terminal",
                  "add --hex or --base64, or write them to a file: --out FILE");
  }
}

void KeyOutput::write(std::span<const unsigned char> value) const {
  if (value.size() > kMaxValueBytes) throw Failure(ExitCode::kOther, "the key is longer than 256 bytes");
  vesk::Wiped<Text> text;
  std::string_view bytes(reinterpret_cast<const char *>(value.data()), value.size());
  if (options_.hex) bytes = {text->data(), put_hex(*text, value)};
  if (options_.base64) bytes = {text->data(), put_base64(*text, value)};
  if (is_standard_output()) return write_standard_output(bytes);
  write_secret_file(file(), bytes, options_.force);
}

}  // namespace command
