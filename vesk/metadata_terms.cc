#include "vesk/metadata_terms.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

#include "orn/vesk.h"
#include "vesk/failure.h"
#include "vesk/text.h"

namespace command {
namespace {

constexpr std::size_t kFieldWidth = sizeof(KeyMetadataValues::md[0]) - 1;
constexpr const char *kWhereHint =
    "for example: --where 'md2 eq \"text\"'; fields: md1 to md16; operators: eq ne ct gt lt ge le";

std::string upper(std::string_view text) {
  std::string result(text);
  for (char &c : result) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return result;
}

// Nothing for what names no field.
std::optional<std::size_t> index_of(std::string_view text) {
  if (upper(text.substr(0, 2)) == "MD") text.remove_prefix(2);
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 1 || number > kNumFields)
    return std::nullopt;
  return number - 1;
}

void check_value(std::size_t index, const std::string &text) {
  const std::string field = field_label(index);
  if (std::any_of(text.begin(), text.end(), [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; }))
    throw Failure(ExitCode::kUsage,
                  fmt::format("the text '{}' for {} holds a control character", printable(text), field));
  if (text.size() > kFieldWidth)
    throw Failure(ExitCode::kUsage, fmt::format("the text for {} is {} bytes long; at most {} are allowed", field,
                                                text.size(), kFieldWidth));
}

Failure given_twice(std::size_t index, const std::string &hint) {
  return Failure(ExitCode::kUsage, fmt::format("{} is given twice", field_label(index)), hint);
}

// Takes the next word off the text.
std::string_view take_word(std::string_view &text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(word.size());
  return word;
}

// Nothing for what is no operator.
std::optional<int> operator_of(std::string_view word) {
  const std::string name = upper(word);
  for (int op = 1; op < static_cast<int>(std::size(opLut)); ++op) {
    if (name == opLut[op]) return op;
  }
  return std::nullopt;
}

// What stands between the first and the last quote, or text without blanks and quotes around it. Nothing when a quote
// is missing.
std::optional<std::string> value_of(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  text = text.substr(0, text.find_last_not_of(' ') + 1);
  if (text.empty()) return std::nullopt;
  // Quotes that were meant to be none of the text would find nothing, without a word.
  if (text.size() > 1 && text.front() == '\'' && text.back() == '\'')
    throw Failure(ExitCode::kUsage, fmt::format("the text {} of --where stands in single quotes", printable(text)),
                  "put it in double quotes, with the single ones inside if they belong to it");
  if (text.front() != '"') return std::string(text);
  if (text.size() < 2 || text.back() != '"') return std::nullopt;
  return std::string(text.substr(1, text.size() - 2));
}

FieldValue parse_field_value(const std::string &text) {
  const std::size_t equals = text.find('=');
  const auto index = equals == std::string::npos ? std::nullopt : index_of(std::string_view(text).substr(0, equals));
  if (!index)
    throw Failure(ExitCode::kUsage,
                  fmt::format("--md {} is not N=TEXT with N from 1 to {}", printable(text), kNumFields),
                  "for example: --md 1=tape --md \"2=shelf 14\"");
  FieldValue field{*index, text.substr(equals + 1)};
  check_value(field.index, field.text);
  return field;
}

}  // namespace

std::string field_label(std::size_t index) {
  return fmt::format("MD{:02}", index + 1);
}

std::vector<FieldValue> parse_field_values(const std::vector<std::string> &texts) {
  std::vector<FieldValue> fields;
  for (const std::string &text : texts) {
    FieldValue field = parse_field_value(text);
    if (std::any_of(fields.begin(), fields.end(), [&](const FieldValue &other) { return other.index == field.index; }))
      throw given_twice(field.index, "give each field once");
    fields.push_back(std::move(field));
  }
  return fields;
}

Criteria parse_criteria(const std::vector<std::string> &texts) {
  Criteria criteria;
  for (const std::string &text : texts) {
    std::string_view rest = text;
    const auto index = index_of(take_word(rest));
    const auto op = operator_of(take_word(rest));
    const auto value = value_of(rest);
    if (!index || !op || !value)
      throw Failure(ExitCode::kUsage, fmt::format("--where {} is not a field, an operator and a text", printable(text)),
                    kWhereHint);
    check_value(*index, *value);
    if (criteria[*index].op != 0) throw given_twice(*index, "a query has one criterion for a field at most");
    criteria[*index] = {*value, *op};
  }
  return criteria;
}

}  // namespace command
