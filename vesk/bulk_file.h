// Files that name many things at once: one name a line, CSV, or JSON.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace command {

struct BulkItem {
  std::string name;
  std::map<std::string, std::string> columns;  // the others, by their names in lower case; empty ones are left out
};

// By the end of the path: .csv with a line of columns, one of which is "name"; .json with an array of names and of
// objects; else a name a line. Names of lines and of CSV are in plain form, so that a list can be worked off. "-" is
// standard input. Refuses other columns than those, names that check refuses, and a name that is there twice.
std::vector<BulkItem> read_bulk_file(const std::string &path, const std::vector<std::string> &columns,
                                     void (*check)(const std::string &name));

// Turns escaped() back; refuses what escaped() does not write.
std::string unescaped(std::string_view text);

}  // namespace command
