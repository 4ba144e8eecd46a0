// Values and documents in JSON. Texts are bytes: those that are no UTF-8 are taken care of when they are written.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace command {

class Json {
 public:
  using List = std::vector<Json>;
  using Members = std::vector<std::pair<std::string, Json>>;
  using Content = std::variant<std::monostate, bool, std::int64_t, std::string, List, Members>;

  Json() = default;  // null
  Json(std::same_as<bool> auto value) : content_(value) {}
  template <std::integral Integer>
  requires(!std::same_as<Integer, bool>) Json(Integer value) : content_(static_cast<std::int64_t>(value)) {}
  Json(std::string text) : content_(std::move(text)) {}
  Json(std::string_view text) : content_(std::string(text)) {}
  Json(const char *text) : content_(std::string(text)) {}
  Json(List list) : content_(std::move(list)) {}
  Json(const std::vector<std::string> &texts) : content_(List(texts.begin(), texts.end())) {}
  Json(Members members) : content_(std::move(members)) {}

  const Content &content() const { return content_; }
  bool is_null() const { return std::holds_alternative<std::monostate>(content_); }
  const std::string *text() const { return std::get_if<std::string>(&content_); }
  const List *list() const { return std::get_if<List>(&content_); }
  const Members *members() const { return std::get_if<Members>(&content_); }

 private:
  Content content_;
};

using Members = Json::Members;

// Null for empty text.
Json text_or_null(std::string text);

// In ASCII, on one line, or on several with that indent. JSON is Unicode: what is no UTF-8 is replaced, and in an
// object the bytes are in base64 under the same member of a further object "base64".
std::string json_text(const Json &json, int indent = -1);

// A value as a person reads it: texts as they are, null as "none", lists with commas.
std::string plain_text(const Json &json);

// The members in their order, those of members as in "metadata.MD01".
std::vector<std::pair<std::string, const Json *>> flattened(const Members &members);

}  // namespace command
