#include "vesk/list_output.h"

#include <fmt/format.h>
#include <openssl/evp.h>

#include <CLI/CLI.hpp>

#include "vesk/failure.h"

namespace command {
namespace {

constexpr std::size_t kWriteAtOnce = 65536;

std::string dumped(const Json &value) {
  return value.dump(-1, ' ', true, Json::error_handler_t::replace);
}

bool is_utf8(std::string_view text) {
  try {
    Json(text).dump();
    return true;
  } catch (const Json::type_error &) {
    return false;
  }
}

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char *>(text.data()),
                      reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

}  // namespace

void add_null(CLI::App &command, bool &null_terminated) {
  command.add_flag("--null", null_terminated, "with --output plain: names as they are, each followed by a NUL");
}

void check_null(const Settings &settings, bool null_terminated) {
  if (null_terminated && !settings.plain())
    throw Failure(ExitCode::kUsage, "--null is for --output plain", "add --output plain");
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const unsigned char byte : text) {
    if (byte == '\\') {
      result += "\\\\";
    } else if (byte < 0x20 || byte > 0x7e) {
      result += fmt::format("\\x{:02x}", byte);
    } else {
      result += static_cast<char>(byte);
    }
  }
  return result;
}

void put_text(Json &object, const std::string &member, std::string_view text) {
  object[member] = text;
  if (!is_utf8(text)) object["base64"][member] = base64(text);
}

void ListOutput::add(std::string_view name, std::string_view table, const Json &object) {
  if (settings_.json()) {
    if (num_added_ == 0) begin_document();
    put(num_added_ == 0 ? "\n    " : ",\n    ");
    put(dumped(object));
  } else if (!settings_.plain()) {
    put(table);
    put("\n");
  } else if (null_terminated_) {
    put(name);
    put(std::string_view("\0", 1));
  } else {
    put(escaped(name));
    put("\n");
  }
  ++num_added_;
}

void ListOutput::end(std::string_view footer, const Json &members) {
  if (settings_.json()) {
    if (num_added_ == 0) begin_document();
    end_document(members);
  } else if (!settings_.plain()) {
    put(footer);
    put("\n");
  }
  flush();
}

void ListOutput::abandon() {
  if (settings_.json() && num_added_ > 0) end_document({{"complete", false}});
  flush();
}

void ListOutput::begin_document() {
  put("{\n  \"keys\": [");
}

void ListOutput::end_document(const Json &members) {
  put(num_added_ == 0 ? "]" : "\n  ]");
  for (const auto &[member, value] : members.items()) put(fmt::format(",\n  {}: {}", dumped(member), dumped(value)));
  put("\n}\n");
}

void ListOutput::put(std::string_view bytes) {
  waiting_ += bytes;
  if (waiting_.size() >= kWriteAtOnce) flush();
}

void ListOutput::flush() {
  write_standard_output(waiting_);
  waiting_.clear();
}

}  // namespace command
