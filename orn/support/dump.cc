// Dumps of bytes, with a mask over secrets.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <span>
#include <string>
#include <string_view>

#include "orn/support/tracing.h"

namespace orn {
namespace {

using Bytes = std::span<const unsigned char>;

constexpr std::size_t kBytesPerRow = 16;

// What is secret in the dumps of a label: everything from an offset on, in every dump or only in the requests of one
// transaction.
struct SecretPart {
  std::string_view label;
  std::string_view transaction;
  std::size_t offset;
};

constexpr std::array kSecretParts = {
    SecretPart{"Key Value", "", 0},
    SecretPart{"KeyValue", "", 0},
    SecretPart{"Key value", "", 0},
    SecretPart{"caKeyValue", "", 0},
    // A key import: the key value is its last field.
    SecretPart{"caReqBuf", "1023", 657},
};

// A request begins with five length digits; the transaction identifier follows.
constexpr std::size_t kTransactionOffset = 5;

bool is_request_of(std::string_view transaction, Bytes bytes) {
  if (bytes.size() < kTransactionOffset + transaction.size()) return false;
  return std::equal(transaction.begin(), transaction.end(), bytes.begin() + kTransactionOffset);
}

// How many bytes from the start may be shown.
std::size_t shown_bytes(std::string_view label, Bytes bytes) {
  if (trace_reveals_secrets.load(std::memory_order_relaxed)) return bytes.size();
  for (const SecretPart &part : kSecretParts) {
    if (part.label != label) continue;
    if (part.transaction.empty() || is_request_of(part.transaction, bytes)) return std::min(part.offset, bytes.size());
  }
  return bytes.size();
}

void append_row(std::string &lines, std::size_t offset, Bytes row) {
  std::array<char, 32> digits{};
  std::snprintf(digits.data(), digits.size(), "\n    %04zx ", offset);
  lines += digits.data();
  std::string text;
  for (std::size_t i = 0; i < kBytesPerRow; ++i) {
    if (i == kBytesPerRow / 2) lines += ' ';
    if (i >= row.size()) {
      lines += "   ";
      continue;
    }
    std::snprintf(digits.data(), digits.size(), " %02x", static_cast<unsigned>(row[i]));
    lines += digits.data();
    text += row[i] >= 0x20 && row[i] <= 0x7e ? static_cast<char>(row[i]) : '.';
  }
  lines += "  |" + text + "|";
}

std::string dump(Bytes bytes, std::string_view label) {
  std::string lines;
  append_printable(lines, label);
  lines += " (" + std::to_string(bytes.size()) + " bytes)";
  const std::size_t shown = shown_bytes(label, bytes);
  for (std::size_t offset = 0; offset < shown; offset += kBytesPerRow) {
    append_row(lines, offset, bytes.subspan(offset, std::min(kBytesPerRow, shown - offset)));
  }
  if (shown < bytes.size()) lines += "\n    ******** " + std::to_string(bytes.size() - shown) + " secret bytes";
  return lines;
}

}  // namespace
}  // namespace orn

void DumpBuffer(int, const char *path, int line, const void *bytes, int count, const char *label) {
  if (!orn::trace_is_on.load(std::memory_order_relaxed)) return;
  int kept_errno = errno;
  try {
    orn::Bytes view;
    if (bytes && count > 0) view = {static_cast<const unsigned char *>(bytes), static_cast<std::size_t>(count)};
    orn::write_trace(path, line, orn::dump(view, label ? label : ""));
  } catch (const std::exception &) {
    // Without memory there is no dump; the work goes on.
  }
  errno = kept_errno;
}
