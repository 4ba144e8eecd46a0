#include "vesk/record_view.h"

#include <fmt/format.h>

#include <cctype>

#include "orn/vesk/wire/key_metadata.h"
#include "orn/vesk/wire/text.h"
#include "vesk/text.h"

namespace command {

namespace wire = vesk::wire;

bool are_digits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

std::string bytes_text(std::size_t count) {
  return fmt::format("{} byte{}", count, count == 1 ? "" : "s");
}

View view_of(const Stream &stream) {
  return {stream.bytes.text(), stream.mask};
}

std::string title_of(std::string_view name) {
  if (name.starts_with("ca")) name.remove_prefix(2);
  const auto is_upper = [&](std::size_t i) { return std::isupper(static_cast<unsigned char>(name[i])) != 0; };
  const auto is_lower = [&](std::size_t i) { return std::islower(static_cast<unsigned char>(name[i])) != 0; };
  std::string title;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const bool begins_word =
        i > 0 && is_upper(i) && (is_lower(i - 1) || (is_upper(i - 1) && i + 1 < name.size() && is_lower(i + 1)));
    if (begins_word) title += ' ';
    title += name[i];
  }
  return title;
}

std::string title_of(const Field &field) {
  if (!field.name.empty()) return title_of(field.name);
  return field.kind == wire::RowKind::kLiteral ? "Fixed Text" : "Unused";
}

std::optional<Fault> fault_in_text(std::string_view text, std::size_t offset) {
  const auto *const found =
      std::find_if(text.begin(), text.end(), [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; });
  if (found == text.end()) return std::nullopt;
  const auto place = static_cast<std::size_t>(found - text.begin());
  if (*found == '\0')
    return Fault{offset + place, fmt::format("a NUL, which ends the text; {} of the field follow",
                                             bytes_text(text.size() - place - 1))};
  return Fault{offset + place, fmt::format("the control character 0x{:02x}", static_cast<unsigned char>(*found))};
}

std::optional<Fault> fault_in_literal(std::string_view text, std::size_t offset, std::string_view literal) {
  const auto [found, expected] = std::mismatch(text.begin(), text.end(), literal.begin(), literal.end());
  if (found == text.end()) return std::nullopt;
  return Fault{offset + static_cast<std::size_t>(found - text.begin()),
               fmt::format("should be '{}'", trimmed(literal))};
}

bool is_criterion(std::string_view text) {
  const auto &labels = wire::kMetadataLabels;
  return text.size() == wire::kCriterionBytes - 1 &&
         std::find(labels.begin(), labels.end(), text.substr(0, 4)) != labels.end() && text[4] == ' ' &&
         text.substr(7, 2) == " '" && text.ends_with('\'');
}

std::string_view Record::text(Fields fields, std::string_view name) const {
  const auto field = std::find_if(fields.begin(), fields.end(), [&](const Field &known) { return known.name == name; });
  return field == fields.end() ? std::string_view() : view.from(field->offset, field->width).bytes;
}

Record record_at(View stream) {
  const int length = wire::to_int(stream.bytes.substr(0, wire::kLengthDigits));
  const std::size_t declared = wire::kLengthDigits + static_cast<std::size_t>(std::max(length, 0));
  return {stream.from(0, declared), declared};
}

}  // namespace command
