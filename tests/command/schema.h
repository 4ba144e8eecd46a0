// Checks documents of the command against the schema that is published with it.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace command_test {

// What is wrong with the document that the command with these arguments has written; empty when it is as published.
std::string schema_fault(const std::vector<std::string> &arguments, const nlohmann::json &document);

}  // namespace command_test
