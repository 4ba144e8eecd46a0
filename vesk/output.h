// Results on standard output, in the form that was asked for.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "vesk/json.h"
#include "vesk/settings.h"

namespace command {

// The version of all documents in JSON, which their first member tells. docs/schema describes it.
inline constexpr const char *kSchema = "vesk/1";

// Writes all of it to standard output, or fails: a full disk is a Failure, a reader that went away is ReaderGone.
void write_standard_output(std::string_view bytes);

// What a monitor makes of a fact; a table on a terminal is coloured by it.
enum class Health { kPlain, kGood, kUnknown, kFault };

// One line of a table and one member of a document. A null value is "none" in the table.
struct Fact {
  const char *label;
  const char *member;
  Json value;
  Health health = Health::kPlain;
  std::string note = {};  // what the table says behind the value
};

void show_facts(const Settings &settings, const std::vector<Fact> &facts);

// What was done: the sentence in a table, the document in every other form.
void show(const Settings &settings, std::string_view sentence, const Members &document);

// In the colour of its health when standard output is coloured.
std::string painted(std::string_view text, Health health);

// A document in any form but a table: with its schema in JSON; its values alone, one a line, in plain form; a line of
// members and a line of values in CSV.
void show_document(const Settings &settings, const Members &document);

// On a line of its own and unharmed: control characters, a DEL and bytes above ASCII as \xNN, a backslash doubled.
std::string escaped(std::string_view text);

// A line of CSV. Texts are escaped, and quoted where they have to be.
std::string csv_line(const std::vector<std::string> &values);

// A value in plain form and in CSV, where null is empty.
std::string field_text(const Json &value);

// Whether standard error is a terminal that understands more than plain lines.
bool fancy_standard_error();

// Whether standard error may be coloured: NO_COLOR and TERM=dumb switch colours off.
bool coloured_standard_error();

}  // namespace command
