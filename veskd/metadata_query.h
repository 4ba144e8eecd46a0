// A metadata query: criteria that a key's metadata fields meet, all of them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veskd {

class MetadataQuery {
 public:
  // From what follows the transaction identifier: criteria "MD01 EQ 'value'", the value at its full width, a blank
  // between two, fields in ascending order. No criteria are met by every key. Nothing for any other form, as that of a
  // criterion which lost its closing quote because its value was too long.
  static std::optional<MetadataQuery> parse(std::string_view text);

  // metadata is what the store keeps of a key's fields.
  bool is_met_by(std::string_view metadata) const;

 private:
  struct Criterion {
    std::size_t field;
    bool (*holds)(std::string_view field, std::string_view value);
    std::string value;
  };
  static std::optional<Criterion> parse_criterion(std::string_view text);

  std::vector<Criterion> criteria_;
};

}  // namespace veskd
