// vesk key: policy, make-deletable, delete
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "vesk/ask.h"
#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/failure.h"
#include "vesk/key_commands.h"
#include "vesk/output.h"
#include "vesk/text.h"

namespace command {
namespace {

struct DeleteOptions {
  std::vector<std::string> names;
  bool yes = false;
};

void policy(const Settings &settings, const std::string &name) {
  check_key_name(name);
  const Connection connection(settings);
  KeyMetadataValues values{};
  connection.run(key_subject(name), qRetrieveKeyMetadata, name.c_str(), &values);

  Json metadata = Json::object();
  std::string table;
  int number = 0;
  for (const auto &value : values.md) {
    const std::string field = fmt::format("MD{:02}", ++number);
    metadata[field] = trimmed(value);
    table += fmt::format("{}  {}\n", field, printable(trimmed(value)));
  }
  if (settings.json()) return show(settings, {}, {{"name", name}, {"metadata", metadata}});
  write_standard_output(table);
}

void make_deletable(const Settings &settings, const std::string &name) {
  check_key_name(name);
  const Connection connection(settings);
  connection.run(key_subject(name), qChangeDeletable, name.c_str(), 'Y');
  show(settings, fmt::format("key {} may be deleted now", printable(name)), {{"made_deletable", name}});
}

std::string joined(const std::vector<std::string> &names, std::size_t first) {
  std::string text;
  for (std::size_t i = first; i < names.size(); ++i) text += (text.empty() ? "" : ", ") + printable(names[i]);
  return text;
}

// Stops at the first key that cannot be deleted; deleted says how far it came.
void delete_each(const Connection &connection, const DeleteOptions &options, const Settings &settings, Json &deleted) {
  for (std::size_t i = 0; i < options.names.size(); ++i) {
    const std::string &name = options.names[i];
    try {
      connection.run(key_subject(name), qDeleteKey, name.c_str());
      deleted.push_back(name);
      if (!settings.json()) write_standard_output(fmt::format("deleted key {}\n", printable(name)));
    } catch (const Failure &failure) {
      std::vector<std::string> details = failure.details();
      if (i + 1 < options.names.size()) details.push_back("not tried: " + joined(options.names, i + 1));
      throw Failure(failure.code(), failure.what(), failure.hint(), details);
    }
  }
}

void delete_keys(const Settings &settings, const DeleteOptions &options) {
  for (const std::string &name : options.names) check_key_name(name);
  const Connection connection(settings);
  if (!options.yes) {
    ask_yes(fmt::format("Delete {} {}? What they protect can never be read again.",
                        options.names.size() == 1 ? "key" : "keys", joined(options.names, 0)),
            "nothing was deleted");
  }
  Json deleted = Json::array();
  const auto show_document = [&] {
    if (settings.json()) show(settings, {}, {{"deleted", deleted}});
  };
  try {
    delete_each(connection, options, settings, deleted);
  } catch (const Failure &) {
    show_document();
    throw;
  }
  show_document();
}

void add_policy(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("policy", "Show the metadata fields of a key");
  auto name = std::make_shared<std::string>();
  add_name(*command, *name);
  command->footer(
      "Shows the sixteen metadata values of the key's policy record, MD01 to MD16. Its dates and flags\n"
      "are not among them.\n\n"
      "Example:\n  vesk key policy backup-2026 --output json");
  command->final_callback([&settings, name] { settings.action = [&, name] { policy(settings, *name); }; });
}

void add_make_deletable(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("make-deletable", "Let a key be deleted; this cannot be taken back");
  auto name = std::make_shared<std::string>();
  add_name(*command, *name);
  command->footer("Example:\n  vesk key make-deletable backup-2026");
  command->final_callback([&settings, name] { settings.action = [&, name] { make_deletable(settings, *name); }; });
}

void add_delete(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("delete", "Delete keys for good");
  auto options = std::make_shared<DeleteOptions>();
  command->add_option("NAME", options->names, "the names of the keys, each at most 40 bytes")
      ->option_text(" ")
      ->required();
  command->add_flag("--yes", options->yes, "do not ask");
  command->footer(
      "Asks once on a terminal and needs --yes elsewhere. Stops at the first key that cannot be deleted.\n\n"
      "Example:\n  vesk key delete backup-2024 backup-2025 --yes");
  command->final_callback(
      [&settings, options] { settings.action = [&, options] { delete_keys(settings, *options); }; });
}

}  // namespace

void add_key_policy(CLI::App &group, Settings &settings) {
  add_policy(group, settings);
  add_make_deletable(group, settings);
  add_delete(group, settings);
}

}  // namespace command
