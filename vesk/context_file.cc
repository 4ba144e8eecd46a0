#include "vesk/context_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <system_error>

#include "vesk/failure.h"
#include "vesk/input_file.h"
#include "vesk/secret_file.h"
#include "vesk/text.h"
#include "veskd/private_directories.h"

// Instantiated in the shared library, which saves most of the time that its header takes to compile.
#include <toml++/toml.h>

namespace command {
namespace {

constexpr std::size_t kMaxBytes = 1 << 20;

Failure malformed(const std::string &what) {
  return Failure(ExitCode::kOther, fmt::format("{}: {}", printable(context_file()), what),
                 "mend the file or put it away");
}

std::string text_of(const std::string &context, std::string_view member, const toml::node &node) {
  if (const std::optional<std::string> text = node.value_exact<std::string>()) return *text;
  if (const std::optional<std::int64_t> number = node.value_exact<std::int64_t>()) return std::to_string(*number);
  throw malformed(fmt::format("{} of context {} is neither a text nor a number", member, printable(context)));
}

Context context_of(const std::string &name, const toml::node &node) {
  const toml::table *table = node.as_table();
  if (!table) throw malformed(fmt::format("context {} is no table", printable(name)));
  Context context;
  for (const auto &[member, value] : *table)
    context.emplace(std::string(member.str()), text_of(name, member.str(), value));
  return context;
}

toml::table parsed(const std::string &text) {
  try {
    return toml::parse(text);
  } catch (const toml::parse_error &error) {
    throw malformed(fmt::format("line {}: {}", error.source().begin.line, error.description()));
  }
}

toml::table table_of(const Context &context) {
  toml::table table;
  for (const auto &[member, value] : context) table.insert(member, value);
  return table;
}

}  // namespace

std::string context_file() {
  const char *folder = std::getenv("XDG_CONFIG_HOME");
  // A relative one is to be ignored.
  if (folder && *folder == '/') return fmt::format("{}/vesk/contexts.toml", folder);
  const char *home = std::getenv("HOME");
  return home && *home ? fmt::format("{}/.config/vesk/contexts.toml", home) : std::string();
}

Contexts read_contexts() {
  const std::string path = context_file();
  Contexts contexts;
  std::error_code error;
  if (path.empty() || (!std::filesystem::exists(path, error) && !error)) return contexts;
  const toml::table file = parsed(read_text(path, kMaxBytes, "file of contexts"));
  contexts.current = file["current"].value_or(std::string());
  if (const toml::table *named = file["contexts"].as_table()) {
    for (const auto &[name, node] : *named)
      contexts.named.emplace(std::string(name.str()), context_of(std::string(name.str()), node));
  }
  return contexts;
}

ContextLock::ContextLock() {
  const std::string path = context_file();
  if (path.empty()) throw Failure(ExitCode::kOther, "there is no folder for contexts", "set HOME or XDG_CONFIG_HOME");
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  // What it says is said of the folder below, which cannot be opened then.
  static_cast<void>(veskd::make_private_directories(folder));
  folder_ = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder_ < 0 || flock(folder_, LOCK_EX) != 0) {
    const int reason = errno;
    if (folder_ >= 0) close(folder_);
    throw Failure(ExitCode::kOther, fmt::format("cannot use the folder {}: {}", printable(folder.string()),
                                                std::generic_category().message(reason)));
  }
}

ContextLock::~ContextLock() {
  close(folder_);
}

void write_contexts(const Contexts &contexts) {
  toml::table named;
  for (const auto &[name, context] : contexts.named) named.insert(name, table_of(context));
  toml::table file;
  if (!contexts.current.empty()) file.insert("current", contexts.current);
  file.insert("contexts", std::move(named));
  std::ostringstream text;
  text << "# The servers of vesk: vesk context --help\n" << file << "\n";
  write_secret_file(context_file(), text.str(), true);
}

}  // namespace command
