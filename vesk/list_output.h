// A list on standard output: written entry by entry as it arrives, in the form that was asked for, never held whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vesk/options.h"
#include "vesk/output.h"
#include "vesk/settings.h"

namespace command {

// What every list can be asked for.
struct ListOptions {
  std::optional<std::string> limit;
  bool null_terminated = false;
};

void add_list_options(Command &command, ListOptions &options);

// Of a command that can be asked for nothing else.
void add_list_options_of(Command &command, const Settings &settings,
                         void (*list)(const Settings &, const ListOptions &));

class ListOutput {
 public:
  // Refuses options without sense. member is that of the list in a document; columns are those of CSV, the first of
  // which is what plain form shows.
  ListOutput(const Settings &settings, const ListOptions &options, const char *member,
             std::vector<std::string> columns);

  // An entry is a name, or the members that tell of one. table is what a table shows of it. Beyond the limit entries
  // are counted, not shown.
  void add(const Json &entry, std::string_view table);
  void add_name(const std::string &name);

  std::size_t num_told() const { return num_told_; }
  std::size_t num_shown() const { return num_shown_; }
  bool is_complete() const { return num_shown_ == num_told_; }

  // The end of the list: the footer of a table if there is one, and the members of a document behind what every list
  // tells: the number of entries and whether all are shown. Says on standard error when they are not.
  void end(std::string_view footer = {}, const Members &members = {});

  // Writes what was added so far. Otherwise it is written when there is much of it, and at the end.
  void flush();

  // The end of a list that failed: what was added is shown, and a document that was begun says that it is not complete.
  void abandon();

 private:
  void put(std::string_view bytes);
  void put_entry(const Json &entry, std::string_view table);
  void put_csv_entry(const Json &entry);
  void begin();
  void end_document(const Members &members);

  const Settings &settings_;
  const char *member_;
  const std::vector<std::string> columns_;
  const bool null_terminated_;
  std::uint32_t limit_;
  std::string waiting_;
  std::size_t num_told_ = 0;
  std::size_t num_shown_ = 0;
  bool has_begun_ = false;
};

}  // namespace command
