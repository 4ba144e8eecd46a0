#include "veskd/configuration_section.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <toml++/toml.h>

#include <algorithm>
#include <asio/ip/address.hpp>
#include <charconv>
#include <optional>

#include "veskd/configuration.h"
#include "veskd/files.h"

namespace veskd {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

std::string line_text(const fs::path &path, std::uint32_t line, std::string_view reason) {
  return fmt::format("{}:{}: {}", path.string(), line, reason);
}

std::uint32_t line_of(const toml::node &node) {
  return std::max<std::uint32_t>(node.source().begin.line, 1);
}

std::optional<milliseconds> parse_duration(std::string_view text) {
  constexpr std::pair<std::string_view, std::int64_t> kUnits[] = {
      {"ms", 1}, {"s", 1000}, {"m", 60000}, {"h", 3600000}, {"d", 86400000}};
  constexpr std::int64_t kMaxCount = 1000000000;
  std::int64_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || count < 0 || count > kMaxCount) return std::nullopt;
  const std::string_view unit = text.substr(static_cast<std::size_t>(end - text.data()));
  for (const auto &[name, length] : kUnits)
    if (unit == name) return milliseconds(count * length);
  return std::nullopt;
}

std::string duration_text(milliseconds duration) {
  return duration.count() % 1000 == 0 ? fmt::format("{}s", duration.count() / 1000)
                                      : fmt::format("{}ms", duration.count());
}

}  // namespace

std::string Section::full_name(std::string_view key) const {
  return name_.empty() ? std::string(key) : fmt::format("{}.{}", name_, key);
}

const toml::node *Section::find(std::string_view key) {
  known_.emplace(key);
  return table_ == nullptr ? nullptr : table_->get(key);
}

void Section::mistake(std::string_view key, std::string_view reason) {
  const toml::node *node = find(key);
  file_.note(node != nullptr ? line_of(*node) : line_of(*table_), fmt::format("{}: {}", full_name(key), reason));
}

void Section::require(std::string_view key) {
  if (table_ != nullptr && find(key) == nullptr) mistake(key, "is missing");
}

void Section::text(std::string_view key, std::string &value) {
  const toml::node *node = find(key);
  if (node == nullptr) return;
  if (!node->is_string()) return mistake(key, "must be a text in quotes");
  value = node->as_string()->get();
  if (value.empty()) mistake(key, "must not be empty");
}

void Section::texts(std::string_view key, std::vector<std::string> &values) {
  const toml::node *node = find(key);
  if (node == nullptr) return;
  const toml::array *array = node->as_array();
  if (array == nullptr || array->empty() || !array->is_homogeneous<std::string>())
    return mistake(key, "must be a list of texts in quotes, of one at least");
  for (const toml::node &element : *array) {
    values.push_back(element.as_string()->get());
    if (values.back().empty()) mistake(key, "must hold no empty text");
  }
}

void Section::flag(std::string_view key, bool &value) {
  const toml::node *node = find(key);
  if (node == nullptr) return;
  if (!node->is_boolean()) return mistake(key, "must be true or false");
  value = node->as_boolean()->get();
}

bool Section::read_number(std::string_view key, std::int64_t &value, std::int64_t least, std::int64_t greatest) {
  const toml::node *node = find(key);
  if (node == nullptr) return false;
  if (node->is_integer()) value = node->as_integer()->get();
  if (node->is_integer() && value >= least && value <= greatest) return true;
  mistake(key, fmt::format("must be a whole number from {} to {}", least, greatest));
  return false;
}

void Section::fraction(std::string_view key, double &value) {
  const toml::node *node = find(key);
  if (node == nullptr) return;
  const std::optional<double> number = node->is_number() ? node->value<double>() : std::nullopt;
  if (!number || !(*number >= 0 && *number <= 1)) return mistake(key, "must be a number from 0 to 1");
  value = *number;
}

void Section::duration(std::string_view key, milliseconds &value, milliseconds least, milliseconds greatest) {
  const toml::node *node = find(key);
  if (node == nullptr) return;
  const auto duration = node->is_string() ? parse_duration(node->as_string()->get()) : std::nullopt;
  if (!duration) return mistake(key, "must be a number and its unit in quotes, such as \"30s\": ms, s, m, h or d");
  if (*duration < least || *duration > greatest)
    return mistake(key, fmt::format("must be from {} to {}", duration_text(least), duration_text(greatest)));
  value = *duration;
}

