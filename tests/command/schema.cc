#include "tests/command/schema.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tests/command/command_test.h"

namespace command_test {
namespace {

using nlohmann::json;

const json &published() {
  static const json schema = json::parse(contents_of(VESK_SCHEMA));
  return schema;
}

bool has_type(const json &document, const std::string &type) {
  if (type == "null") return document.is_null();
  if (type == "boolean") return document.is_boolean();
  if (type == "integer") return document.is_number_integer();
  if (type == "string") return document.is_string();
  if (type == "array") return document.is_array();
  return type == "object" && document.is_object();
}

bool has_one_type(const json &document, const json &types) {
  if (types.is_string()) return has_type(document, types);
  return std::ranges::any_of(types, [&](const json &type) { return has_type(document, type); });
}

std::string fault_in(const json &schema, const json &document, const std::string &place);

std::string fault_in_object(const json &schema, const json &document, const std::string &place) {
  for (const json &member : schema.value("required", json::array())) {
    if (!document.contains(member)) return place + " lacks " + member.get<std::string>();
  }
  const json properties = schema.value("properties", json::object());
  const json others = schema.value("additionalProperties", json(true));
  for (const auto &[member, value] : document.items()) {
    const std::string below = place + "." + member;
    if (!properties.contains(member) && others == json(false)) return below + " is not in the schema";
    if (!properties.contains(member) && !others.is_object()) continue;
    const std::string fault = fault_in(properties.contains(member) ? properties.at(member) : others, value, below);
    if (!fault.empty()) return fault;
  }
  return {};
}

std::string fault_in_array(const json &schema, const json &document, const std::string &place) {
  if (!schema.contains("items")) return {};
  for (std::size_t i = 0; i < document.size(); ++i) {
    const std::string fault = fault_in(schema.at("items"), document.at(i), place + "[" + std::to_string(i) + "]");
    if (!fault.empty()) return fault;
  }
  return {};
}

// Knows the words that the published schema uses.
std::string fault_in(const json &schema, const json &document, const std::string &place) {
  if (schema.contains("$ref"))
    return fault_in(published().at(json::json_pointer(schema.at("$ref").get<std::string>().substr(1))), document,
                    place);
  if (schema.contains("const") && document != schema.at("const")) return place + " is " + document.dump();
  if (schema.contains("enum") && !std::ranges::count(schema.at("enum"), document))
    return place + " is " + document.dump();
  if (schema.contains("type") && !has_one_type(document, schema.at("type"))) return place + " is " + document.dump();
  if (document.is_object()) return fault_in_object(schema, document, place);
  if (document.is_array()) return fault_in_array(schema, document, place);
  return {};
}

}  // namespace

std::string schema_fault(const std::vector<std::string> &arguments, const json &document) {
  const json &commands = published().at("$defs");
  const std::string first = arguments.empty() ? "" : arguments[0];
  std::string words = arguments.size() < 2 || commands.contains(first) ? first : first + " " + arguments[1];
  if (std::ranges::count(arguments, "--from")) words += " --from";
  if (!commands.contains(words)) return "the schema has no command '" + words + "'";
  return fault_in(commands.at(words), document, words);
}

}  // namespace command_test
