#include "vesk/list_output.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <memory>
#include <utility>

#include "vesk/failure.h"
#include "vesk/text.h"

namespace command {
namespace {

constexpr std::size_t kWriteAtOnce = 65536;
constexpr std::uint32_t kNoLimit = std::numeric_limits<std::uint32_t>::max();

std::string name_of(const Json &entry) {
  return field_text(entry.members() ? entry.members()->front().second : entry);
}

}  // namespace

void add_list_options(Command &command, ListOptions &options) {
  command.option("--limit", &options.limit, "N", Kind::kNumber, "show the first N and count the others");
  command.flag("--null", options.null_terminated, "with --output plain: names as they are, each followed by a NUL");
}

void add_list_options_of(Command &command, const Settings &settings,
                         void (*list)(const Settings &, const ListOptions &)) {
  const auto options = std::make_shared<ListOptions>();
  add_list_options(command, *options);
  command.run = [&settings, options, list] { list(settings, *options); };
}

ListOutput::ListOutput(const Settings &settings, const ListOptions &options, const char *member,
                       std::vector<std::string> columns)
    : settings_(settings),
      member_(member),
      columns_(std::move(columns)),
      null_terminated_(options.null_terminated),
      limit_(options.limit ? parse_number("limit", *options.limit, 1, kNoLimit) : kNoLimit) {
  if (null_terminated_ && settings.form() != Form::kPlain)
    throw Failure(ExitCode::kUsage, "--null is for --output plain", "add --output plain");
}

void ListOutput::add(const Json &entry, std::string_view table) {
  ++num_told_;
  if (num_shown_ == limit_) return;
  begin();
  put_entry(entry, table);
  ++num_shown_;
}

void ListOutput::add_name(const std::string &name) {
  add(name, printable(name));
}

void ListOutput::put_entry(const Json &entry, std::string_view table) {
  switch (settings_.form()) {
    case Form::kTable:
      put(table);
      put("\n");
      break;
    case Form::kJson:
      put(num_shown_ == 0 ? "\n    " : ",\n    ");
      put(json_text(entry));
      break;
    case Form::kPlain:
      put(null_terminated_ ? name_of(entry) + '\0' : escaped(name_of(entry)) + '\n');
      break;
    case Form::kCsv:
      put_csv_entry(entry);
      break;
  }
}

void ListOutput::put_csv_entry(const Json &entry) {
  std::vector<std::string> values(columns_.size());
  if (!entry.members()) values.front() = name_of(entry);
  if (entry.members()) {
    for (const auto &[member, value] : flattened(*entry.members())) {
      const auto column = std::find(columns_.begin(), columns_.end(), member);
      if (column != columns_.end()) values[static_cast<std::size_t>(column - columns_.begin())] = field_text(*value);
    }
  }
  put(csv_line(values));
}

void ListOutput::end(std::string_view footer, const Members &members) {
  begin();
  if (settings_.form() == Form::kJson) {
    Members all = {{"count", num_told_}, {"complete", is_complete()}};
    all.insert(all.end(), members.begin(), members.end());
    end_document(all);
  } else if (settings_.form() == Form::kTable && !footer.empty()) {
    put(footer);
    put("\n");
  }
  flush();
  if (!is_complete()) fmt::print(stderr, "note: --limit shows the first {} of {}\n", num_shown_, num_told_);
}

void ListOutput::abandon() {
  if (settings_.form() == Form::kJson && has_begun_) end_document({{"complete", false}});
  flush();
}

void ListOutput::begin() {
  if (std::exchange(has_begun_, true)) return;
  if (settings_.form() == Form::kJson) put(fmt::format("{{\n  \"schema\": \"{}\",\n  \"{}\": [", kSchema, member_));
  if (settings_.form() == Form::kCsv) put(csv_line(columns_));
}

void ListOutput::end_document(const Members &members) {
  put(num_shown_ == 0 ? "]" : "\n  ]");
  for (const auto &[member, value] : members) put(fmt::format(",\n  \"{}\": {}", member, json_text(value)));
  put("\n}\n");
}

void ListOutput::put(std::string_view bytes) {
  waiting_ += bytes;
  if (waiting_.size() >= kWriteAtOnce) flush();
}

void ListOutput::flush() {
  write_standard_output(waiting_);
  waiting_.clear();
}

}  // namespace command
