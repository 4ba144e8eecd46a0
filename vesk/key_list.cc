// vesk key: list
#include <fmt/format.h>

#include <memory>

#include "vesk/connection.h"
#include "vesk/failure.h"
#include "vesk/key_commands.h"
#include "vesk/list_output.h"
#include "vesk/name_stream.h"
#include "vesk/text.h"

namespace command {
namespace {

struct KeyListOptions {
  std::string prefix;
  ListOptions list;
};

std::string sentence(const ListOutput &output, std::uint32_t highest_sequence) {
  const std::size_t told = output.num_told();
  const std::string shown =
      output.is_complete() ? fmt::format("{}", told) : fmt::format("{} of {}", output.num_shown(), told);
  return fmt::format("{} {}{}, highest sequence {}", shown, told == 1 ? "key" : "keys",
                     output.is_complete() ? "" : " shown", told == 0 ? "none" : increment_text(highest_sequence));
}

// The highest sequence is that of all names, shown or not.
std::uint32_t show_names(NameStream &names, ListOutput &output) {
  for (std::string name; names.next(name);) output.add(Members{{"name", name}}, printable(name));
  try {
    return names.finish();
  } catch (const Failure &) {
    output.abandon();
    throw;
  }
}

void list(const Settings &settings, const KeyListOptions &options) {
  ListOutput output(settings, options.list, "keys", {"name"});
  check_key_prefix(options.prefix);
  const Connection connection(settings);
  NameStream names(connection, options.prefix);
  const std::uint32_t highest_sequence = show_names(names, output);
  const bool has_sequence = output.num_told() > 0;
  const std::string footer = sentence(output, highest_sequence);
  output.end(footer, {{"highest_sequence", has_sequence ? Json(highest_sequence) : Json()}});
  if (settings.form() == Form::kPlain) fmt::print(stderr, "{}\n", footer);
}

}  // namespace

void add_key_list(Command &group, Settings &settings) {
  Command &command = group.add("list", "List the names of all keys, in order");
  auto options = std::make_shared<KeyListOptions>();
  command.option("--prefix", &options->prefix, "TEXT", Kind::kKeyName, "only names that begin so, at most 40 bytes");
  add_list_options(command, options->list);
  command.details =
      "The list is complete unless a limit cuts it, which is said. It ends with the number of keys and the highest\n"
      "sequence, the hexadecimal number that names of key templates carry in their characters 16 to 21. In plain\n"
      "form that line goes to standard error, and names are one a line with \\xNN for what is not printable ASCII and\n"
      "\\\\ for a backslash. The server tells the names as they were when the list began.";
  command.examples = {"vesk key list --prefix tape-library-01",
                      "vesk key list --output plain --null | xargs -0 -n1 vesk key get"};
  command.run = [&settings, options] { list(settings, *options); };
}

}  // namespace command
