#include "veskd/metadata_query.h"

#include <algorithm>
#include <array>

#include "orn/vesk/wire/codec.h"
#include "orn/vesk/wire/key_metadata.h"
#include "veskd/fields.h"
#include "veskd/metadata_records.h"

namespace veskd {
namespace {

using vesk::wire::kMetadataLabels;

struct Operator {
  std::string_view name;
  bool (*holds)(std::string_view field, std::string_view value);
};

// Texts are compared byte by byte, without their trailing blanks. That is the order of the blank-padded texts, because
// no character sorts before the blank.
constexpr std::array kOperators = {
    Operator{"EQ", [](std::string_view field, std::string_view value) { return field == value; }},
    Operator{"NE", [](std::string_view field, std::string_view value) { return field != value; }},
    Operator{"CT", [](std::string_view field,
                      std::string_view value) { return field.find(value) != std::string_view::npos; }},
    Operator{"GT", [](std::string_view field, std::string_view value) { return field > value; }},
    Operator{"LT", [](std::string_view field, std::string_view value) { return field < value; }},
    Operator{"GE", [](std::string_view field, std::string_view value) { return field >= value; }},
    Operator{"LE", [](std::string_view field, std::string_view value) { return field <= value; }},
};

// The parts of a criterion: "MD01", blank, "EQ", blank, quote, value, quote.
constexpr std::size_t kOperatorOffset = 5;
constexpr std::size_t kValueOffset = 9;
constexpr std::size_t kCriterionLength = vesk::wire::kCriterionBytes - 1;
static_assert(kValueOffset + vesk::wire::kMetadataBytes + 1 == kCriterionLength);

}  // namespace

std::optional<MetadataQuery> MetadataQuery::parse(std::string_view text) {
  MetadataQuery query;
  while (!text.empty()) {
    if (!query.criteria_.empty()) {
      if (text.front() != ' ') return std::nullopt;
      text.remove_prefix(1);
    }
    if (text.size() < kCriterionLength) return std::nullopt;
    std::optional<Criterion> criterion = parse_criterion(text.substr(0, kCriterionLength));
    if (!criterion) return std::nullopt;
    if (!query.criteria_.empty() && criterion->field <= query.criteria_.back().field) return std::nullopt;
    query.criteria_.push_back(std::move(*criterion));
    text.remove_prefix(kCriterionLength);
  }
  return query;
}

std::optional<MetadataQuery::Criterion> MetadataQuery::parse_criterion(std::string_view text) {
  const auto label = std::find(kMetadataLabels.begin(), kMetadataLabels.end(), text.substr(0, 4));
  const auto op = std::find_if(kOperators.begin(), kOperators.end(),
                               [&](const Operator &known) { return known.name == text.substr(kOperatorOffset, 2); });
  const bool is_delimited = text[kOperatorOffset - 1] == ' ' && text.substr(kValueOffset - 2, 2) == " '" &&
                            text[kCriterionLength - 1] == '\'';
  const std::string_view value = text.substr(kValueOffset, vesk::wire::kMetadataBytes);
  if (label == kMetadataLabels.end() || op == kOperators.end() || !is_delimited || !vesk::wire::is_printable(value))
    return std::nullopt;
  return Criterion{static_cast<std::size_t>(label - kMetadataLabels.begin()), op->holds,
                   std::string(without_trailing_blanks(value))};
}

bool MetadataQuery::is_met_by(std::string_view metadata) const {
  return std::all_of(criteria_.begin(), criteria_.end(), [&](const Criterion &criterion) {
    return criterion.holds(metadata_field(metadata, criterion.field), criterion.value);
  });
}

}  // namespace veskd
