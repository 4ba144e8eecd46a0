#include "vesk/json.h"

#include <openssl/evp.h>

#include <nlohmann/json.hpp>

namespace command {
namespace {

using Document = nlohmann::ordered_json;

template <typename... Visitors>
struct Visitor : Visitors... {
  using Visitors::operator()...;
};
template <typename... Visitors>
Visitor(Visitors...) -> Visitor<Visitors...>;

bool is_utf8(const std::string &text) {
  try {
    Document(text).dump();
    return true;
  } catch (const Document::type_error &) {
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

Document document_of(const Json &json) {
  return std::visit(Visitor{[](std::monostate) { return Document(); },
                            [](const Json::List &list) {
                              Document array = Document::array();
                              for (const Json &element : list) array.push_back(document_of(element));
                              return array;
                            },
                            [](const Members &members) {
                              Document object = Document::object();
                              for (const auto &[member, value] : members) {
                                object[member] = document_of(value);
                                const std::string *text = value.text();
                                if (text && !is_utf8(*text)) object["base64"][member] = base64(*text);
                              }
                              return object;
                            },
                            [](const auto &simple) { return Document(simple); }},
                    json.content());
}

void flatten(const std::string &prefix, const Members &members,
             std::vector<std::pair<std::string, const Json *>> &result) {
  for (const auto &[member, value] : members) {
    if (value.members()) {
      flatten(prefix + member + ".", *value.members(), result);
    } else {
      result.emplace_back(prefix + member, &value);
    }
  }
}

}  // namespace

Json text_or_null(std::string text) {
  if (text.empty()) return {};
  return text;
}

std::string json_text(const Json &json, int indent) {
  return document_of(json).dump(indent, ' ', true, Document::error_handler_t::replace);
}

std::string plain_text(const Json &json) {
  return std::visit(
      Visitor{[](std::monostate) { return std::string("none"); },
              [](bool value) { return std::string(value ? "true" : "false"); },
              [](std::int64_t value) { return std::to_string(value); }, [](const std::string &text) { return text; },
              [](const Json::List &list) {
                std::string text;
                for (const Json &element : list) text += (text.empty() ? "" : ", ") + plain_text(element);
                return text;
              },
              [](const Members &members) { return json_text(members); }},
      json.content());
}

std::vector<std::pair<std::string, const Json *>> flattened(const Members &members) {
  std::vector<std::pair<std::string, const Json *>> result;
  flatten({}, members, result);
  return result;
}

}  // namespace command
