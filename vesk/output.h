// Results on standard output.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "vesk/settings.h"

namespace command {

// Writes all of it to standard output, or fails: a full disk is a Failure, a reader that went away is ReaderGone.
void write_standard_output(std::string_view bytes);

using Json = nlohmann::ordered_json;

// One line of a table and one member of a JSON document. A null value is "none" in the table.
struct Fact {
  const char *label;
  const char *member;
  Json value;
};

void show_facts(const Settings &settings, const std::vector<Fact> &facts);

// What was done: the sentence, or the document in its place.
void show(const Settings &settings, std::string_view sentence, const Json &document);

// Null for empty text.
Json text_or_null(std::string text);

// Whether standard error is a terminal that understands more than plain lines.
bool fancy_standard_error();

// Whether standard error may be coloured: NO_COLOR and TERM=dumb switch colours off.
bool coloured_standard_error();

}  // namespace command