int Section::read_choice(std::string_view key, const std::vector<std::string_view> &words) {
  const toml::node *node = find(key);
  if (node == nullptr) return -1;
  const auto found = std::find(words.begin(), words.end(), node->is_string() ? node->as_string()->get() : "");
  if (found != words.end()) return static_cast<int>(found - words.begin());
  mistake(key, fmt::format("must be one of \"{}\"", fmt::join(words, "\", \"")));
  return -1;
}

void Section::path(std::string_view key, fs::path &value) {
  std::string name;
  text(key, name);
  if (!name.empty()) value = (file_.base_ / name).lexically_normal();
}

void Section::directory(std::string_view key) {
  fs::path directory = file_.base_;
  path(key, directory);
  if (!fs::is_directory(directory)) return mistake(key, fmt::format("{} is no directory", directory.string()));
  file_.base_ = directory;
}

void Section::store(std::string_view key, StoreAddress &value) {
  std::string location;
  text(key, location);
  if (location.empty() || !check(key, [&] { value = StoreAddress(location); }) || value.is_shared()) return;
  value = (file_.base_ / location).lexically_normal();
}

bool Section::file(std::string_view key, fs::path &value) {
  path(key, value);
  return !value.empty() && check(key, [&] { read_file(value); });
}

bool Section::private_file(std::string_view key, fs::path &value) {
  return file(key, value) && check(key, [&] { require_private(value); });
}

Section Section::section(std::string_view key) {
  const toml::node *node = find(key);
  if (node != nullptr && !node->is_table()) mistake(key, "must be a table");
  return {file_, node != nullptr ? node->as_table() : nullptr, full_name(key)};
}

std::vector<Section> Section::sections(std::string_view key) {
  std::vector<Section> sections;
  const toml::node *node = find(key);
  if (node == nullptr) return sections;
  const toml::array *array = node->as_array();
  if (array == nullptr || !array->is_homogeneous<toml::table>()) {
    mistake(key, fmt::format("must be a list of tables, each under [[{}]]", full_name(key)));
    return sections;
  }
  for (const toml::node &element : *array) sections.push_back(Section(file_, element.as_table(), full_name(key)));
  return sections;
}

bool Section::check(std::string_view key, const std::function<void()> &action) {
  if (find(key) == nullptr) return false;
  try {
    action();
    return true;
  } catch (const StartError &error) {
    mistake(key, error.what());
    return false;
  }
}

void Section::end() {
  if (table_ == nullptr) return;
  for (const auto &[key, value] : *table_) {
    if (!known_.contains(key.str()))
      file_.note(key.source().begin.line, fmt::format("{}: there is no such key", full_name(key.str())));
  }
}

ConfigurationFile::ConfigurationFile(const fs::path &path)
    : path_(path), base_(fs::absolute(path).parent_path()), table_(std::make_unique<toml::table>()) {
  try {
    *table_ = toml::parse(read_file(path), path.string());
  } catch (const toml::parse_error &error) {
    throw ConfigurationError(line_text(path, error.source().begin.line, error.description()));
  }
}

ConfigurationFile::~ConfigurationFile() = default;

Section ConfigurationFile::root() {
  return {*this, table_.get(), ""};
}

void ConfigurationFile::throw_mistakes() const {
  if (mistakes_.empty()) return;
  auto mistakes = mistakes_;
  std::stable_sort(mistakes.begin(), mistakes.end(),
                   [](const auto &left, const auto &right) { return left.first < right.first; });
  std::string text;
  for (const auto &[line, reason] : mistakes) text += (text.empty() ? "" : "\n") + line_text(path_, line, reason);
  throw ConfigurationError(text);
}

void require_address(const std::string &text) {
  asio::error_code error;
  asio::ip::make_address(text, error);
  if (error) throw StartError(fmt::format("'{}' is no numeric address", text));
}

void require_directory_of(const fs::path &file) {
  if (!file.empty() && !fs::is_directory(file.parent_path()))
    throw StartError(fmt::format("{} is no directory", file.parent_path().string()));
}

}  // namespace veskd
