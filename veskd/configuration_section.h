// A table of the configuration file, read key by key. A key that is not there leaves its value as it is; what is wrong
// is noted with its line, and reading goes on, so that one look at the file finds every mistake.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "veskd/store_address.h"

namespace toml {
inline namespace v3 {
class node;
class table;
}  // namespace v3
}  // namespace toml

namespace veskd {

class ConfigurationFile;

class Section {
 public:
  bool is_there() const { return table_ != nullptr; }

  // Notes the key as missing when it is.
  void require(std::string_view key);

  void text(std::string_view key, std::string &value);
  void texts(std::string_view key, std::vector<std::string> &values);
  void flag(std::string_view key, bool &value);
  template <typename Number>
  void number(std::string_view key, Number &value, std::int64_t least, std::int64_t greatest) {
    std::int64_t read = 0;
    if (read_number(key, read, least, greatest)) value = static_cast<Number>(read);
  }
  // From 0 to 1.
  void fraction(std::string_view key, double &value);
  // A number and its unit: ms, s, m, h or d.
  void duration(std::string_view key, std::chrono::milliseconds &value, std::chrono::milliseconds least,
                std::chrono::milliseconds greatest);
  template <typename Value>
  void choice(std::string_view key, Value &value, std::initializer_list<std::pair<std::string_view, Value>> choices) {
    std::vector<std::string_view> words;
    for (const auto &[word, meaning] : choices) words.push_back(word);
    if (const int chosen = read_choice(key, words); chosen >= 0) value = (choices.begin() + chosen)->second;
  }

  // Paths that are not absolute are taken from the file's directory, or the one that directory() read.
  void path(std::string_view key, std::filesystem::path &value);
  void directory(std::string_view key);
  // A path, or the URI of a database.
  void store(std::string_view key, StoreAddress &value);
  // The same, for files that must be there, and readable, and of which the second is its owner's alone. True when it
  // is.
  bool file(std::string_view key, std::filesystem::path &value);
  bool private_file(std::string_view key, std::filesystem::path &value);

  Section section(std::string_view key);
  // The tables of an array.
  std::vector<Section> sections(std::string_view key);

  // Notes the StartError of an action at a key that is there.
  bool check(std::string_view key, const std::function<void()> &action);
  void mistake(std::string_view key, std::string_view reason);

  // Notes every key that was not asked for.
  void end();

 private:
  friend class ConfigurationFile;
  Section(ConfigurationFile &file, const toml::table *table, std::string name)
      : file_(file), table_(table), name_(std::move(name)) {}

  const toml::node *find(std::string_view key);
  bool read_number(std::string_view key, std::int64_t &value, std::int64_t least, std::int64_t greatest);
  int read_choice(std::string_view key, const std::vector<std::string_view> &words);
  std::string full_name(std::string_view key) const;

  ConfigurationFile &file_;
  const toml::table *table_;  // null when it is not there
  std::string name_;
  std::set<std::string, std::less<>> known_;
};

class ConfigurationFile {
 public:
  // Throws ConfigurationError when the file cannot be read or is no TOML.
  explicit ConfigurationFile(const std::filesystem::path &path);
  ~ConfigurationFile();
  ConfigurationFile(const ConfigurationFile &) = delete;
  ConfigurationFile &operator=(const ConfigurationFile &) = delete;

  Section root();

  // Throws ConfigurationError with all the mistakes, in the order of their lines, if there are any.
  void throw_mistakes() const;

 private:
  friend class Section;
  void note(std::uint32_t line, std::string reason) { mistakes_.emplace_back(line, std::move(reason)); }

  const std::filesystem::path path_;
  std::filesystem::path base_;  // what relative paths are taken from
  std::unique_ptr<toml::table> table_;
  std::vector<std::pair<std::uint32_t, std::string>> mistakes_;
};

// What check() takes; each throws StartError.
void require_address(const std::string &text);
void require_directory_of(const std::filesystem::path &file);

}  // namespace veskd
