#include "vesk/bulk_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>

#include "vesk/failure.h"
#include "vesk/input_file.h"
#include "vesk/json_reader.h"
#include "vesk/text.h"

namespace command {
namespace {

constexpr std::size_t kMaxBytes = std::size_t{1} << 28;

Failure fault(std::size_t number, const std::string &what) {
  return Failure(ExitCode::kUsage, fmt::format("entry {}: {}", number, what), "nothing was sent");
}

std::string lower(std::string text) {
  for (char &character : text) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  }
  return text;
}

void put(BulkItem &item, const std::string &column, std::string value) {
  if (column == "name") {
    item.name = std::move(value);
  } else if (!value.empty()) {
    item.columns.emplace(column, std::move(value));
  }
}

// The next record of CSV, whose quoted fields may hold line ends; false at the end.
bool next_record(std::string_view &text, std::vector<std::string> &fields) {
  if (text.empty()) return false;
  fields.assign(1, {});
  bool is_quoted = false;
  std::size_t at = 0;
  for (; at < text.size() && (is_quoted || text[at] != '\n'); ++at) {
    const char character = text[at];
    if (character == '"' && is_quoted && at + 1 < text.size() && text[at + 1] == '"') {
      fields.back() += text[++at];
    } else if (character == '"') {
      is_quoted = !is_quoted;
    } else if (character == ',' && !is_quoted) {
      fields.emplace_back();
    } else if (character != '\r' || is_quoted) {
      fields.back() += character;
    }
  }
  text.remove_prefix(std::min(at + 1, text.size()));
  return true;
}

std::vector<BulkItem> items_of_csv(std::string_view text) {
  std::vector<BulkItem> items;
  std::vector<std::string> header;
  next_record(text, header);
  std::transform(header.begin(), header.end(), header.begin(), lower);
  if (std::find(header.begin(), header.end(), "name") == header.end())
    throw Failure(ExitCode::kUsage, "the first line of the file names no column 'name'", "for example: name,mirror");
  for (std::vector<std::string> fields; next_record(text, fields);) {
    if (fields.size() == 1 && fields.front().empty()) continue;
    if (fields.size() != header.size())
      throw fault(items.size() + 1, fmt::format("{} fields, but {} columns", fields.size(), header.size()));
    BulkItem &item = items.emplace_back();
    for (std::size_t i = 0; i < fields.size(); ++i) put(item, header[i], unescaped(fields[i]));
  }
  return items;
}

std::vector<BulkItem> items_of_json(std::string_view text) {
  const Json document = parse_json(text);
  if (!document.list()) throw Failure(ExitCode::kUsage, "the file holds no array of names or objects");
  std::vector<BulkItem> items;
  for (const Json &entry : *document.list()) {
    BulkItem &item = items.emplace_back();
    if (entry.text()) {
      item.name = *entry.text();
    } else if (entry.members()) {
      for (const auto &[member, value] : *entry.members())
        put(item, lower(member), value.is_null() ? std::string() : plain_text(value));
    } else {
      throw fault(items.size(), "neither a name nor an object");
    }
  }
  return items;
}

std::vector<BulkItem> items_of_lines(std::string_view text) {
  std::vector<BulkItem> items;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (!line.empty()) items.push_back({unescaped(line), {}});
  }
  return items;
}

void check_items(const std::vector<BulkItem> &items, const std::vector<std::string> &columns,
                 void (*check)(const std::string &)) {
  if (items.empty()) throw Failure(ExitCode::kUsage, "the file names nothing");
  std::set<std::string_view> seen;
  for (std::size_t i = 0; i < items.size(); ++i) {
    try {
      check(items[i].name);
    } catch (const Failure &failure) {
      throw fault(i + 1, failure.what());
    }
    if (!seen.insert(items[i].name).second)
      throw fault(i + 1, fmt::format("{} is there twice", printable(items[i].name)));
    for (const auto &[column, value] : items[i].columns) {
      if (std::find(columns.begin(), columns.end(), column) == columns.end())
        throw fault(i + 1, fmt::format("there is no column '{}'; name, {} are known", printable(column),
                                       fmt::join(columns, ", ")));
    }
  }
}

}  // namespace

std::vector<BulkItem> read_bulk_file(const std::string &path, const std::vector<std::string> &columns,
                                     void (*check)(const std::string &name)) {
  const std::string text = read_text(path, kMaxBytes, "file of names");
  std::vector<BulkItem> items = path.ends_with(".csv")    ? items_of_csv(text)
                                : path.ends_with(".json") ? items_of_json(text)
                                                          : items_of_lines(text);
  check_items(items, columns, check);
  return items;
}

std::string unescaped(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\') {
      result += text[at];
      continue;
    }
    const std::string_view rest = text.substr(at + 1);
    unsigned byte = 0;
    if (rest.starts_with('\\')) {
      result += '\\';
      at += 1;
    } else if (rest.size() >= 3 && rest[0] == 'x' &&
               std::from_chars(rest.data() + 1, rest.data() + 3, byte, 16).ptr == rest.data() + 3) {
      result += static_cast<char>(byte);
      at += 3;
    } else {
      throw Failure(ExitCode::kUsage, fmt::format("'{}' has a lone backslash", printable(text)),
                    "files of names are in plain form: \\\\ for a backslash, \\xNN for other bytes");
    }
  }
  return result;
}

}  // namespace command
