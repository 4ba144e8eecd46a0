#include "vesk/json_reader.h"

#include <fmt/format.h>

#include <limits>
#include <nlohmann/json.hpp>

#include "vesk/failure.h"

namespace command {
namespace {

using Document = nlohmann::ordered_json;

// Deeper than anything that this command reads, and nothing to the stack.
constexpr int kMaxDepth = 16;

bool is_number(const Document &document) {
  if (!document.is_number_unsigned()) return document.is_number_integer();
  return document.get<std::uint64_t>() <= std::uint64_t{std::numeric_limits<std::int64_t>::max()};
}

// A number that is no integer of 64 bits stays a text.
Json json_of(const Document &document) {
  if (document.is_boolean()) return document.get<bool>();
  if (is_number(document)) return document.get<std::int64_t>();
  if (document.is_string()) return document.get<std::string>();
  if (document.is_null()) return {};
  if (document.is_array()) {
    Json::List list;
    for (const Document &element : document) list.push_back(json_of(element));
    return list;
  }
  if (!document.is_object()) return document.dump();
  Members members;
  for (const auto &[member, value] : document.items()) members.emplace_back(member, json_of(value));
  return members;
}

}  // namespace

Json parse_json(std::string_view text) {
  bool is_too_deep = false;
  const auto within_depth = [&](int depth, Document::parse_event_t, const Document &) {
    is_too_deep |= depth > kMaxDepth;
    return depth <= kMaxDepth;
  };
  const Document document = Document::parse(text, within_depth, false);
  if (is_too_deep) throw Failure(ExitCode::kUsage, fmt::format("the JSON is more than {} levels deep", kMaxDepth));
  if (document.is_discarded()) throw Failure(ExitCode::kUsage, "the file holds no JSON");
  return json_of(document);
}

}  // namespace command
