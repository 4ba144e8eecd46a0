// vesk key: list
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <limits>
#include <memory>
#include <optional>

#include "vesk/connection.h"
#include "vesk/failure.h"
#include "vesk/key_commands.h"
#include "vesk/list_output.h"
#include "vesk/name_stream.h"
#include "vesk/text.h"

namespace command {
namespace {

// What the library gives when no name was told.
constexpr std::uint32_t kNoSequence = 0xFFFFFF;

constexpr std::size_t kMaxPrefixBytes = 40;

struct ListOptions {
  std::string prefix;
  std::optional<std::string> limit;
  bool null_terminated = false;
};

// How the list came out.
struct Count {
  std::size_t told = 0;
  std::size_t shown = 0;
  std::uint32_t highest_sequence = kNoSequence;

  bool has_sequence() const { return told > 0; }
  bool is_complete() const { return shown == told; }
};

// Unlike a name, a prefix may end in a blank.
void check_prefix(const std::string &prefix) {
  const std::string text = trimmed(prefix);
  if (!text.empty()) check_key_name(text);
  if (prefix.size() > kMaxPrefixBytes)
    throw Failure(ExitCode::kUsage,
                  fmt::format("the prefix has {} bytes; a key name has at most {}", prefix.size(), kMaxPrefixBytes));
}

std::string sentence(const Count &count) {
  const std::string shown =
      count.is_complete() ? fmt::format("{}", count.told) : fmt::format("{} of {}", count.shown, count.told);
  return fmt::format("{} {}{}, highest sequence {}", shown, count.told == 1 ? "key" : "keys",
                     count.is_complete() ? "" : " shown",
                     count.has_sequence() ? increment_text(count.highest_sequence) : "none");
}

Json members(const Count &count) {
  return {{"count", count.told},
          {"complete", count.is_complete()},
          {"highest_sequence", count.has_sequence() ? Json(count.highest_sequence) : Json()}};
}

// Beyond the limit names are counted, not shown: the highest sequence is that of all.
Count show_names(NameStream &names, std::size_t limit, ListOutput &output) {
  Count count;
  for (std::string name; names.next(name); ++count.told) {
    if (count.shown == limit) continue;
    Json object = Json::object();
    put_text(object, "name", name);
    output.add(name, printable(name), object);
    ++count.shown;
  }
  try {
    count.highest_sequence = names.finish();
  } catch (const Failure &) {
    output.abandon();
    throw;
  }
  return count;
}

void list(const Settings &settings, const ListOptions &options) {
  check_null(settings, options.null_terminated);
  check_prefix(options.prefix);
  constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();
  const std::uint32_t limit = options.limit ? parse_number("limit", *options.limit, 1, kMost) : kMost;
  const Connection connection(settings);
  NameStream names(connection, options.prefix);
  ListOutput output(settings, options.null_terminated);
  const Count count = show_names(names, limit, output);
  output.end(sentence(count), members(count));
  if (settings.plain()) fmt::print(stderr, "{}\n", sentence(count));
}

}  // namespace

void add_key_list(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("list", "List the names of all keys, in order");
  auto options = std::make_shared<ListOptions>();
  command->add_option("--prefix", options->prefix, "only names that begin so, at most 40 bytes")->option_text("TEXT");
  command->add_option("--limit", options->limit, "show the first N names and count the others")->option_text("N");
  add_null(*command, options->null_terminated);
  command->footer(
      "The list is complete unless a limit cuts it, which is said. It ends with the number of keys and the highest\n"
      "sequence, the hexadecimal number that names of key templates carry in their characters 16 to 21. In plain\n"
      "form that line goes to standard error, and names are one a line with \\xNN for what is not printable ASCII and\n"
      "\\\\ for a backslash. The server tells the names as they were when the list began.\n\n"
      "Examples:\n"
      "  vesk key list --prefix tape-library-01\n"
      "  vesk key list --output plain --null | xargs -0 -n1 vesk key get");
  command->final_callback([&settings, options] {
    settings.offers_plain = true;
    settings.action = [&, options] { list(settings, *options); };
  });
}

}  // namespace command
